#include <cstdint>
#include <string>
#include <vector>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonedit.h"
#include "zovyrnsdk/json/zojsonhash.h"
#include "zovyrnsdk/json/zojsonnode.h"
#include "zovyrnsdk/json/zojsonpath.h"

namespace {

using Access = ZoJsonAccess;

// An object that is being walked: its next slot, and where its own path ends.
struct Level {
  Access::ObjectNode* object;
  std::uint32_t next;
  std::size_t pathSize;
};

bool IsLeaf(const ZoJson& value) noexcept {
  return !value.IsObject() || !Access::HasNode(value);
}

void AddLeaf(ZoJson& flat, std::string_view path, const ZoJson& leaf) {
  if (!Access::HasNode(flat)) {
    flat = Access::NewObject(4, 64 + path.size());
  } else {
    Access::Reserve(flat, 1, path.size());
  }
  Access::Object(flat).Append(path, ZoJsonHash(path), leaf);
}

}  // namespace

ZoJson ZoJson::Flatten() const {
  ZoJson flat = EmptyObject();
  if (IsLeaf(*this)) {
    AddLeaf(flat, "", *this);
    return flat;
  }
  std::string path;
  std::vector<Level> levels{{&Access::Object(*this), 0, 0}};
  while (!levels.empty()) {
    Level& level = levels.back();
    const std::uint32_t slot = level.object->Living(level.next);
    if (slot == level.object->used) {
      levels.pop_back();
      continue;
    }
    level.next = slot + 1;
    path.resize(level.pathSize);
    const auto& member = level.object->Slots()[slot];
    AppendJsonSegment(path, level.object->Key(member));
    if (IsLeaf(member.value)) {
      AddLeaf(flat, path, member.value);
    } else {
      levels.push_back({&Access::Object(member.value), 0, path.size()});
    }
  }
  return flat;
}

ZoJson ZoJson::Unflatten() const {
  if (IsLeaf(*this)) {
    return *this;
  }
  ZoJson made;
  auto& flat = Access::Object(*this);
  for (std::uint32_t slot = flat.Living(0); slot < flat.used; slot = flat.Living(slot + 1)) {
    const auto& member = flat.Slots()[slot];
    SetJsonMember(made, flat.Key(member), member.value);
  }
  return made;
}
