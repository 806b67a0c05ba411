// What the model knows of an item: what its name means, and its last value.
//
// Plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tests/model/document.h"

namespace ZoModel {

// The types of values, as hosts number them.
enum Type : unsigned { Text = 0, Boolean = 1, Signed = 2, Float = 3, Unsigned = 4, Invalid = 5 };

// A host's variant: a kind, a payload of 64 bits, and a text beside it.
struct Variant {
  unsigned kind = Invalid;
  std::uint64_t bits = 0;
  std::string text;

  friend bool operator==(const Variant&, const Variant&) = default;
};

struct Item {
  explicit Item(const std::string& name);

  // Takes the value from a resource's document; type 5 without one.
  void Refresh(const Document* document);
  // "type:value", as a host sees it.
  std::string Value() const;
  // Whether the document holds a value for the item.
  bool IsIn(const Document& document) const;

  std::string name;
  std::string uri;
  std::string pattern;  // to subscribe when the resource is not streamed
  Path pointer;         // where the value is read
  Path body;            // where it is put in what a write sends
  bool valid = true;
  bool subscribed = false;
  Variant value{Signed, 0, ""};
  unsigned type = Invalid;
};

}  // namespace ZoModel
