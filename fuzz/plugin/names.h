// Any bytes as an item name: the registry's record of it is what docs/item-names.md says. For fuzzers, and for
// replaying what they found.
#pragma once

#include <string_view>

namespace ZoFuzz {

// Aborts when a promise is broken.
void CheckName(std::string_view name);

}  // namespace ZoFuzz
