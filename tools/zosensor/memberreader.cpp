#include "tools/zosensor/memberreader.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "zovyrnsdk/json/zojsoniterator.h"

namespace ZoSensor {

MemberReader::MemberReader(ZoJson value, ZoJsonPointer place, std::string_view what)
    : object(std::move(value)), where(std::move(place)) {
  if (!object.IsObject()) {
    throw DescriptionError(where, fmt::format("{} must be an object", what));
  }
}

bool MemberReader::Has(std::string_view name) {
  known.emplace_back(name);
  return object.HasKey(ZoJsonPointer::Member(name));
}

ZoJson MemberReader::Any(std::string_view name) {
  return Has(name) ? object.At(ZoJsonPointer::Member(name)) : ZoJson();
}

double MemberReader::Number(std::string_view name, double fallback, double low, double high) {
  if (!Has(name)) {
    return fallback;
  }
  const ZoJson value = object.At(ZoJsonPointer::Member(name));
  if (!value.IsNumber()) {
    Fail(name, fmt::format("\"{}\" must be a number", name));
  }
  const double number = value.Get<double>();
  if (number < low || number > high) {
    Fail(name, high == std::numeric_limits<double>::max()
                   ? fmt::format("\"{}\" must be at least {}", name, low)
                   : fmt::format("\"{}\" must lie between {} and {}", name, low, high));
  }
  return number;
}

std::uint64_t MemberReader::Unsigned(std::string_view name, std::uint64_t fallback, std::uint64_t high) {
  if (!Has(name)) {
    return fallback;
  }
  const ZoJson value = object.At(ZoJsonPointer::Member(name));
  if (!value.IsUnsigned() || value.Get<unsigned long long>() > high) {
    Fail(name, fmt::format("\"{}\" must be a whole number from 0 to {}", name, high));
  }
  return value.Get<unsigned long long>();
}

bool MemberReader::Flag(std::string_view name, bool fallback) {
  if (!Has(name)) {
    return fallback;
  }
  const ZoJson value = object.At(ZoJsonPointer::Member(name));
  if (!value.IsBoolean()) {
    Fail(name, fmt::format("\"{}\" must be true or false", name));
  }
  return value.Get<bool>();
}

std::string MemberReader::Text(std::string_view name, std::string_view fallback) {
  return Has(name) ? RequiredText(name) : std::string(fallback);
}

std::string MemberReader::RequiredText(std::string_view name) {
  if (!Has(name)) {
    throw DescriptionError(where, fmt::format("\"{}\" is missing", name));
  }
  const ZoJson value = object.At(ZoJsonPointer::Member(name));
  if (!value.IsString()) {
    Fail(name, fmt::format("\"{}\" must be a text", name));
  }
  return value.Get<std::string>();
}

std::vector<ZoJsonPointer> MemberReader::Pointers(std::string_view name, const ZoJson& content) {
  std::vector<ZoJsonPointer> pointers;
  const ZoJson list = Any(name);
  if (!list.IsNull() && !list.IsArray()) {
    Fail(name, fmt::format("\"{}\" must be an array of pointers, such as [\"/value\"]", name));
  }
  std::size_t index = 0;
  for (ZoJsonIterator it(list); it.Valid(); it.Next(), ++index) {
    const ZoJsonPointer place =
        ZoJsonPointer::Combine(Place(name), ZoJsonPointer::Member(std::to_string(index)));
    if (!it.Value().IsString()) {
      throw DescriptionError(place, "a pointer must be a text");
    }
    ZoJsonPointer pointer(it.Value().Get<std::string>());
    if (!content.HasKey(pointer)) {
      throw DescriptionError(place, fmt::format("the content has nothing at \"{}\"", pointer.ToString()));
    }
    pointers.push_back(std::move(pointer));
  }
  return pointers;
}

ZoJsonPointer MemberReader::Place(std::string_view name) const {
  return ZoJsonPointer::Combine(where, ZoJsonPointer::Member(name));
}

void MemberReader::Fail(std::string_view name, const std::string& reason) const {
  throw DescriptionError(Place(name), reason);
}

void MemberReader::Finish() const {
  for (ZoJsonIterator it(object); it.Valid(); it.Next()) {
    if (std::find(known.begin(), known.end(), it.Key()) == known.end()) {
      throw DescriptionError(Place(it.Key()), fmt::format("unknown member \"{}\"", it.Key()));
    }
  }
}

}  // namespace ZoSensor
