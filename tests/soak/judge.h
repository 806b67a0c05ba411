// Whether a value can have come from where it says, and whether an item's values come in order. Nothing here has state
// of the plug-in: it is all in the values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tests/soak/catalogue.h"
#include "xhmi/iohandler.h"

namespace ZoSoak {

// At the moment when the value is judged.
struct Knowledge {
  int sensor = 0;
  int start = 1;             // of the sensor, the last one
  double startSeconds = 0;   // how long ago that was
  double soakSeconds = 0;    // how long all of it has been going on
  std::uint64_t writes = 0;  // how many numbers for writes were given out
};

// What is wrong with the record itself, whatever the item: a sentence, or nothing.
std::string Malformed(const ioDataValue* value);

// Why the sensor cannot have had a well-formed value: a sentence, or nothing.
std::string Implausible(const Item& item, const ioDataValue& value, const Knowledge& known);

// A number that differs for different values, and counts up for counters.
std::uint64_t Fingerprint(const ioDataValue& value);
std::string ValueText(const ioDataValue& value);

// The values of one counter, as they come.
class Order {
 public:
  // Whether the value is no less than the one before. One that is less is where it goes on from.
  bool Accept(std::uint64_t value);
  std::uint64_t Before() const { return before; }

 private:
  std::optional<std::uint64_t> last;
  std::uint64_t before = 0;
};

}  // namespace ZoSoak
