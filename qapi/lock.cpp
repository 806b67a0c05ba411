#include "qapi/lock.h"

#include <new>

#include "qapi/faultswitch.h"
#include "qapi/lockobject.h"
#include "qapi/lockrank.h"
#include "qapi/stragglers.h"
#include "qapi/timedwait.h"

using qApi::Fails;

qStatus qLockObject::Enter(std::uint64_t timeout) {
  const std::thread::id self = std::this_thread::get_id();
  std::unique_lock guard(mutex);
  if (owner == self) {
    return qStatus_Deadlock;
  }
  qLockRank_Entering(name, rank);
  if (owner == std::thread::id()) {
    owner = self;
    return qStatus_Success;
  }
  Waiter waiter;
  (last == nullptr ? first : last->next) = &waiter;
  // cppcheck-suppress danglingLifetime ; whoever hands the lock over takes it from the row, and so does giving up
  last = &waiter;
  if (!qApi::WaitFor(waiter.handed, guard, timeout, [&] { return owner == self; })) {
    Remove(waiter);
    qLockRank_Left(name, rank);
    return qStatus_TimeOut;
  }
  return qStatus_Success;
}

qStatus qLockObject::Exit() {
  const char* const itsName = name;
  const int itsRank = rank;
  {
    const std::lock_guard guard(mutex);
    if (owner != std::this_thread::get_id()) {
      return qStatus_WrongState;
    }
    if (Waiter* const next = first; next != nullptr) {
      Remove(*next);
      owner = next->thread;
      next->handed.notify_one();
    } else {
      owner = std::thread::id();
    }
  }
  // From here on another thread may have entered, left and destroyed the lock.
  qLockRank_Left(itsName, itsRank);
  return qStatus_Success;
}

void qLockObject::Remove(const Waiter& waiter) {
  Waiter* before = nullptr;
  for (Waiter* each = first; each != &waiter; each = each->next) {
    before = each;
  }
  (before == nullptr ? first : before->next) = waiter.next;
  if (last == &waiter) {
    last = before;
  }
}

qStatus qLock_Construct(qLock* out, const char* name, int rank) {
  if (out == nullptr) {
    return qStatus_InvalidArgument;
  }
  *out = nullptr;
  if (name == nullptr || rank < 0) {
    return qStatus_InvalidArgument;
  }
  if (qStatus status; Fails(qOperation::LockConstruct, status)) {
    return status;
  }
  qApi::InitialiseRuntime();
  *out = new (std::nothrow) qLockObject(name, rank);
  if (*out == nullptr) {
    return qStatus_OutOfMemory;
  }
  qApi::AddLiveObject();
  return qStatus_Success;
}

qStatus qLock_Enter(qLock lock) {
  if (lock == nullptr) {
    return qStatus_InvalidArgument;
  }
  if (qStatus status; Fails(qOperation::LockEnter, status)) {
    return status;
  }
  return lock->Enter(qApi::unlimited);
}

qStatus qLock_EnterEx(qLock lock, std::uint64_t timeout) {
  if (lock == nullptr) {
    return qStatus_InvalidArgument;
  }
  if (qStatus status; Fails(qOperation::LockEnterEx, status)) {
    return status;
  }
  return lock->Enter(timeout);
}

qStatus qLock_Exit(qLock lock) {
  if (lock == nullptr) {
    return qStatus_InvalidArgument;
  }
  qStatus injected = qStatus_Success;
  const bool fails = Fails(qOperation::LockExit, injected);
  const qStatus status = lock->Exit();
  return fails ? injected : status;
}
