// How much a JSON text holds, and what it says at its top, found without parsing it: a text of a few bytes a value makes a
// document of many times its size. Functions without state; neither recurses.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ZoSensor {

// The values in a text, arrays and objects counted with what they hold: exact for valid JSON, but that an empty
// container counts like one that holds one value.
std::size_t JsonValues(std::string_view text);
// The same as JsonValues(text) > most, without a look at a text that is too short for that.
bool HoldsMoreValues(std::string_view text, std::size_t most);

// The text with a null for each array and object in the outermost one.
std::string JsonOutline(std::string_view text);

}  // namespace ZoSensor
