#include "zovyrnsdk/json/zojsonnode.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <new>
#include <utility>

#include "qapi/memory.h"
#include "zovyrnsdk/json/zojsonhash.h"

namespace {

// Slot numbers, sizes and offsets are 32 bits wide; the index needs twice the slots.
constexpr std::size_t slotsMax = std::size_t{1} << 30U;
constexpr std::size_t bytesMax = 0xFFFFFFF0;
constexpr std::size_t hugeText = std::size_t{1} << 20;

void Limit(std::size_t size, std::size_t limit, const char* what) {
  if (size > limit) {
    throw ZoJsonError(std::string("JSON: ") + what + " too large");
  }
}

// What to ask for so that adding one at a time costs amortised O(1).
std::size_t Roomy(std::size_t needed, std::size_t least, std::size_t limit, const char* what) {
  Limit(needed, limit, what);
  return std::min(std::max(needed + needed / 2, least), limit);
}

}  // namespace

ZoJson::StringNode* ZoJson::StringNode::Make(std::string_view text) {
  Limit(text.size(), bytesMax, "a text is");
  void* memory = ::operator new(sizeof(StringNode) + text.size());
  auto* node = new (memory) StringNode(static_cast<std::uint32_t>(text.size()));
  std::memcpy(node->Text(), text.data(), text.size());
  return node;
}

ZoJson::ArrayNode* ZoJson::ArrayNode::Make(std::size_t capacity) {
  Limit(capacity, slotsMax, "an array is");
  void* memory = ::operator new(BytesFor(capacity));
  return new (memory) ArrayNode(static_cast<std::uint32_t>(capacity));
}

void ZoJson::ArrayNode::SlideToFront() noexcept {
  ZoJson* from = Elements();
  first = 0;
  ZoJsonAccess::Relocate(Elements(), from, size);
}

void ZoJson::ArrayNode::Remove(std::uint32_t index) noexcept {
  ZoJson* elements = Elements();
  const ZoJson dropped(std::move(elements[index]));
  if (index < size / 2) {
    ZoJsonAccess::Relocate(elements + 1, elements, index);
    ++first;
  } else {
    ZoJsonAccess::Relocate(elements + index, elements + index + 1, size - index - 1);
  }
  --size;
}

ZoJson::ObjectNode::ObjectNode(std::uint32_t capacity, std::uint32_t keyCapacity, std::uint32_t indexMask,
                               bool indexed) noexcept
    : Node(Kind::Object, 0),
      capacity(capacity),
      keyCapacity(keyCapacity),
      indexMask(indexMask),
      indexed(indexed) {}

ZoJson::ObjectNode* ZoJson::ObjectNode::Make(std::size_t capacity, std::size_t keyCapacity) {
  Limit(capacity, slotsMax, "an object is");
  Limit(keyCapacity, bytesMax, "the names of an object are");
  const std::size_t entries = IndexEntries(capacity);
  const bool indexed = entries != 0;
  void* memory = ::operator new(BytesFor(capacity, keyCapacity));
  auto* node =
      new (memory) ObjectNode(static_cast<std::uint32_t>(capacity), static_cast<std::uint32_t>(keyCapacity),
                              static_cast<std::uint32_t>(entries - (indexed ? 1U : 0U)), indexed);
  if (indexed) {
    std::memset(node->Index(), 0xFF, entries * sizeof(std::uint32_t));
  }
  return node;
}

std::uint32_t ZoJson::ObjectNode::Living(std::uint32_t slot) noexcept {
  const Member* slots = Slots();
  while (slot < used && slots[slot].keySize == deadSlot) {
    ++slot;
  }
  return slot;
}

std::uint32_t ZoJson::ObjectNode::Find(std::string_view name, std::uint64_t hash) noexcept {
  if (indexed) {
    return *Entry(name, hash);
  }
  for (std::uint32_t slot = 0; slot < used; ++slot) {
    if (Matches(Slots()[slot], name, hash)) {
      return slot;
    }
  }
  return none;
}

bool ZoJson::ObjectNode::Matches(const Member& member, std::string_view name, std::uint64_t hash) noexcept {
  return member.hash == hash && member.keySize == name.size() &&
         std::memcmp(Keys() + member.keyOffset, name.data(), name.size()) == 0;
}

std::uint32_t* ZoJson::ObjectNode::Entry(std::string_view name, std::uint64_t hash) noexcept {
  std::uint32_t* index = Index();
  auto at = static_cast<std::uint32_t>(hash) & indexMask;
  while (index[at] != none && !Matches(Slots()[index[at]], name, hash)) {
    at = (at + 1) & indexMask;
  }
  return index + at;
}

void ZoJson::ObjectNode::Enter(std::uint32_t slot) noexcept {
  std::uint32_t* index = Index();
  auto at = static_cast<std::uint32_t>(Slots()[slot].hash) & indexMask;
  while (index[at] != none) {
    at = (at + 1) & indexMask;
  }
  index[at] = slot;
}

