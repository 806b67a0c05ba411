#include "zovyrnsdk/link/handlergate.h"

#include <exception>
#include <new>
#include <utility>

#include "zoapi/logging.h"

namespace ZoSdk {

void Handlers::Set(StreamHandler handler) {
  auto made = handler ? std::make_shared<const StreamHandler>(std::move(handler)) : nullptr;
  Zo::MutexLock lock(mutex);
  stream.swap(made);  // the old one goes after the lock, when nobody runs it any more
}

void Handlers::Set(SubHandler handler) {
  auto made = handler ? std::make_shared<const SubHandler>(std::move(handler)) : nullptr;
  Zo::MutexLock lock(mutex);
  sub.swap(made);
}

std::shared_ptr<const StreamHandler> Handlers::Stream() const {
  Zo::MutexLock lock(mutex);
  return stream;
}

std::shared_ptr<const SubHandler> Handlers::Sub() const {
  Zo::MutexLock lock(mutex);
  return sub;
}

template <typename Response, typename Handler>
bool HandlerGate::Call(const Handler& handler, Push& push) {
  if (!handler) {
    return true;
  }
  std::shared_ptr<Response> response;
  try {
    // Moves nothing before it has the memory.
    response = std::make_shared<Response>(
        std::move(push.document), ZoArrival{.order = push.order, .bytes = push.bytes, .closeToPush = false});
  } catch (const std::bad_alloc&) {
    return false;
  }
  try {
    (*handler)(response);
  } catch (const std::exception& error) {
    // The thread serves others too; a handler that breaks its promise must not end the process.
    Zo::Logging::Zo_Debug_Log(__LINE__, __FILE__, 0, "ZoSdk::HandlerGate::Call", error.what());
  }
  return true;
}

bool HandlerGate::Deliver(Push& push) {
  {
    Zo::MutexLock lock(mutex);
    if (shut) {
      return true;
    }
    running = std::this_thread::get_id();
  }
  const bool called = push.kind == Push::Kind::Stream ? Call<ZoStreamResponse>(handlers->Stream(), push)
                                                      : Call<ZoNotificationResponse>(handlers->Sub(), push);
  Zo::MutexLock lock(mutex);
  running = std::thread::id();
  return called;
}

bool HandlerGate::InHandler() const {
  Zo::MutexLock lock(mutex);
  return running == std::this_thread::get_id();
}

void HandlerGate::Shut() {
  Zo::MutexLock lock(mutex);
  shut = true;
}

void HandlerGate::Began() {
  Zo::MutexLock lock(mutex);
  alive = true;
}

void HandlerGate::Ended() {
  Zo::MutexLock lock(mutex);
  alive = false;
  end.notify_all();
}

bool HandlerGate::WaitEnded(Time deadline) {
  Zo::MutexLock lock(mutex);
  while (alive && Clock::now() < deadline) {
    end.wait_until(mutex, deadline);
  }
  return !alive;
}

}  // namespace ZoSdk
