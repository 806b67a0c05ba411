// A client of the wire that knows nothing but frames: for tests of the emulator's sockets.
//
// Every operation blocks, for a generous limit at most. Threads: one. Owner: the test.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/deadline.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoSensor {

struct HttpAnswer {
  unsigned status = 0;  // 0: no answer came
  std::string body;
  std::map<std::string, std::string> headers;  // names in lower case
};

struct SessionWishes {
  std::string target = "/vyrn/v1";
  std::string protocol = "vyrn.v1.json";  // empty: none is offered
  std::string moreProtocols;              // offered on a line of their own; empty: there is no such line
  bool compression = false;               // whether it is offered
  std::string origin;                     // empty: none is named
  std::string host;                       // empty: 127.0.0.1 with the port
  std::size_t receiveBuffer = 0;          // bytes, for a client that is slow; 0: the system's
};

class RawClient {
 public:
  explicit RawClient(std::uint16_t port, const SessionWishes& wishes = {});
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  // The handshake's outcome: 101, or the status of the refusal; 0 when none came.
  unsigned HandshakeStatus() const;
  std::string NamedProtocol() const;
  // What the server says about extensions, such as compression.
  std::string NamedExtensions() const;

  bool Send(std::string_view text, bool binary = false);
  // Bytes below the frames.
  bool SendRaw(std::string_view bytes);
  bool Ping();
  // Whether a pong has come since the last ping. Looks when messages are received.
  bool PongSeen() const;

  // The next message; nothing when the connection ended or the limit passed.
  std::optional<std::string> Receive(ZoTest::Clock::duration limit = ZoTest::kLimit);
  // The code of the closing frame, once Receive gave nothing; 0 when there was none.
  unsigned CloseCode() const;
  // Whether the last Receive ended for want of time alone.
  bool TimedOut() const;

  // Sends a request and gives its answer; pushes that come before it are kept.
  ZoJson Ask(std::string_view request);
  // The next push, kept or received.
  ZoJson NextPush();
  bool Close();

 private:
  class Impl;
  std::unique_ptr<Impl> impl;
};

HttpAnswer AskHttp(std::uint16_t port, const std::string& method, const std::string& target,
                   const std::string& body = "", const std::map<std::string, std::string>& headers = {});

// Sends bytes on a connection of their own and gives all that comes until its end.
std::string Exchange(std::uint16_t port, std::string_view bytes);
// The same in parts, with something else done after each.
std::string ExchangeParts(std::uint16_t port, const std::vector<std::string>& parts,
                          const std::function<void()>& between);

}  // namespace ZoSensor
