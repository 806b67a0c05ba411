// Reads the members of one object of a resource description, and finds the ones that nobody asked for: a
// misspelt name is an error, not a setting that silently does nothing.
//
// One thread; lives as long as the reading takes. Everything wrong raises DescriptionError at the member's
// place.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zosensor/descriptionerror.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonpointer.h"

namespace ZoSensor {

class MemberReader {
 public:
  // what: "a waveform", for the sentence when the value is no object.
  MemberReader(ZoJson object, ZoJsonPointer where, std::string_view what);

  bool Has(std::string_view name);
  // Null when the member is missing.
  ZoJson Any(std::string_view name);
  double Number(std::string_view name, double fallback, double low = -std::numeric_limits<double>::max(),
                double high = std::numeric_limits<double>::max());
  std::uint64_t Unsigned(std::string_view name, std::uint64_t fallback,
                         std::uint64_t high = std::numeric_limits<std::uint64_t>::max());
  bool Flag(std::string_view name, bool fallback);
  std::string Text(std::string_view name, std::string_view fallback);
  std::string RequiredText(std::string_view name);
  // An array of pointers, each of which must lead somewhere in content.
  std::vector<ZoJsonPointer> Pointers(std::string_view name, const ZoJson& content);

  ZoJsonPointer Place(std::string_view name) const;
  const ZoJsonPointer& Where() const { return where; }
  [[noreturn]] void Fail(std::string_view name, const std::string& reason) const;

  // Raises for a member that was never asked for.
  void Finish() const;

 private:
  ZoJson object;
  ZoJsonPointer where;
  std::vector<std::string> known;
};

}  // namespace ZoSensor
