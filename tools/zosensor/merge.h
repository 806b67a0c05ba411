// What an update may change, and how it merges into a resource's content.
//
// Objects merge member by member; an object whose names are indices replaces those elements of an array; an
// array replaces an array; a scalar replaces a scalar of its kind; anything replaces null. All or nothing.
// Plain values and functions without state; any thread. Contents and patches nest at most 256 levels (the
// parser's limit), so walking them recursively is safe.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "tools/zosensor/answer.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonpointer.h"

namespace ZoSensor {

struct WriteRules {
  bool everything = false;              // the whole resource is writable, but for what is driven
  std::vector<ZoJsonPointer> writable;  // parts that may be written, with all that lies below them
  std::vector<ZoJsonPointer> driven;    // members that a waveform drives: never writable
  std::vector<ZoJsonPointer> integers;  // numbers here, and below here, carry no fraction

  bool ReadOnly() const { return !everything && writable.empty(); }
};

struct Refusal {
  Status status;
  std::string reason;
};

// The content after the update, or why there is none.
std::variant<ZoJson, Refusal> Merge(const ZoJson& content, const ZoJson& patch, const WriteRules& rules);

}  // namespace ZoSensor
