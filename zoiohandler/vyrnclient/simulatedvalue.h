// How simulated values begin and change.
#pragma once

#include <string>

#include "zovyrnsdk/json/zojson.h"

namespace ZoIO {

// The value that follows old. A null (or anything that is no scalar) is a new item, which gets its first
// value by the substrings of its name: "int", "uint", "float", "bool", "string", tried in this order.
ZoJson NextSimulatedValue(const ZoJson& old, const std::string& itemName);

}  // namespace ZoIO
