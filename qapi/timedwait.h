// Inside the base library only: waiting on a condition for a number of microseconds.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace qApi {

// Longer than any process lives, and short enough that adding it to a clock's "now" does not overflow.
inline constexpr std::uint64_t unlimited = std::uint64_t{100} * 365 * 24 * 3600 * 1'000'000;

// Waits until ready() or for microseconds of the steady clock; returns ready(). From unlimited on there is no
// limit.
template <typename Ready>
bool WaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& guard,
             std::uint64_t microseconds, Ready ready) {
  if (microseconds >= unlimited) {
    condition.wait(guard, ready);
    return true;
  }
  return condition.wait_for(guard, std::chrono::microseconds(static_cast<std::int64_t>(microseconds)), ready);
}

}  // namespace qApi
