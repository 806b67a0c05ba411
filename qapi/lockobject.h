// Inside the base library only: the object behind a qLock.
//
// A flag under a mutex, rather than the mutex itself: that gives entering with a time-out on the steady clock
// and knowledge of the owner from the standard library alone, and sanitizers follow it. Exit touches nothing
// after its mutex is free, so whoever enters next may destroy the lock.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "qapi/status.h"

struct qLockObject {
 public:
  qLockObject(const char* name, int rank) : name(name), rank(rank) {}
  qLockObject(const qLockObject&) = delete;
  qLockObject& operator=(const qLockObject&) = delete;

  qStatus Enter(std::uint64_t timeout);
  qStatus Exit();

 private:
  bool IsFree() const { return owner == std::thread::id(); }

  const char* const name;
  const int rank;
  std::mutex mutex;  // guards the three below
  std::condition_variable left;
  std::thread::id owner;  // the default one is nobody
  unsigned waiters = 0;
};
