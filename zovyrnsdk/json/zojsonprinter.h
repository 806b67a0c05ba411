// Value to JSON text. Internal to this folder.
#pragma once

#include <string>

#include "zovyrnsdk/json/zojson.h"

// What ZoJson::ToString promises.
std::string PrintJson(const ZoJson& value);
