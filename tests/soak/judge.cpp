#include "tests/soak/judge.h"

#include <fmt/format.h>

#include <bit>
#include <cctype>
#include <cstring>
#include <functional>
#include <string_view>

namespace ZoSoak {
namespace {

constexpr std::int64_t kSimulatedMost = 100;

std::string WrongType(const ioDataValue& value, const char* wanted) {
  return fmt::format("it has type {} and should be {}", value.type, wanted);
}

std::string JudgeCounter(const Item& item, std::int64_t value, const Knowledge& known) {
  const std::int64_t perStart = CounterValue(0, 1, 0) - CounterValue(0, 0, 0);
  const std::int64_t inSensor = value - CounterValue(known.sensor, 0, 0);
  const std::int64_t start = inSensor / perStart;
  if (inSensor < 0 || start < 1 || start > known.start) {
    return fmt::format("it is of no start of sensor {}, which was started {} times", known.sensor,
                       known.start);
  }
  const double seconds = start == known.start ? known.startSeconds : known.soakSeconds;
  // Two seconds more than it can have counted: a sensor's clock is not ours.
  const auto most = static_cast<std::int64_t>((seconds + 2) * item.rate) + 1;
  const std::int64_t sample = inSensor % perStart;
  return sample <= most ? ""
                        : fmt::format("it is sample {} of a sensor that has made {} at most", sample, most);
}

std::string JudgeWritten(const Item& item, std::int64_t value, const Knowledge& known) {
  const int number = item.kind == ItemKind::Made ? kMostThreads + item.number : item.number;
  const std::int64_t write = value - WrittenValue(known.sensor, number, 0);
  const bool untouched = value == 0 && item.kind == ItemKind::Set;
  return untouched || (write >= 1 && static_cast<std::uint64_t>(write) <= known.writes)
             ? ""
             : "nobody wrote it there";
}

std::string JudgeText(std::string_view text, const Knowledge& known) {
  for (int start = known.start; start >= 1; --start) {
    for (int i = 0; i < kTexts; ++i) {
      if (text == TextValue(known.sensor, start, i)) {
        return "";
      }
    }
  }
  return "the sensor has no such text";
}

bool IsSimulatedText(std::string_view text) {
  constexpr std::string_view plain = "hello world";
  std::string lower(text);
  for (char& c : lower) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return lower == plain;
}

std::string JudgeInteger(const Item& item, const ioDataValue& value, const Knowledge& known) {
  if (value.type != enumtype_int64) {
    return WrongType(value, "a signed integer");
  }
  const std::int64_t number = value.value.int64;
  if (item.kind == ItemKind::Counter) {
    return JudgeCounter(item, number, known);
  }
  if (item.kind == ItemKind::SimulatedInteger) {
    return number >= 0 && number <= kSimulatedMost ? "" : "the simulator counts from 0 to 100";
  }
  return JudgeWritten(item, number, known);
}

std::string JudgeFloat(const Item& item, const ioDataValue& value) {
  // A ramp that is at its very end or beginning is written without a fraction.
  const bool whole = value.type == enumtype_int64;
  if (value.type != enumtype_double && !whole) {
    return WrongType(value, "a float");
  }
  const double number = whole ? static_cast<double>(value.value.int64) : value.value.float64;
  return item.kind == ItemKind::SimulatedFloat || (number >= 0 && number <= 1) ? ""
                                                                               : "the ramp is from 0 to 1";
}

}  // namespace

std::string Malformed(const ioDataValue* value) {
  if (value == nullptr) {
    return "there is no value";
  }
  if (value->type > enumtype_invalid || value->status != 0 || value->reserved != 0) {
    return fmt::format("type {}, status {}, reserved {}", value->type, value->status, value->reserved);
  }
  const bool hasText = value->type == enumtype_string || value->type == enumtype_invalid;
  if (hasText && value->value.text == nullptr) {
    return "a text without a text";
  }
  if (value->type == enumtype_invalid && std::strcmp(value->value.text, "INVALID") != 0) {
    return "an invalid value that does not say INVALID";
  }
  if (value->type == enumtype_bool && value->value.boolean > 1) {
    return "a boolean that is neither 0 nor 1";
  }
  return "";
}

std::string Implausible(const Item& item, const ioDataValue& value, const Knowledge& known) {
  if (value.type == enumtype_invalid) {
    return "";  // its sensor may be without it at any time
  }
  switch (item.kind) {
    case ItemKind::Counter:
    case ItemKind::Set:
    case ItemKind::Made:
    case ItemKind::SimulatedInteger:
      return JudgeInteger(item, value, known);
    case ItemKind::BigCounter:
      return value.type != enumtype_uint64 || value.value.uint64 < kBigBase
                 ? WrongType(value, "an integer beyond 2^63")
                 : JudgeCounter(item, static_cast<std::int64_t>(value.value.uint64 - kBigBase), known);
    case ItemKind::Ramp:
    case ItemKind::SimulatedFloat:
      return JudgeFloat(item, value);
    case ItemKind::Text:
      return value.type != enumtype_string ? WrongType(value, "a text") : JudgeText(value.value.text, known);
    case ItemKind::SimulatedText:
      return value.type != enumtype_string       ? WrongType(value, "a text")
             : IsSimulatedText(value.value.text) ? ""
                                                 : "the simulator has no such text";
    case ItemKind::Flag:
    case ItemKind::SimulatedFlag:
      return value.type != enumtype_bool ? WrongType(value, "a boolean") : "";
    case ItemKind::Odd:
      return "the sensor has nothing there";
  }
  return "";
}

std::uint64_t Fingerprint(const ioDataValue& value) {
  switch (value.type) {
    case enumtype_string:
    case enumtype_invalid:
      return std::hash<std::string_view>()(value.value.text);
    case enumtype_bool:
      return value.value.boolean;
    case enumtype_double:
      return std::bit_cast<std::uint64_t>(value.value.float64);
    default:
      return value.value.uint64;
  }
}

std::string ValueText(const ioDataValue& value) {
  switch (value.type) {
    case enumtype_string:
    case enumtype_invalid:
      return fmt::format("\"{}\"", value.value.text);
    case enumtype_bool:
      return value.value.boolean != 0 ? "true" : "false";
    case enumtype_int64:
      return fmt::format("{}", value.value.int64);
    case enumtype_double:
      return fmt::format("{}", value.value.float64);
    default:
      return fmt::format("{}", value.value.uint64);
  }
}

bool Order::Accept(std::uint64_t value) {
  before = last.value_or(value);
  last = value;
  return value >= before;
}

}  // namespace ZoSoak
