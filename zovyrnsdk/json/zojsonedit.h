// The edit that Set and Unflatten share. Internal to this folder.
#pragma once

#include "zovyrnsdk/json/zojson.h"

// Puts a value at a path and makes objects of whatever stands in the way, arrays included.
void SetJsonMember(ZoJson& root, std::string_view path, ZoJson value);