ZoJson* ZoJson::ObjectNode::Append(std::string_view name, std::uint64_t hash, ZoJson value) noexcept {
  const auto keySize = static_cast<std::uint32_t>(name.size());
  std::memcpy(Keys() + keyUsed, name.data(), name.size());
  // cppcheck-suppress unreadVariable ; its address is given back
  auto* member = new (Slots() + used) Member{std::move(value), hash, keyUsed, keySize};
  keyUsed += keySize;
  keyLiving += keySize;
  ++size;
  ++used;
  shape = 0;
  if (indexed) {
    Enter(used - 1);
  }
  return &member->value;
}

void ZoJson::ObjectNode::AdoptAll(const std::uint32_t* keySizes, ZoJson* values, std::size_t count) noexcept {
  Member* const slots = Slots();
  const char* const keys = Keys();
  std::array<std::uint64_t, 4> seen{};  // without an index: a bit for each of 256 kinds of hashes
  std::uint32_t offset = 0;
  for (std::size_t i = 0; i < count; offset += keySizes[i++]) {
    const std::string_view name(keys + offset, keySizes[i]);
    const std::uint64_t hash = ZoJsonHash(name);
    std::uint32_t there = none;
    if (indexed) {
      std::uint32_t* const entry = Entry(name, hash);
      there = *entry;
      if (there == none) {
        *entry = used;
      }
    } else {
      std::uint64_t& word = seen[hash >> 62U];
      const std::uint64_t bit = std::uint64_t{1} << ((hash >> 56U) & 63U);
      there = (word & bit) != 0 ? Find(name, hash) : none;
      word |= bit;
    }
    if (there != none) {
      slots[there].value = std::move(values[i]);
      continue;
    }
    new (slots + used) Member{std::move(values[i]), hash, offset, keySizes[i]};
    keyUsed = offset + keySizes[i];
    keyLiving += keySizes[i];
    ++used;
  }
  size = used;
}

void ZoJson::ObjectNode::TakeNames(ObjectNode& from) noexcept {
  for (std::uint32_t slot = from.Living(0); slot < from.used; slot = from.Living(slot + 1)) {
    Append(from.Key(from.Slots()[slot]), from.Slots()[slot].hash, ZoJson());
  }
  static std::atomic<std::uint64_t> shapes{0};
  shape = ++shapes;
}

bool ZoJson::ObjectNode::HasNames(std::string_view names, const std::uint32_t* sizes,
                                  std::size_t count) noexcept {
  if (used != count || std::string_view(Keys(), keyUsed) != names) {
    return false;
  }
  const Member* slots = Slots();
  for (std::size_t i = 0; i < count; ++i) {
    if (slots[i].keySize != sizes[i]) {
      return false;
    }
  }
  return true;
}

ZoJson::ObjectNode* ZoJson::ObjectNode::MakeLike(ObjectNode& like, ZoJson* values) {
  void* memory = ::operator new(BytesFor(like.capacity, like.keyCapacity));
  auto* node = new (memory) ObjectNode(like.capacity, like.keyCapacity, like.indexMask, like.indexed);
  const Member* from = like.Slots();
  for (std::uint32_t slot = 0; slot < like.used; ++slot) {
    new (node->Slots() + slot)
        Member{std::move(values[slot]), from[slot].hash, from[slot].keyOffset, from[slot].keySize};
  }
  if (node->indexed) {
    std::memcpy(node->Index(), like.Index(), like.IndexSize() * sizeof(std::uint32_t));
  }
  std::memcpy(node->Keys(), like.Keys(), like.keyUsed);
  node->size = node->used = like.used;
  node->keyUsed = node->keyLiving = like.keyUsed;
  node->shape = like.shape;
  return node;
}

void ZoJson::ObjectNode::Remove(std::uint32_t slot) noexcept {
  Member& member = Slots()[slot];
  const ZoJson dropped(std::move(member.value));
  keyLiving -= member.keySize;
  member.keySize = deadSlot;
  --size;
  shape = 0;
  if (used > 2 * size) {
    CloseUp();
  }
}

void ZoJson::ObjectNode::CloseUp() noexcept {
  Member* slots = Slots();
  char* keys = Keys();
  std::uint32_t kept = 0;
  std::uint32_t keyEnd = 0;
  if (indexed) {
    std::memset(Index(), 0xFF, IndexSize() * sizeof(std::uint32_t));
  }
  // Names stand in the order of their slots, so that both can be moved down in one walk.
  for (std::uint32_t slot = 0; slot < used; ++slot) {
    if (slots[slot].keySize == deadSlot) {
      continue;
    }
    std::memmove(static_cast<void*>(slots + kept), static_cast<const void*>(slots + slot), sizeof(Member));
    std::memmove(keys + keyEnd, keys + slots[kept].keyOffset, slots[kept].keySize);
    slots[kept].keyOffset = keyEnd;
    keyEnd += slots[kept].keySize;
    if (indexed) {
      Enter(kept);
    }
    ++kept;
  }
  used = kept;
  keyUsed = keyEnd;
}

