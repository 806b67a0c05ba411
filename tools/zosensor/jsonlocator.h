// Finds the line and column of a value in a JSON text: values themselves do not remember where they came
// from. A function without state; does not recurse.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "zovyrnsdk/json/zojsonpointer.h"

namespace ZoSensor {

struct TextPosition {
  std::size_t line = 1;
  std::size_t column = 1;  // in characters, counted from 1
};

// The position of a byte.
TextPosition PositionOf(std::string_view text, std::size_t offset);

// The offset of the first name that its object has already, in a valid JSON text.
std::optional<std::size_t> FindDuplicateName(std::string_view text);

// Where the value at pointer begins in a valid JSON text; of what is missing, the closest container around
// it.
TextPosition LocateValue(std::string_view text, const ZoJsonPointer& pointer);

}  // namespace ZoSensor
