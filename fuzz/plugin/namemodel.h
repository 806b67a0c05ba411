// What an item name means, derived a second time and letter by letter from docs/item-names.md. It shares no code with
// the registry, so that the two can be held against each other.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zovyrnsdk/json/zojson.h"

namespace ZoFuzz {

struct NameModel {
  explicit NameModel(std::string_view name);

  // The document that a write of this item sends.
  ZoJson Body(const ZoJson& value) const;

  std::string uri;
  std::string subscriptionUri;
  std::optional<std::vector<std::string>> endpoint;  // the members on the way to the leaf; none without a "#"
  std::vector<std::string> place;                    // the same of the pointer
};

}  // namespace ZoFuzz
