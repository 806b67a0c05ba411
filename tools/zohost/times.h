// Times as people write and read them.
//
// Threads: pure functions.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace zohost {

// "200ms", "10s", "1.5min", "2h"; raises UsageError for anything else, a bare number included.
std::chrono::milliseconds ParseDuration(std::string_view text);

// "2025-03-01T12:00:00.250Z"
std::string IsoTime(std::chrono::system_clock::time_point time);

// At most five columns: "0.2s", "59s", "12min", "3h", "9d".
std::string ShortDuration(std::chrono::milliseconds duration);

}  // namespace zohost
