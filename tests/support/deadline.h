// A point in time by which something must have happened, and the limits that tests share.
//
// A plain value over the steady clock.
#pragma once

#include <algorithm>
#include <chrono>

namespace ZoTest {

using Clock = std::chrono::steady_clock;

// How long a test waits for something that must come. Generous: it is only ever reached by a failure.
inline constexpr std::chrono::seconds kLimit{30};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

class Deadline {
 public:
  explicit Deadline(Clock::duration limit = kLimit) : end(Clock::now() + limit) {}

  bool Expired() const { return Clock::now() >= end; }
  // Never negative.
  Clock::duration Left() const { return std::max(end - Clock::now(), Clock::duration::zero()); }
  Clock::time_point End() const { return end; }

 private:
  Clock::time_point end;
};

// Measures from its construction.
class Stopwatch {
 public:
  Clock::duration Elapsed() const { return Clock::now() - start; }
  std::chrono::milliseconds Milliseconds() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Elapsed());
  }

 private:
  Clock::time_point start = Clock::now();
};

}  // namespace ZoTest
