// The eight exports. Their contract stands in xhmi/iohandler.h.
#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "xhmi/iohandler.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/iohandler.h"

#define ZOIO_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using ZoIO::IoHandler;
using ZoIO::ZoVyrnClient;

constexpr int done = 0;
constexpr int refused = 1;

// Held by every export for the whole of its call, over all instances.
constinit Zo::Mutex entryLock("ZoIoHandler exports", Zo::LockRank_Entry);

// A mutex goes to whoever is awake, which is a thread that calls without a pause, and never one that waits for it to
// return. So only one thread at a time waits for the lock itself, and the others here, that thread among them.
constinit Zo::Mutex entryQueue("ZoIoHandler exports, queue", Zo::LockRank_EntryQueue);

class Q_SCOPED_CAPABILITY Entry {
 public:
  Entry() Q_ACQUIRE(entryLock) {
    Zo::MutexLock next(entryQueue);
    entryLock.lock();
  }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;
  ~Entry() Q_RELEASE() { entryLock.unlock(); }
};

template <typename... Pointers>
bool AnyNull(const Pointers*... pointers) {
  return ((pointers == nullptr) || ...);
}

// Runs an operation on the instance behind a handle; a std::exception counts as a refusal.
template <typename Operation>
int Forward(void* handle, const Operation& operation) {
  const Entry held;
  ZoVyrnClient* client = nullptr;
  try {
    client = IoHandler::Instance().Find(handle);
  } catch (const std::exception&) {
    return refused;
  }
  if (client == nullptr && IoHandler::IsParents(handle)) {
    return refused;
  }
  if (client == nullptr) {
    // A handle that is not live is a fault which no result could answer safely: the host would go on with an
    // instance that is gone. Nothing is being handled here, so this ends the process, and no handler of ours
    // may soften it.
    // cppcheck-suppress rethrowNoCurrentException ; see above
    throw;
  }
  try {
    return operation(*client);
  } catch (const std::exception&) {
    return refused;
  }
}

}  // namespace

ZOIO_EXPORT int CreateIoInstance(const char* address, unsigned short controlPort, const ioHandlerParam* param,
                                 void** handleOut) {
  if (AnyNull(address, param, handleOut)) {
    return refused;
  }
  const Entry held;
  try {
    IoHandler& handler = IoHandler::Instance();
    auto client = std::make_unique<ZoVyrnClient>(std::string(address), controlPort, *param);
    void* const before = std::exchange(*handleOut, client.get());
    try {
      handler.Insert(std::move(client));
    } catch (...) {
      // The instance is gone again; its address must not look like a handle.
      *handleOut = before;
      throw;
    }
    return done;
  } catch (const std::exception&) {
    return refused;
  }
}

ZOIO_EXPORT int DestroyIoInstance(void* handle) {
  if (handle == nullptr) {
    return refused;
  }
  return Forward(handle, [handle](ZoVyrnClient&) {
    IoHandler::Instance().Erase(handle);
    return done;
  });
}

ZOIO_EXPORT const ioInfo* GetIoInfo(void) {
  const Entry held;
  return &IoHandler::Instance().Info();
}

ZOIO_EXPORT int ReadItem(const char* itemName, void* handle) {
  if (AnyNull(itemName, handle)) {
    return refused;
  }
  return Forward(handle, [itemName](ZoVyrnClient& client) { return client.Read(itemName); });
}

ZOIO_EXPORT int WriteItem(const char* itemName, const ioDataValue* value, int ignored, void* handle) {
  if (AnyNull(itemName, value, handle)) {
    return refused;
  }
  return Forward(handle, [=](ZoVyrnClient& client) { return client.Write(itemName, ignored, *value); });
}

ZOIO_EXPORT int SubscribeItems(long long intervalMs, int count, const char* const* itemNames, int* results,
                               void* handle) {
  if (AnyNull(itemNames, results, handle)) {
    return refused;
  }
  return Forward(handle, [=](ZoVyrnClient& client) {
    return client.Subscribe(std::chrono::milliseconds(intervalMs), itemNames, results, count);
  });
}

ZOIO_EXPORT int UnsubscribeItems(int count, const char* const* itemNames, void* handle) {
  if (AnyNull(itemNames, handle) || std::any_of(itemNames, itemNames + std::max(count, 0),
                                                [](const char* name) { return name == nullptr; })) {
    return refused;
  }
  return Forward(handle, [=](ZoVyrnClient& client) { return client.Unsubscribe(itemNames, count); });
}

ZOIO_EXPORT int CallMethod(const void* callToken, const void* /*ignored*/, const char* methodName,
                           const char* arguments, void* handle) {
  if (AnyNull(methodName, arguments, handle)) {
    return refused;
  }
  return Forward(handle, [=](ZoVyrnClient& client) { return client.Call(callToken, methodName, arguments); });
}
