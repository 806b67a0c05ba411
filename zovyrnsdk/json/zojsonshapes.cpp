#include "zovyrnsdk/json/zojsonshapes.h"

#include <algorithm>
#include <new>
#include <utility>

#include "zovyrnsdk/json/zojsonnode.h"

const ZoJson* ZoJsonShapes::Find(std::uint64_t hashOfNames) noexcept {
  for (Entry& entry : SetOf(hashOfNames)) {
    if (entry.hash == hashOfNames && !entry.shape.IsNull()) {
      entry.lastUse = ++uses;
      return &entry.shape;
    }
  }
  return nullptr;
}

void ZoJsonShapes::Note(std::uint64_t hashOfNames, const ZoJson& object) noexcept {
  Set& set = SetOf(hashOfNames);
  for (Entry& entry : set) {
    if (entry.hash == hashOfNames) {
      try {
        Remember(entry, object);
      } catch (const std::bad_alloc&) {
        // Then the next one is parsed like this one.
      }
      return;
    }
  }
  Entry& oldest = *std::min_element(set.begin(), set.end(),
                                    [](const Entry& a, const Entry& b) { return a.lastUse < b.lastUse; });
  bytes -= oldest.bytes;
  oldest = Entry{hashOfNames, ZoJson(), 0, ++uses};
}

void ZoJsonShapes::Remember(Entry& entry, const ZoJson& object) {
  auto& from = ZoJsonAccess::Object(object);
  const std::size_t size = ZoJsonAccess::ObjectNode::BytesFor(from.size, from.keyLiving);
  if (size > bytesMax) {
    return;
  }
  const std::uint64_t hash = entry.hash;
  bytes -= entry.bytes;
  entry = Entry{hash, ZoJson(), 0, ++uses};
  if (bytes + size > bytesMax) {
    // Whatever is still of use comes back with its next two documents.
    sets.fill(Set());
    bytes = 0;
  }
  ZoJson shape = ZoJsonAccess::NewObject(from.size, from.keyLiving);
  ZoJsonAccess::Object(shape).TakeNames(from);
  entry = Entry{hash, std::move(shape), size, uses};
  bytes += size;
}
