// The order in which locks are taken, from the outermost to the innermost. A thread enters only locks of a
// higher rank than all that it holds. docs/architecture.md shows who holds which.
#pragma once

#include <condition_variable>
#include <mutex>

#include "qapi/annotations.h"
#include "qapi/lockrank.h"

namespace Zo {

enum LockRank : int {
  LockRank_None = 0,
  LockRank_EntryQueue = 9,      // those who wait for the next
  LockRank_Entry = 10,          // the process-wide lock of the exports
  LockRank_Instance = 20,       // one instance
  LockRank_Simulator = 30,      // the simulator's mutex
  LockRank_Registry = 40,       // the item registry
  LockRank_SimulatorData = 45,  // the simulator's resources, for a moment
  LockRank_Link = 50,           // the sensor link
  LockRank_HandlerGate = 60,    // the gate between the link's handlers and the cache
  LockRank_Cache = 70,          // the value cache
  LockRank_LogBuffer = 80       // the buffer of one log line
};

// A std::mutex that takes part in the order.
class Q_CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex(const char* name, int rank) : name(name), rank(rank) {}
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() Q_ACQUIRE() {
    qLockRank_Entering(name, rank);
    mutex.lock();
  }
  bool try_lock() Q_TRY_ACQUIRE(true) {
    if (!mutex.try_lock()) {
      return false;
    }
    qLockRank_Entering(name, rank);
    return true;
  }
  void unlock() Q_RELEASE() {
    mutex.unlock();
    qLockRank_Left(name, rank);
  }

  // Waits on a condition with this mutex, which the caller holds and holds again afterwards.
  template <typename TimePoint>
  std::cv_status WaitUntil(std::condition_variable& condition, const TimePoint& deadline) Q_REQUIRES(this) {
    qLockRank_Left(name, rank);
    std::unique_lock<std::mutex> held(mutex, std::adopt_lock);
    const std::cv_status result = condition.wait_until(held, deadline);
    held.release();
    qLockRank_Entering(name, rank);
    return result;
  }

 private:
  std::mutex mutex;
  const char* name;
  int rank;
};

// Holds a Mutex for its scope.
class Q_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) Q_ACQUIRE(mutex) : mutex(mutex) { mutex.lock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() Q_RELEASE() { mutex.unlock(); }

 private:
  Mutex& mutex;
};

}  // namespace Zo
