// The link of one sensor system, which all handles of the system share.
//
// Holds the address, the handlers, and the connection that Connect made last; that one does the work.
// Threads: any, any number at once. Owner: the ZoSystem handles and their clients; destroying the last
// disconnects. Locks: mutex guards which connection there is and is held for moments; connecting serialises
// Connect, and is held while one waits. Both rank just below the connection's own.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "qapi/address.h"
#include "qapi/annotations.h"
#include "zoapi/threads/lockranks.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/link/clock.h"
#include "zovyrnsdk/link/handlergate.h"
#include "zovyrnsdk/zorequest.h"
#include "zovyrnsdk/zoresponse.h"
#include "zovyrnsdk/zotransaction.h"

namespace ZoSdk {
class Connection;
}  // namespace ZoSdk

class ZoLink {
 public:
  ZoLink(qIpAddress address, unsigned port);
  ZoLink(const ZoLink&) = delete;
  ZoLink& operator=(const ZoLink&) = delete;
  ~ZoLink();

  void Connect();
  void Disconnect() noexcept;
  bool IsConnected() const noexcept;

  // Hands a request to the link. Never raises: what goes wrong becomes the outcome of the transaction.
  // payload is null for methods that carry none.
  ZoTransaction Request(ZoRequestMethod method, const std::string& uri, const ZoJson* payload,
                        const ZoJson& options) noexcept;

  void SetStreamHandler(ZoSdk::StreamHandler handler);
  void SetSubHandler(ZoSdk::SubHandler handler);

 private:
  std::shared_ptr<ZoSdk::Connection> Current() const;
  std::shared_ptr<ZoSdk::Connection> Replace(std::shared_ptr<ZoSdk::Connection> next);
  void ConnectUntil(ZoSdk::Time deadline);
  void OpenConnection(ZoSdk::Time deadline);
  [[noreturn]] void RaiseCannotConnect(const std::string& cause) const;

  const qIpAddress address;
  const unsigned port;
  const std::shared_ptr<ZoSdk::Handlers> handlers;

  Zo::Mutex connecting{"ZoLink connecting", Zo::LockRank_Link - 3};
  mutable Zo::Mutex mutex{"ZoLink current", Zo::LockRank_Link - 2};
  std::shared_ptr<ZoSdk::Connection> current Q_GUARDED_BY(mutex);
};
