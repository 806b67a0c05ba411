// Requests to a sensor, and the handlers for what it pushes.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/zoresponse.h"
#include "zovyrnsdk/zotransaction.h"

class ZoLink;

// Belongs to a ZoSystem and shares its link; any thread, any number at once.
//
// The nine requests hand a request to the link and return without waiting; they never raise. What becomes of the
// request shows in the transaction. uri names a resource (a resource or a pattern such as "/res/*" for Sub and
// UnSub); payload is sent by Create, Update and Call only; options are reserved and must be empty. A request made
// while the link is down waits for it within its GetResponse's time-out; but once one has done so in vain and the link
// has been down for 3 s, others fail at once until it is back.
//
// Handlers are called on the link's own thread, one at a time, with what a stream or a subscription brings; other
// pushes are dropped. They must not raise and should be quick: while one runs and nobody asks, the sensor's pings wait.
// After ZoSystem::Disconnect returned none is called any
// more. Set them before Connect, or at any time: the next push uses the new one.
class ZoRestClient {
 public:
  explicit ZoRestClient(std::shared_ptr<ZoLink> link) : link(std::move(link)) {}

  ZoTransaction Read(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;
  ZoTransaction Create(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;
  ZoTransaction Update(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;
  ZoTransaction Delete(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;
  ZoTransaction Call(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;
  ZoTransaction Sub(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;
  ZoTransaction UnSub(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;
  ZoTransaction StartStream(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;
  ZoTransaction StopStream(const std::string& uri, const ZoJson& payload, const ZoJson& options) noexcept;

  void SetStreamHandler(const std::function<void(const std::shared_ptr<ZoStreamResponse>&)>& handler);
  void SetSubHandler(const std::function<void(const std::shared_ptr<ZoNotificationResponse>&)>& handler);

 private:
  std::shared_ptr<ZoLink> link;
};
