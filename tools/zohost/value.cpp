#include "tools/zohost/value.h"

#include <fmt/format.h>

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

#include "tools/zohost/text.h"
#include "tools/zohost/usageerror.h"

namespace zohost {
namespace {

constexpr std::array<std::string_view, 6> kindNames = {"string", "bool", "int", "double", "uint", "invalid"};

template <class... Ts>
struct Overloaded : Ts... {
  using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

bool IsDigits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool IsInteger(std::string_view text) {
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    text.remove_prefix(1);
  }
  return IsDigits(text);
}

// from_chars knows no plus sign; a second sign behind it stays an error.
std::string_view WithoutPlus(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+') {
    text.remove_prefix(1);
  }
  return text;
}

template <typename Number>
std::errc ParseWhole(std::string_view text, Number& number) {
  text = WithoutPlus(text);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) {
    return error;
  }
  return end == text.data() + text.size() ? std::errc() : std::errc::invalid_argument;
}

[[noreturn]] void DoesNotFit(std::string_view text, std::string_view why) {
  throw UsageError(fmt::format("\"{}\" {}", Printable(text), why));
}

Value ParseBoolean(std::string_view text) {
  if (text == "true" || text == "1") {
    return Value(true);
  }
  if (text == "false" || text == "0") {
    return Value(false);
  }
  DoesNotFit(text, "is no boolean: say true or false.");
}

template <typename Number>
Value ParseInteger(std::string_view text, std::string_view what) {
  Number number = 0;
  if (!IsInteger(text)) {
    DoesNotFit(text, "is no integer.");
  }
  if (ParseWhole(text, number) != std::errc()) {
    DoesNotFit(text, fmt::format("does not fit {}: the range is {} to {}.", what,
                                 std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max()));
  }
  return Value(number);
}

Value ParseDouble(std::string_view text) {
  double number = 0;
  const std::errc error = ParseWhole(text, number);
  if (error == std::errc::result_out_of_range) {
    DoesNotFit(text, "is out of a double's range.");
  }
  if (error != std::errc()) {
    DoesNotFit(text, "is no number.");
  }
  if (!std::isfinite(number)) {
    DoesNotFit(text, "cannot be sent: JSON has finite numbers only.");
  }
  return Value(number);
}

// A number with a fraction or an exponent. "inf", "nan" and hexadecimal digits are words here.
bool LooksLikeDouble(std::string_view text) {
  if (text.find_first_of("0123456789") == std::string_view::npos ||
      text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) {
    return false;
  }
  double number = 0;
  return ParseWhole(text, number) != std::errc::invalid_argument;
}

Value Guess(std::string_view text) {
  if (text == "true" || text == "false") {
    return Value(text == "true");
  }
  if (IsInteger(text)) {
    std::int64_t number = 0;
    if (ParseWhole(text, number) == std::errc()) {
      return Value(number);
    }
    std::uint64_t large = 0;
    if (ParseWhole(text, large) == std::errc()) {
      return Value(large);
    }
    DoesNotFit(text, "does not fit an integer of 64 bits: send it with --type double or --type string.");
  }
  return LooksLikeDouble(text) ? ParseDouble(text) : Value(std::string(text));
}

std::string WithPoint(std::string digits) {
  if (digits.find_first_not_of("-0123456789") == std::string::npos) {
    digits += ".0";
  }
  return digits;
}

std::string DoubleForPeople(double number) {
  if (std::isnan(number)) {
    return "NaN";
  }
  if (std::isinf(number)) {
    return number > 0 ? "Infinity" : "-Infinity";
  }
  if (std::abs(number) <= static_cast<double>(std::numeric_limits<float>::max())) {
    const float narrow = static_cast<float>(number);
    if (static_cast<double>(narrow) == number) {
      return WithPoint(fmt::format("{}", narrow));
    }
  }
  return WithPoint(fmt::format("{}", number));
}

std::string DoubleExact(double number) {
  return std::isfinite(number) ? WithPoint(fmt::format("{}", number)) : DoubleForPeople(number);
}

}  // namespace

Value Value::FromRecord(const ioDataValue& record) {
  switch (record.type) {
    case enumtype_string:
      return Value(std::string(record.value.text == nullptr ? "" : record.value.text));
    case enumtype_bool:
      return Value(record.value.boolean != 0);
    case enumtype_int64:
      return Value(record.value.int64);
    case enumtype_double:
      return Value(record.value.float64);
    case enumtype_uint64:
      return Value(record.value.uint64);
    default:
      return Value();
  }
}

