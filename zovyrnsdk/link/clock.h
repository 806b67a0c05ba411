// The link's notion of time.
#pragma once

#include <chrono>

namespace ZoSdk {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using Duration = Clock::duration;

// "Never", for things that have no due time.
inline constexpr Time never = Time::max();

}  // namespace ZoSdk
