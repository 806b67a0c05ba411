#include "zovyrnsdk/json/zojsonshapes.h"

#include <new>
#include <utility>

#include "zovyrnsdk/json/zojsonnode.h"

const ZoJson* ZoJsonShapes::Find(std::uint64_t hashOfNames) const noexcept {
  const Entry& entry = entries[hashOfNames % entries.size()];
  return entry.hash == hashOfNames && !entry.shape.IsNull() ? &entry.shape : nullptr;
}

void ZoJsonShapes::Note(std::uint64_t hashOfNames, const ZoJson& object) noexcept {
  Entry& entry = Of(hashOfNames);
  if (entry.hash == hashOfNames) {
    try {
      Remember(entry, object);
    } catch (const std::bad_alloc&) {
      // Then the next one is parsed like this one.
    }
    return;
  }
  bytes -= entry.bytes;
  entry = Entry{hashOfNames, ZoJson(), 0};
}

void ZoJsonShapes::Remember(Entry& entry, const ZoJson& object) {
  auto& from = ZoJsonAccess::Object(object);
  const std::size_t size = ZoJsonAccess::ObjectNode::BytesFor(from.size, from.keyLiving);
  if (size > bytesMax) {
    return;
  }
  const std::uint64_t hash = entry.hash;
  bytes -= entry.bytes;
  entry = Entry{hash, ZoJson(), 0};
  if (bytes + size > bytesMax) {
    // Whatever is still of use comes back with its next two documents.
    entries.fill(Entry());
    bytes = 0;
  }
  ZoJson shape = ZoJsonAccess::NewObject(from.size, from.keyLiving);
  ZoJsonAccess::Object(shape).TakeNames(from);
  entry = Entry{hash, std::move(shape), size};
  bytes += size;
}
