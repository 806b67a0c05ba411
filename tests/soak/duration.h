// Lengths of time as people write them: "90s", "10m", "1h".
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace ZoSoak {

// A whole number and its unit: s, m or h; one second to a week. Raises std::invalid_argument with a sentence.
std::chrono::seconds ParseDuration(std::string_view text);

// "1h 2m 3s", without the units that are 0; "0s".
std::string DurationText(std::chrono::seconds duration);

}  // namespace ZoSoak
