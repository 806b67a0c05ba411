#include "zovyrnsdk/json/zojsonedit.h"

#include <string>
#include <utility>

#include "zovyrnsdk/json/zojsonlookup.h"
#include "zovyrnsdk/json/zojsonpath.h"

namespace {

using Access = ZoJsonAccess;

// A place inside a document on its way from the root to where the edit happens. As long as nobody shares the
// containers on the way it is in the document itself; from the first shared one on it is in copies, which
// replace the original at Commit. So nothing has changed when something raises before.
class Place {
 public:
  explicit Place(ZoJson& root) noexcept : slot(&root) {}

  ZoJson& Value() noexcept { return *slot; }
  void Enter(ZoJson* child) noexcept { slot = child; }

  // Sees to it that the container here belongs to this document alone.
  void Own(std::size_t moreMembers, std::size_t moreKeyBytes) {
    if (!Access::Shared(*slot)) {
      return;
    }
    ZoJson copy = Access::Detached(*slot, moreMembers, moreKeyBytes);
    if (original == nullptr) {
      original = slot;
      detached = std::move(copy);
      slot = &detached;
    } else {
      *slot = std::move(copy);
    }
  }

  void Commit() noexcept {
    if (original != nullptr) {
      *original = std::move(detached);
    }
  }

 private:
  ZoJson* slot;
  ZoJson* original = nullptr;
  ZoJson detached;
};

// cppcheck-suppress constParameter ; its node is written
ZoJson* Append(ZoJson& container, std::string_view name, std::uint64_t hash, ZoJson&& value) noexcept {
  if (container.IsObject()) {
    return Access::Object(container).Append(name, hash, std::move(value));
  }
  auto& array = Access::Array(container);
  auto* element = new (array.Elements() + array.size) ZoJson(std::move(value));
  ++array.size;
  return element;
}

// The value below objects of one member each, one for every segment that is left.
template <typename Path>
ZoJson Wrap(Path& path, ZoJson&& value) {
  ZoJson made;
  ZoJson* slot = &made;
  for (; !path.Done(); path.Next()) {
    const std::string_view name = path.Name();
    *slot = Access::NewObject(1, name.size());
    slot = Append(*slot, name, path.Hash(), ZoJson());
  }
  *slot = std::move(value);
  return made;
}

template <typename Path>
void CheckAppends(const ZoJson& array, const Path& path) {
  if (path.Name() == "-" || ParseJsonIndex(path.Name()) == array.Size()) {
    return;
  }
  throw ZoJsonError("JSON value: cannot set \"" + path.Text() + "\": \"" + std::string(path.Name()) +
                    "\" is no index of an array of " + std::to_string(array.Size()));
}

// Adds a member or element, below which the rest of the path is made.
template <typename Path>
void Extend(Place& place, const Path& path, ZoJson&& value) {
  Path rest(path);
  rest.Next();
  ZoJson below = Wrap(rest, std::move(value));
  const bool toArray = place.Value().IsArray();
  const std::string_view name = toArray ? std::string_view() : path.Name();
  const std::uint64_t hash = toArray ? 0 : path.Hash();
  if (!Access::HasNode(place.Value())) {
    ZoJson grown = toArray ? Access::NewArray(1) : Access::NewObject(1, name.size());
    Append(grown, name, hash, std::move(below));
    place.Value() = std::move(grown);
    return;
  }
  place.Own(1, name.size());
  Access::Reserve(place.Value(), 1, name.size());
  Append(place.Value(), name, hash, std::move(below));
}

template <typename Path>
void Put(ZoJson& root, Path path, ZoJson&& value, bool intoArrays) {
  Place place(root);
  for (; !path.Done(); path.Next()) {
    const ZoJson& here = place.Value();
    if (here.IsPrimitive() || (here.IsArray() && !intoArrays)) {
      break;
    }
    if (FindJsonChild(here, path) == nullptr) {
      if (here.IsArray()) {
        CheckAppends(here, path);
      }
      Extend(place, path, std::move(value));
      place.Commit();
      return;
    }
    place.Own(0, 0);
    place.Enter(FindJsonChild(place.Value(), path));
  }
  ZoJson made = Wrap(path, std::move(value));
  place.Value() = std::move(made);
  place.Commit();
}

template <typename Path>
bool Exists(const ZoJson& root, Path path) {
  const ZoJson* value = &root;
  for (; value != nullptr && !path.Done(); path.Next()) {
    value = FindJsonChild(*value, path);
  }
  return value != nullptr;
}

void RemoveChild(ZoJson& container, std::string_view name, std::uint64_t hash) noexcept {
  if (container.Size() == 1) {
    container = container.IsArray() ? ZoJson::EmptyArray() : ZoJson::EmptyObject();
  } else if (container.IsArray()) {
    Access::Array(container).Remove(ParseJsonIndex(name));
  } else {
    auto& object = Access::Object(container);
    object.Remove(object.Find(name, hash));
  }
}

bool TakeAway(ZoJson& root, const ZoJsonPointer& pointer) {
  ZoJsonPointerPath path(pointer);
  if (!Exists(root, path)) {
    return false;
  }
  if (pointer.Empty()) {
    root = ZoJson();
    return true;
  }
  Place place(root);
  for (std::size_t above = pointer.Segments().size() - 1; above > 0; --above, path.Next()) {
    place.Own(0, 0);
    place.Enter(FindJsonChild(place.Value(), path));
  }
  place.Own(0, 0);
  RemoveChild(place.Value(), path.Name(), path.Hash());
  place.Commit();
  return true;
}

}  // namespace

void SetJsonMember(ZoJson& root, std::string_view path, ZoJson value) {
  Put(root, ZoJsonTextPath(path), std::move(value), false);
}

void ZoJson::Set(std::string_view key, ZoJson value) {
  Put(*this, ZoJsonTextPath(key), std::move(value), true);
}

void ZoJson::Set(const ZoJsonPointer& pointer, ZoJson value) {
  Put(*this, ZoJsonPointerPath(pointer), std::move(value), true);
}

bool ZoJson::Remove(std::string_view key) {
  return TakeAway(*this, ZoJsonPointer(key));
}

bool ZoJson::Remove(const ZoJsonPointer& pointer) {
  return TakeAway(*this, pointer);
}
