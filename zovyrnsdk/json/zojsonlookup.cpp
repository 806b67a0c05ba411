#include "zovyrnsdk/json/zojsonlookup.h"

#include <string>

#include "zovyrnsdk/json/zojsonhash.h"
#include "zovyrnsdk/json/zojsonnode.h"
#include "zovyrnsdk/json/zojsonpath.h"

namespace {

// Follows the path as far as it goes; `path` is then done, or at the segment that is missing in the value
// returned.
template <typename Path>
const ZoJson& Follow(const ZoJson& root, Path& path) {
  const ZoJson* value = &root;
  for (; !path.Done(); path.Next()) {
    const ZoJson* child = FindJsonChild(*value, path);
    if (child == nullptr) {
      break;
    }
    value = child;
  }
  return *value;
}

template <typename Path>
[[noreturn]] void RaiseMissing(const ZoJson& last, const Path& path) {
  std::string why = "nothing at \"" + path.Text() + "\": ";
  const std::string name = "\"" + std::string(path.Name()) + "\"";
  if (last.IsObject()) {
    why += "no member " + name;
  } else if (last.IsArray()) {
    why += "no element " + name + " in an array of " + std::to_string(last.Size());
  } else {
    why += "no container where " + name + " is looked for";
  }
  throw ZoJsonError("JSON value: " + why);
}

template <typename Path>
ZoJson Take(const ZoJson& root, Path path) {
  const ZoJson& value = Follow(root, path);
  if (!path.Done()) {
    RaiseMissing(value, path);
  }
  return value;
}

template <typename Path>
bool Exists(const ZoJson& root, Path path) {
  Follow(root, path);
  return path.Done();
}

}  // namespace

std::uint32_t ParseJsonIndex(std::string_view name) noexcept {
  // Nine digits hold every index of an array that can be made but the last few; ten may be beyond 32 bits.
  if (name.empty() || name.size() > 10 || (name.front() == '0' && name.size() > 1)) {
    return noJsonIndex;
  }
  std::uint64_t index = 0;
  for (const char digit : name) {
    if (digit < '0' || digit > '9') {
      return noJsonIndex;
    }
    index = index * 10 + static_cast<std::uint64_t>(digit - '0');
  }
  return index < noJsonIndex ? static_cast<std::uint32_t>(index) : noJsonIndex;
}

ZoJson ZoJson::At(std::string_view key) const {
  return Take(*this, ZoJsonTextPath(key));
}

ZoJson ZoJson::At(const ZoJsonPointer& pointer) const {
  return Take(*this, ZoJsonPointerPath(pointer));
}

const ZoJson* ZoJson::Find(const ZoJsonPointer& pointer) const {
  ZoJsonPointerPath path(pointer);
  const ZoJson& value = Follow(*this, path);
  return path.Done() ? &value : nullptr;
}

std::uint32_t ZoJson::PlaceOf(std::string_view member) const noexcept {
  if (!IsObject() || !HoldsNode()) {
    return noPlace;
  }
  const std::uint32_t slot = ZoJsonAccess::Object(*this).Find(member, ZoJsonHash(member));
  return slot == ObjectNode::none ? noPlace : slot;
}

const ZoJson* ZoJson::FindAt(std::uint32_t place, std::string_view member) const noexcept {
  if (!IsObject() || !HoldsNode()) {
    return nullptr;
  }
  ObjectNode& object = ZoJsonAccess::Object(*this);
  if (place >= object.used) {
    return nullptr;
  }
  // A dead slot's name has a size that no name has.
  const ObjectNode::Member& found = object.Slots()[place];
  return found.keySize == member.size() && object.Key(found) == member ? &found.value : nullptr;
}

std::uint64_t ZoJson::Shape() const noexcept {
  return IsObject() && HoldsNode() ? ZoJsonAccess::Object(*this).shape : 0;
}

const ZoJson* ZoJson::ElementAt(std::uint32_t place) const noexcept {
  if (!IsObject() || !HoldsNode()) {
    return nullptr;
  }
  ObjectNode& object = ZoJsonAccess::Object(*this);
  return place < object.used && object.Slots()[place].keySize != ObjectNode::deadSlot
             ? &object.Slots()[place].value
             : nullptr;
}

bool ZoJson::HasKey(std::string_view key) const {
  return Exists(*this, ZoJsonTextPath(key));
}

bool ZoJson::HasKey(const ZoJsonPointer& pointer) const {
  return Exists(*this, ZoJsonPointerPath(pointer));
}