Value Value::Parse(std::string_view text, std::optional<enumtype> kind) {
  if (!kind) {
    return Guess(text);
  }
  switch (*kind) {
    case enumtype_string:
      return Value(std::string(text));
    case enumtype_bool:
      return ParseBoolean(text);
    case enumtype_int64:
      return ParseInteger<std::int64_t>(text, "a signed integer");
    case enumtype_double:
      return ParseDouble(text);
    case enumtype_uint64:
      return ParseInteger<std::uint64_t>(text, "an unsigned integer");
    default:
      DoesNotFit(text, "cannot be written as invalid.");
  }
}

ioDataValue Value::ToRecord() const {
  ioDataValue record = {};
  record.type = Kind();
  record.value.uint64 = 0;  // the whole field counts for a boolean
  std::visit(Overloaded{[&](std::monostate) { record.value.text = "INVALID"; },
                        [&](const std::string& text) { record.value.text = text.c_str(); },
                        [&](bool boolean) { record.value.boolean = boolean ? 1 : 0; },
                        [&](std::int64_t number) { record.value.int64 = number; },
                        [&](std::uint64_t number) { record.value.uint64 = number; },
                        [&](double number) { record.value.float64 = number; }},
             payload_);
  return record;
}

enumtype Value::Kind() const {
  return std::visit(
      Overloaded{[](std::monostate) { return enumtype_invalid; },
                 [](const std::string&) { return enumtype_string; }, [](bool) { return enumtype_bool; },
                 [](std::int64_t) { return enumtype_int64; }, [](std::uint64_t) { return enumtype_uint64; },
                 [](double) { return enumtype_double; }},
      payload_);
}

bool Value::SameAs(const Value& other) const {
  const double* mine = std::get_if<double>(&payload_);
  const double* theirs = std::get_if<double>(&other.payload_);
  if (mine != nullptr && theirs != nullptr) {
    return std::bit_cast<std::uint64_t>(*mine) == std::bit_cast<std::uint64_t>(*theirs);
  }
  return payload_ == other.payload_;
}

std::optional<double> Value::AsNumber() const {
  using Number = std::optional<double>;
  return std::visit(
      Overloaded{[](std::monostate) { return Number(); }, [](const std::string&) { return Number(); },
                 [](bool boolean) { return Number(boolean ? 1.0 : 0.0); },
                 [](std::int64_t number) { return Number(static_cast<double>(number)); },
                 [](std::uint64_t number) { return Number(static_cast<double>(number)); },
                 [](double number) { return Number(number); }},
      payload_);
}

std::string Value::ForPeople(std::size_t bytes) const {
  if (const auto* text = std::get_if<std::string>(&payload_)) {
    return Printable(std::string_view(*text).substr(0, bytes));
  }
  if (const auto* number = std::get_if<double>(&payload_)) {
    return DoubleForPeople(*number);
  }
  return Exact();
}

std::string Value::Exact() const {
  return std::visit(Overloaded{[](std::monostate) { return std::string("INVALID"); },
                               [](const std::string& text) { return ValidUtf8(text); },
                               [](bool boolean) { return std::string(boolean ? "true" : "false"); },
                               [](std::int64_t number) { return fmt::format("{}", number); },
                               [](std::uint64_t number) { return fmt::format("{}", number); },
                               [](double number) { return DoubleExact(number); }},
                    payload_);
}

std::string Value::Json() const {
  if (Kind() == enumtype_invalid) {
    return "null";
  }
  const auto* number = std::get_if<double>(&payload_);
  const bool quoted = Kind() == enumtype_string || (number != nullptr && !std::isfinite(*number));
  return quoted ? JsonString(Exact()) : Exact();
}

std::size_t Value::Footprint() const {
  const auto* text = std::get_if<std::string>(&payload_);
  return sizeof(Value) + (text == nullptr ? 0 : text->capacity());
}

std::string_view KindName(enumtype kind) {
  const auto index = static_cast<std::size_t>(kind);
  // cppcheck-suppress returnDanglingLifetime ; both views are of literals
  return index < kindNames.size() ? kindNames[index] : "invalid";
}

std::optional<enumtype> KindFromName(std::string_view name) {
  for (std::size_t index = 0; index < kindNames.size(); ++index) {
    if (kindNames[index] == name) {
      return static_cast<enumtype>(index);
    }
  }
  return std::nullopt;
}

}  // namespace zohost
