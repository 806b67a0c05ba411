// A message in which everything that JSON allows, but this program cannot hold, has a stand-in: a number
// beyond the range of a double another number, half of a surrogate pair the replacement character. So a
// request with such a value can be told from one that is no JSON, and be answered. A function without state.
#pragma once

#include <string>
#include <string_view>

namespace ZoSensor {

// JSON exactly when the text is; anything else comes out as some other text that is none.
std::string WithStandIns(std::string_view text);

}  // namespace ZoSensor
