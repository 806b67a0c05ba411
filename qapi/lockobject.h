// Inside the base library only: the object behind a qLock.
//
// An owner under a mutex, rather than the mutex itself: that gives entering with a time-out on the steady clock
// and knowledge of the owner from the standard library alone, and sanitizers follow it. Whoever leaves hands the lock to
// the thread that has waited longest: one that enters again and again would otherwise always be there first, as it is
// awake and the others are not. Exit touches nothing after its mutex is free, so whoever enters next may destroy the lock.
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
  // One for each thread that waits, on its stack.
  struct Waiter {
    const std::thread::id thread = std::this_thread::get_id();
    std::condition_variable handed;
    Waiter* next = nullptr;
  };

  void Remove(const Waiter& waiter);

  const char* const name;
  const int rank;
  std::mutex mutex;       // guards the three below
  std::thread::id owner;  // the default one is nobody, and then nobody waits
  Waiter* first = nullptr;
  Waiter* last = nullptr;
};
