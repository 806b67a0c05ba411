// One sensor system, at an address and control port.
#pragma once

#include <cstdint>
#include <memory>

#include "qapi/address.h"
#include "zovyrnsdk/zorestclient.h"

// A handle: copies share one link, and destroying the last one disconnects. Any thread, any number at once.
class ZoSystem {
 public:
  enum State : std::int32_t { Stopped = 0, Running = 1 };

  // A system without an address: Connect raises.
  ZoSystem();
  // port is the control port. Does not connect.
  ZoSystem(qIpAddress address, unsigned port);

  // Opens the connection and starts keeping it: when it is lost later, the link restores it, and with it the streams
  // and subscriptions. Waits at most 3 s and raises a std::runtime_error that names address, port and cause; a first
  // connection that failed is not tried again by itself. Connecting a connected system does nothing.
  void Connect();

  // Closes the connection for good. Requests under way end with an exception. Returns when no handler runs and none
  // will start; from inside a handler, or when one blocks for longer than a second, when none will start. A
  // disconnected system may Connect again; streams and subscriptions of before are gone. A handler that still blocks then
  // may go on beside those of the new connection.
  void Disconnect() noexcept;

  // Whether the connection exists now; false while it is being restored. Never blocks.
  bool IsConnected() const noexcept;

  // Start and stop acquisition (call "/system/start", "/system/stop"); wait at most 3 s; raise like
  // ZoTransaction::GetResponse.
  void Start();
  void Stop();

  // Reads "/system" and gives its state; waits at most 3 s; raises like ZoTransaction::GetResponse.
  State RunningState();

  // Valid as long as this object, and not across an assignment to it.
  ZoRestClient& Client() noexcept { return client; }

 private:
  std::shared_ptr<ZoLink> link;
  ZoRestClient client;
};
