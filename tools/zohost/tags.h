// A sensor's answers to "Read", taken apart into tags.
//
// Threads: pure functions over plain values.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/zohost/value.h"

namespace zohost {

// A primitive value inside a resource, and the item name that reaches it.
struct Tag {
  std::string item;
  Value value;
  // False when no item name can say this place: a "#" in the URI, or a "%20" in a member's name, which would
  // be taken for a space.
  bool nameable = true;
};

struct ResourceAnswer {
  int status = 0;                      // the sensor's; 1 is success
  std::string error;                   // why there is no success
  std::vector<std::string> resources;  // what the resource lists, if it is a list of resources
  std::vector<Tag> tags;               // in the document's order
};

// response: what CallMethod("Read") delivered for the resource. Never raises for an odd text; it is an answer
// with an error then.
ResourceAnswer TakeApart(const std::string& uri, std::string_view response);

// A JSON text {"id": 1, "uri": uri} for CallMethod.
std::string ReadArguments(const std::string& uri);

}  // namespace zohost
