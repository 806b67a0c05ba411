#include "qapi/threadobject.h"

#include <cstdio>
#include <new>
#include <system_error>
#include <utility>

#include "qapi/faultswitch.h"
#include "qapi/platform.h"
#include "qapi/thread.h"
#include "qapi/timedwait.h"

namespace {

constexpr std::size_t maxForeignName = 128;

// Plain data: a thread-local object with a destructor would keep a plug-in that contains this file mapped
// after it was unloaded.
thread_local qThreadObject* currentThread = nullptr;
thread_local char foreignName[maxForeignName] = {};

}  // namespace

qThreadObject::qThreadObject(std::thread adopted) : state(State::Running), thread(std::move(adopted)) {
  qApi::AddLiveObject();
}

qThreadObject* qThreadObject::Current() {
  return currentThread;
}

qStatus qThreadObject::SetName(const char* text) {
  try {
    std::string copy(text);
    const std::lock_guard guard(mutex);
    name = std::move(copy);
    if (currentThread == this) {
      qApi::Platform::NameCurrentThread(name.c_str());
    } else if (thread.joinable()) {
      qApi::Platform::NameThread(thread, name.c_str());
    }
    return qStatus_Success;
  } catch (const std::bad_alloc&) {
    return qStatus_OutOfMemory;
  }
}

std::string qThreadObject::Name() {
  const std::lock_guard guard(mutex);
  return name;
}

qStatus qThreadObject::Start(qThreadBody function, void* context) {
  const std::lock_guard guard(mutex);
  if (state != State::Idle) {
    return qStatus_WrongState;
  }
  body = function;
  argument = context;
  references.fetch_add(1, std::memory_order_relaxed);
  try {
    const qSignalShield shield;
    thread = std::thread(&qThreadObject::Run, this);
  } catch (const std::bad_alloc&) {
    references.fetch_sub(1, std::memory_order_relaxed);
    return qStatus_OutOfMemory;
  } catch (const std::system_error&) {
    references.fetch_sub(1, std::memory_order_relaxed);
    return qStatus_System;
  }
  state = State::Running;
  qApi::AddLiveObject();
  return qStatus_Success;
}

void qThreadObject::Run() {
  currentThread = this;
  {
    // Start holds the mutex until the thread is entered in the object, so this also waits for that.
    const std::lock_guard guard(mutex);
    if (!name.empty()) {
      qApi::Platform::NameCurrentThread(name.c_str());
    }
  }
  const int code = body(argument);
  currentThread = nullptr;
  {
    const std::lock_guard guard(mutex);
    exitCode = code;
    state = State::Ended;
    changed.notify_all();
  }
  Release();
}

qStatus qThreadObject::Join(std::uint64_t timeout, int* code) {
  std::unique_lock guard(mutex);
  if (state != State::Idle) {
    wakeUp.Wake();
    const auto over = [this] { return state == State::Ended || state == State::Joined; };
    if (!qApi::WaitFor(changed, guard, timeout, over)) {
      return qStatus_TimeOut;
    }
    if (state == State::Ended) {
      // Another joiner waits meanwhile: whoever is told "joined" may rely on the system's thread being gone.
      state = State::Joining;
      std::thread ended = std::move(thread);
      guard.unlock();
      ended.join();
      guard.lock();
      state = State::Joined;
      changed.notify_all();
      qApi::RemoveLiveObject();
    }
  }
  if (code != nullptr) {
    *code = exitCode;
  }
  return qStatus_Success;
}

void qThreadObject::Sleep(std::uint64_t duration) {
  wakeUp.Sleep(duration);
}

void qThreadObject::Release() {
  if (references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete this;
  }
}

bool qThreadObject::IsUnjoined() {
  const std::lock_guard guard(mutex);
  return thread.joinable();
}

bool qThreadObject::TryJoin() {
  const std::lock_guard guard(mutex);
  if (!qApi::Platform::TryJoin(thread)) {
    return false;
  }
  qApi::RemoveLiveObject();
  return true;
}

void qThreadObject::JoinAtLast() {
  thread.join();
  qApi::RemoveLiveObject();
}

void qThreadObject::Wake() {
  wakeUp.Wake();
}

std::string qApi::CurrentThreadName() {
  return currentThread != nullptr ? currentThread->Name() : std::string(foreignName);
}

void qThread_NameCurrent(const char* name) {
  if (name == nullptr) {
    return;
  }
  if (currentThread != nullptr) {
    currentThread->SetName(name);
    return;
  }
  std::snprintf(foreignName, sizeof foreignName, "%s", name);
  qApi::Platform::NameCurrentThread(name);
}
