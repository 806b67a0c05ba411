// Owning handles of base-library objects, and the scoped lock over one of them.
#pragma once

#include <utility>

#include "qapi/annotations.h"
#include "qapi/lock.h"
#include "qapi/object.h"
#include "qapi/thread.h"

namespace Zo {

// Owns one base-library handle and destroys it, unless null. Not copyable; one owner at a time, no lock of
// its own.
template <typename Object>
class Handle {
 public:
  Handle() = default;
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { Reset(); }

  Object Get() const { return object; }
  // Where a Construct operation stores the object; releases the one held before.
  Object* Out() {
    Reset();
    return &object;
  }
  void Reset() {
    if (object != nullptr) {
      qObject_Destroy(std::exchange(object, nullptr));
    }
  }

 private:
  Object object = nullptr;
};

// An owned lock, as a capability that guarded members can name.
class Q_CAPABILITY("qLock") Lock : public Handle<qLock> {};

using Thread = Handle<qThread>;
using Library = Handle<qApiLib>;

// Holds a lock for its scope. Any thread; the object itself stays on one thread. A moved-from locker holds
// nothing and does nothing when destroyed.
class Q_SCOPED_CAPABILITY Locker {
 public:
  // Waits without limit for a timeout of -1, else at most timeout microseconds. Raises Zo::Exception when the
  // lock cannot be entered.
  explicit Locker(Lock& lock, long long timeout = -1) Q_ACQUIRE(lock);
  // The same for a handle that somebody else owns, unseen by the thread-safety analysis.
  explicit Locker(qLock lock, long long timeout = -1) Q_NO_THREAD_SAFETY_ANALYSIS;
  Locker(Locker&& other) noexcept Q_NO_THREAD_SAFETY_ANALYSIS : handle(std::exchange(other.handle, nullptr)) {
  }
  Locker(const Locker&) = delete;
  Locker& operator=(const Locker&) = delete;
  Locker& operator=(Locker&&) = delete;
  // Never raises: a lock that cannot be left is reported to the debug log.
  ~Locker() Q_RELEASE();

 private:
  qLock handle;
};

}  // namespace Zo
