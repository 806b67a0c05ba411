#include "tests/model/unusable.h"

#include <cstddef>

namespace ZoModel {

namespace {

// Longer than what the link looks through at either end, so that it finds the members at the one where they stand.
constexpr std::size_t depth = 5000;

}  // namespace

const char* Name(Unusable how) {
  switch (how) {
    case Unusable::Broken:
      return "is no JSON";
    case Unusable::Deep:
      return "is nested too deep";
    case Unusable::List:
      return "is a list";
  }
  return "?";
}

// The members last: where the fault stands does not depend on them.
std::string UnusableMessage(Unusable how, const std::string& members) {
  switch (how) {
    case Unusable::Broken:
      return R"({"payload":{,},)" + members + "}";
    case Unusable::Deep:
      return R"({"payload":)" + std::string(depth, '[') + std::string(depth, ']') + "," + members + "}";
    case Unusable::List:
      return R"([{"payload":5,)" + members + "}]";
  }
  return "";
}

std::string FaultOf(Unusable how) {
  const std::string what = "the sensor sent a message that is no JSON object ";
  switch (how) {
    case Unusable::Broken:
      return what + "(JSON text, byte 12 (line 1, column 13): unexpected ',')";
    case Unusable::Deep:
      return what + "(JSON text, byte 266 (line 1, column 267): nested deeper than 256 levels)";
    case Unusable::List:
      return what + "(the JSON is another value)";
  }
  return "";
}

}  // namespace ZoModel
