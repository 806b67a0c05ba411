// Inside the base library only: ends the sleeps of a thread, the one under way and all later ones.
//
// Threads: one sleeps, any wakes it. Owner: the thread's object. Not a condition variable: glibc leaves the mutex of one
// by a system call whenever a wait has ended, and that call takes the longer the more threads of the process sleep.
// With a thousand instances it was nearly half of all that they cost.
#pragma once

#include <semaphore.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "qapi/timedwait.h"

namespace qApi {

class WakeUp {
 public:
  WakeUp() noexcept { ::sem_init(&woken, 0, 0); }
  WakeUp(const WakeUp&) = delete;
  WakeUp& operator=(const WakeUp&) = delete;
  ~WakeUp() { ::sem_destroy(&woken); }

  void Wake() noexcept { ::sem_post(&woken); }

  // Until it is woken, or for so many microseconds of the monotonic clock.
  void Sleep(std::uint64_t duration) noexcept {
    const std::uint64_t limit = std::min(duration, unlimited);
    timespec due{};
    ::clock_gettime(CLOCK_MONOTONIC, &due);
    due.tv_sec += static_cast<time_t>(limit / 1'000'000);
    due.tv_nsec += static_cast<long>(limit % 1'000'000 * 1'000);
    if (due.tv_nsec >= 1'000'000'000) {
      due.tv_nsec -= 1'000'000'000;
      ++due.tv_sec;
    }
    int result = 0;
    do {  // a signal handler may run meanwhile
      result = ::sem_clockwait(&woken, CLOCK_MONOTONIC, &due);
    } while (result != 0 && errno == EINTR);
    if (result == 0) {
      Wake();  // for the next sleep
    }
  }

 private:
  sem_t woken;  // above 0 from the first wake on, but for the moment in which a sleep ends
};

}  // namespace qApi
