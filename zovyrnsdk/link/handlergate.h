// The gate between the link's own thread and the handlers of its user.
//
// Handlers are called one at a time, on the link's own thread, with no lock held. Once Shut has returned none
// starts any more; one that runs has ended when the own thread has. Threads: any. Owner: shared by the link
// and its connection. Lock: LockRank_HandlerGate, never held during a call.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <thread>

#include "qapi/annotations.h"
#include "zoapi/threads/lockranks.h"
#include "zovyrnsdk/link/clock.h"
#include "zovyrnsdk/link/pushqueue.h"
#include "zovyrnsdk/zoresponse.h"

namespace ZoSdk {

using StreamHandler = std::function<void(const std::shared_ptr<ZoStreamResponse>&)>;
using SubHandler = std::function<void(const std::shared_ptr<ZoNotificationResponse>&)>;

// The handlers that are set, for all connections of one link. Any thread.
class Handlers {
 public:
  void Set(StreamHandler handler);
  void Set(SubHandler handler);
  std::shared_ptr<const StreamHandler> Stream() const;
  std::shared_ptr<const SubHandler> Sub() const;

 private:
  mutable Zo::Mutex mutex{"ZoLink handlers", Zo::LockRank_HandlerGate + 1};
  std::shared_ptr<const StreamHandler> stream Q_GUARDED_BY(mutex);
  std::shared_ptr<const SubHandler> sub Q_GUARDED_BY(mutex);
};

class HandlerGate {
 public:
  explicit HandlerGate(std::shared_ptr<const Handlers> handlers) : handlers(std::move(handlers)) {}

  // Calls the handler unless the gate is shut. False when there was no memory to call it: the push is as it was. The own
  // thread only.
  bool Deliver(Push& push);

  // Whether the calling thread is inside a handler.
  bool InHandler() const;

  void Shut();

  // The own thread's life: no handler runs before Began, none after Ended.
  void Began();
  void Ended();
  // True when the own thread has ended, or never began.
  bool WaitEnded(Time deadline);

 private:
  template <typename Response, typename Handler>
  static bool Call(const Handler& handler, Push& push);

  const std::shared_ptr<const Handlers> handlers;
  mutable Zo::Mutex mutex{"ZoLink handler gate", Zo::LockRank_HandlerGate};
  std::condition_variable_any end;
  bool shut Q_GUARDED_BY(mutex) = false;
  bool alive Q_GUARDED_BY(mutex) = false;
  std::thread::id running Q_GUARDED_BY(mutex);  // the thread inside a handler
};

}  // namespace ZoSdk
