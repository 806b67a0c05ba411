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
  if (!IsFree()) {
    ++waiters;
    const bool entered = qApi::WaitFor(left, guard, timeout, [this] { return IsFree(); });
    --waiters;
    if (!entered) {
      qLockRank_Left(name, rank);
      return qStatus_TimeOut;
    }
  }
  owner = self;
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
    owner = std::thread::id();
    if (waiters > 0) {
      left.notify_one();
    }
  }
  // From here on another thread may have entered, left and destroyed the lock.
  qLockRank_Left(itsName, itsRank);
  return qStatus_Success;
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
