// Finding things in containers. Internal to this folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "zovyrnsdk/json/zojsonnode.h"

// The number that an index in decimal without leading zeros stands for; noJsonIndex for any other text, and
// for numbers that no array reaches.
inline constexpr std::uint32_t noJsonIndex = 0xFFFFFFFF;
std::uint32_t ParseJsonIndex(std::string_view name) noexcept;

// The value at the path's current segment in a container; null pointer when it is not there.
template <typename Path>
ZoJson* FindJsonChild(const ZoJson& container, const Path& path) noexcept {
  if (!ZoJsonAccess::HasNode(container)) {
    return nullptr;
  }
  if (container.IsObject()) {
    auto& object = ZoJsonAccess::Object(container);
    const std::uint32_t slot = object.Find(path.Name(), path.Hash());
    return slot == ZoJsonAccess::ObjectNode::none ? nullptr : &object.Slots()[slot].value;
  }
  if (container.IsArray()) {
    auto& array = ZoJsonAccess::Array(container);
    const std::uint32_t index = ParseJsonIndex(path.Name());
    return index < array.size ? array.Elements() + index : nullptr;
  }
  return nullptr;
}
