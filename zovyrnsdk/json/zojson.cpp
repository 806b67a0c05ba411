#include "zovyrnsdk/json/zojson.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "zovyrnsdk/json/zojsonnode.h"
#include "zovyrnsdk/json/zojsonparser.h"

static_assert(sizeof(ZoJson) == 16, "every payload is made of these");

namespace {

std::string_view TextOrRaise(const char* text) {
  if (text == nullptr) {
    throw ZoJsonError("JSON text: a null pointer");
  }
  return text;
}

const char* Describe(const ZoJson& value) noexcept {
  switch (value.GetKind()) {
    case ZoJson::Kind::Null:
      return "null";
    case ZoJson::Kind::Boolean:
      return "a boolean";
    case ZoJson::Kind::String:
      return "a string";
    case ZoJson::Kind::Array:
      return "an array";
    case ZoJson::Kind::Object:
      return "an object";
    default:
      return "a number";
  }
}

[[noreturn]] void RaiseKind(const ZoJson& value, const char* wanted) {
  throw ZoJsonError(std::string("JSON value: ") + Describe(value) + " does not read as " + wanted);
}

template <typename T>
T FromWhole(std::int64_t value) noexcept {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(value);
  } else {
    using Limits = std::numeric_limits<T>;
    if (std::cmp_less(value, Limits::min())) {
      return Limits::min();
    }
    return std::cmp_greater(value, Limits::max()) ? Limits::max() : static_cast<T>(value);
  }
}

template <typename T>
T FromNatural(std::uint64_t value) noexcept {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(value);
  } else {
    using Limits = std::numeric_limits<T>;
    return std::cmp_greater(value, Limits::max()) ? Limits::max() : static_cast<T>(value);
  }
}

template <typename T>
T FromReal(double value) noexcept {
  using Limits = std::numeric_limits<T>;
  if constexpr (std::is_same_v<T, double>) {
    return value;
  } else if constexpr (std::is_floating_point_v<T>) {
    if (std::isfinite(value) && std::abs(value) > static_cast<double>(Limits::max())) {
      return value < 0 ? Limits::lowest() : Limits::max();
    }
    return static_cast<T>(value);
  } else {
    if (std::isnan(value)) {
      return 0;
    }
    // The first number beyond the kind is a power of two, so a double holds it exactly; the greatest one of a
    // 64-bit kind is not.
    const double beyond = std::ldexp(1.0, Limits::digits);
    if (value >= beyond) {
      return Limits::max();
    }
    if (value < static_cast<double>(Limits::min())) {
      return Limits::min();
    }
    return static_cast<T>(value);
  }
}

}  // namespace

ZoJson::ZoJson(const std::string& text) : ZoJson(ParseString(text)) {}

ZoJson::ZoJson(const char* text) : ZoJson(ParseString(TextOrRaise(text))) {}

ZoJson ZoJson::ParseString(std::string_view text) {
  return ParseJson(text);
}

ZoJson ZoJson::ParseString(std::string_view text, std::size_t& memory) {
  return ParseJson(text, memory, nullptr);
}

ZoJson ZoJson::ParseString(std::string_view text, std::size_t& memory, ZoJsonShapes& shapes) {
  return ParseJson(text, memory, &shapes);
}

ZoJson ZoJson::EmptyArray() {
  ZoJson value;
  value.wide.kind = Kind::Array;
  return value;
}

ZoJson ZoJson::EmptyObject() {
  ZoJson value;
  value.wide.kind = Kind::Object;
  return value;
}

ZoJson ZoJson::FromBoolean(bool boolean) noexcept {
  ZoJson value;
  value.wide.kind = Kind::Boolean;
  value.wide.boolean = boolean;
  return value;
}

ZoJson ZoJson::FromInteger(std::int64_t integer) noexcept {
  ZoJson value;
  value.wide.kind = Kind::Integer;
  value.wide.integer = integer;
  return value;
}

ZoJson ZoJson::FromUnsigned(std::uint64_t natural) noexcept {
  if (std::in_range<std::int64_t>(natural)) {
    return FromInteger(static_cast<std::int64_t>(natural));
  }
  ZoJson value;
  value.wide.kind = Kind::Unsigned;
  value.wide.natural = natural;
  return value;
}

ZoJson ZoJson::FromFloat(double number) noexcept {
  ZoJson value;
  value.wide.kind = Kind::Float;
  value.wide.number = number;
  return value;
}

ZoJson ZoJson::FromText(std::string_view text) {
  if (text.size() > shortTextMax) {
    return ZoJsonAccess::Adopt(StringNode::Make(text));
  }
  ZoJson value;
  value.brief = Brief{Kind::String, static_cast<std::uint8_t>(text.size()), {}};
  if (!text.empty()) {
    std::memcpy(value.brief.text, text.data(), text.size());
  }
  return value;
}

bool ZoJson::IsUnsigned() const noexcept {
  return GetKind() == Kind::Unsigned || (GetKind() == Kind::Integer && wide.integer >= 0);
}

template <typename T>
T ZoJson::Get() const {
  if constexpr (std::is_same_v<T, std::string>) {
    if (!IsString()) {
      RaiseKind(*this, "a text");
    }
    return std::string(ZoJsonAccess::Text(*this));
  } else if constexpr (std::is_same_v<T, bool>) {
    // A fraction below one is not 0, so a float is asked itself; NaN is no value at all.
    return IsFloat() ? wide.number != 0 && !std::isnan(wide.number) : Get<long long>() != 0;
  } else {
    switch (GetKind()) {
      case Kind::Boolean:
        return static_cast<T>(wide.boolean ? 1 : 0);
      case Kind::Integer:
        return FromWhole<T>(wide.integer);
      case Kind::Unsigned:
        return FromNatural<T>(wide.natural);
      case Kind::Float:
        return FromReal<T>(wide.number);
      default:
        RaiseKind(*this, "a number");
    }
  }
}

template int ZoJson::Get<int>() const;
template long ZoJson::Get<long>() const;
template long long ZoJson::Get<long long>() const;
template unsigned ZoJson::Get<unsigned>() const;
template unsigned long ZoJson::Get<unsigned long>() const;
template unsigned long long ZoJson::Get<unsigned long long>() const;
template float ZoJson::Get<float>() const;
template double ZoJson::Get<double>() const;
template bool ZoJson::Get<bool>() const;
template std::string ZoJson::Get<std::string>() const;
