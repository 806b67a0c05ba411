#include "tests/support/hostvalue.h"

#include <cstdio>

namespace ZoTest {
namespace {

ioDataValue ValueOf(enumtype type) {
  ioDataValue value{};
  value.type = static_cast<std::uint32_t>(type);
  return value;
}

}  // namespace

ioDataValue TextValue(const char* text) {
  ioDataValue value = ValueOf(enumtype_string);
  value.value.text = text;
  return value;
}

ioDataValue BooleanValue(std::uint64_t wholeField) {
  ioDataValue value = ValueOf(enumtype_bool);
  value.value.uint64 = wholeField;
  return value;
}

ioDataValue IntegerValue(std::int64_t number) {
  ioDataValue value = ValueOf(enumtype_int64);
  value.value.int64 = number;
  return value;
}

ioDataValue FloatValue(double number) {
  ioDataValue value = ValueOf(enumtype_double);
  value.value.float64 = number;
  return value;
}

ioDataValue UnsignedValue(std::uint64_t number) {
  ioDataValue value = ValueOf(enumtype_uint64);
  value.value.uint64 = number;
  return value;
}

std::string Describe(const Entry& entry) {
  const std::string type = std::to_string(entry.value.type) + ":";
  switch (entry.value.type) {
    case enumtype_bool:
      return type + std::to_string(entry.value.value.boolean);
    case enumtype_int64:
      return type + std::to_string(entry.value.value.int64);
    case enumtype_uint64:
      return type + std::to_string(entry.value.value.uint64);
    case enumtype_double: {
      char digits[40];
      std::snprintf(digits, sizeof digits, "%.17g", entry.value.value.float64);
      return type + digits;
    }
    default:
      return type + entry.valueText;
  }
}

}  // namespace ZoTest
