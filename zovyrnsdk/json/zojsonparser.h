// JSON text to value. Internal to this folder.
#pragma once

#include <string_view>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonshapes.h"

// What ZoJson::ParseString promises. Memory, the finished value included, is at most a fixed multiple of the
// text's size: about twenty times for the worst of texts, arrays of arrays of one digit.
ZoJson ParseJson(std::string_view text);
// With the limit of the other one, and what it remembers; shapes may be null.
ZoJson ParseJson(std::string_view text, std::size_t& memory, ZoJsonShapes* shapes);
