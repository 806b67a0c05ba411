// Random names, texts and documents for the properties.
#pragma once

#include <rapidcheck.h>

#include <ostream>
#include <string>

#include "zovyrnsdk/json/zojson.h"

// Names that are likely to meet again, and the odd ones: empty, numbers, slashes, tildes, long, beyond ASCII.
rc::Gen<std::string> AnyName();
// Valid UTF-8: everything that needs an escape, short and long.
rc::Gen<std::string> AnyText();
rc::Gen<ZoJson> AnyScalar();
// Documents up to a few levels deep.
rc::Gen<ZoJson> AnyDocument();
// A pointer's text, mostly to places that exist in such documents.
rc::Gen<std::string> AnyPath();

template <>
struct rc::Arbitrary<ZoJson> {
  static rc::Gen<ZoJson> arbitrary() { return AnyDocument(); }
};

// For the reports of counter-examples.
inline std::ostream& operator<<(std::ostream& out, const ZoJson& value) {
  return out << value.ToString();
}
