// The emulator's notion of time. Everything below the sockets is told the time by its caller, so that tests
// choose it.
#pragma once

#include <chrono>

namespace ZoSensor {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using Duration = std::chrono::nanoseconds;

// "Never": later than any moment that is reached.
inline constexpr Time Never = Time::max();

inline Duration SecondsToDuration(double seconds) {
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}
inline double ToSeconds(Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace ZoSensor