void ZoJson::ObjectNode::Fill(ObjectNode& from, bool take) noexcept {
  for (std::uint32_t slot = from.Living(0); slot < from.used; slot = from.Living(slot + 1)) {
    Member& member = from.Slots()[slot];
    Append(from.Key(member), member.hash, take ? ZoJson(std::move(member.value)) : member.value);
  }
}

namespace {

using Node = ZoJsonAccess::Node;

// Whether that was the last reference. The acquiring read that finds 1 needs no exchange: nobody else can
// have one.
bool DropReference(Node& node) noexcept {
  return node.references.load(std::memory_order_acquire) == 1 ||
         node.references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

// Dead containers wait in a list that runs through their own counts: freeing neither recurses nor allocates.
void DropValue(const ZoJson& value, Node*& dead) noexcept {
  if (!ZoJsonAccess::HasNode(value)) {
    return;
  }
  Node* node = ZoJsonAccess::NodeOf(value);
  if (!DropReference(*node)) {
    return;
  }
  if (node->kind == ZoJson::Kind::String) {
    if (node->size >= hugeText) {
      qMemory_Discard(node, sizeof(Node) + node->size);
    }
    ::operator delete(node);
    return;
  }
  node->references.store(reinterpret_cast<std::uintptr_t>(dead), std::memory_order_relaxed);
  dead = node;
}

}  // namespace

void ZoJson::Release() noexcept {
  Node* dead = nullptr;
  DropValue(*this, dead);
  while (dead != nullptr) {
    Node* node = dead;
    dead = reinterpret_cast<Node*>(node->references.load(std::memory_order_relaxed));
    if (node->kind == Kind::Array) {
      auto* array = static_cast<ArrayNode*>(node);
      ZoJson* elements = array->Elements();
      for (std::uint32_t i = 0; i < array->size; ++i) {
        DropValue(elements[i], dead);
      }
    } else {
      auto* object = static_cast<ObjectNode*>(node);
      ObjectNode::Member* slots = object->Slots();
      // A dead slot holds null.
      for (std::uint32_t slot = 0; slot < object->used; ++slot) {
        DropValue(slots[slot].value, dead);
      }
    }
    ::operator delete(node);
  }
}

std::string_view ZoJsonAccess::Text(const ZoJson& value) noexcept {
  if (!value.HoldsNode()) {
    return {value.brief.text, value.brief.form};
  }
  auto* node = static_cast<ZoJson::StringNode*>(value.wide.node);
  return {node->Text(), node->size};
}

ZoJson ZoJsonAccess::Adopt(Node* node) noexcept {
  ZoJson value;
  value.wide.kind = node->kind;
  value.wide.form = ZoJson::inNode;
  value.wide.node = node;
  return value;
}

void ZoJsonAccess::Relocate(void* to, const ZoJson* from, std::size_t count) noexcept {
  std::memmove(to, static_cast<const void*>(from), count * sizeof(ZoJson));
}

ZoJson ZoJsonAccess::Detached(const ZoJson& value, std::size_t moreMembers, std::size_t moreKeyBytes) {
  if (value.IsArray()) {
    ArrayNode& from = Array(value);
    ArrayNode* node = ArrayNode::Make(from.size + moreMembers);
    std::uninitialized_copy_n(from.Elements(), from.size, node->Elements());
    node->size = from.size;
    return Adopt(node);
  }
  ObjectNode& from = Object(value);
  ObjectNode* node = ObjectNode::Make(from.size + moreMembers, from.keyLiving + moreKeyBytes);
  node->Fill(from, false);
  return Adopt(node);
}

void ZoJsonAccess::Reserve(ZoJson& value, std::size_t moreMembers, std::size_t moreKeyBytes) {
  if (value.IsArray()) {
    ArrayNode& from = Array(value);
    if (from.first + from.size + moreMembers <= from.capacity) {
      return;
    }
    if (from.first > from.capacity / 2) {
      from.SlideToFront();
      return;
    }
    ArrayNode* node = ArrayNode::Make(Roomy(from.size + moreMembers, 4, slotsMax, "an array is"));
    Relocate(node->Elements(), from.Elements(), from.size);
    node->size = from.size;
    value.wide.node = node;
    ::operator delete(&from);
    return;
  }
  ObjectNode& from = Object(value);
  if (from.used + moreMembers <= from.capacity && from.keyCapacity - from.keyUsed >= moreKeyBytes) {
    return;
  }
  ObjectNode* node =
      ObjectNode::Make(Roomy(from.size + moreMembers, 4, slotsMax, "an object is"),
                       Roomy(from.keyLiving + moreKeyBytes, 32, bytesMax, "the names of an object are"));
  node->Fill(from, true);
  value.wide.node = node;
  ::operator delete(&from);
}
