// The nodes that ZoJson values share: long texts, arrays and objects that have members. Internal to this
// folder.
//
// A node is one block of memory, header and contents together, with a count of the values that refer to it.
// Threads: whoever holds a reference may read; whoever holds the only one may write (see
// ZoJsonAccess::Shared). Invariants:
// 1. A node in the tree has at least one reference, and a container at least one member: empty ones have no node.
// 2. Members keep the order of insertion. A removed member leaves a dead slot; Remove closes the slots up when more
//    than half of them are dead, so that draining an object in any order costs amortised O(1) a member.
// 3. Objects of more than `linearMax` slots carry a hash index, at most half full, of slot numbers. Entries of dead
//    slots stay in it until the slots are closed up: a dead slot matches no name.
// 4. An array may begin behind its first slot, so that taking elements from the front does not move the others.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "zovyrnsdk/json/zojson.h"

struct ZoJson::StringNode : Node {
  static StringNode* Make(std::string_view text);

  char* Text() noexcept { return reinterpret_cast<char*>(this + 1); }

 private:
  explicit StringNode(std::uint32_t size) noexcept : Node(Kind::String, size) {}
};

struct ZoJson::ArrayNode : Node {
  static ArrayNode* Make(std::size_t capacity);
  static std::size_t BytesFor(std::size_t capacity) noexcept {
    return sizeof(ArrayNode) + capacity * sizeof(ZoJson);
  }

  ZoJson* Elements() noexcept { return reinterpret_cast<ZoJson*>(this + 1) + first; }
  // Moves the elements to the front of the block.
  void SlideToFront() noexcept;
  void Remove(std::uint32_t index) noexcept;

  const std::uint32_t capacity;
  std::uint32_t first = 0;

 private:
  explicit ArrayNode(std::uint32_t capacity) noexcept : Node(Kind::Array, 0), capacity(capacity) {}
};

struct ZoJson::ObjectNode : Node {
  struct Member {
    ZoJson value;
    std::uint64_t hash;
    std::uint32_t keyOffset;
    std::uint32_t keySize;  // deadSlot: the member was removed
  };
  static constexpr std::uint32_t none = 0xFFFFFFFF;
  static constexpr std::uint32_t deadSlot = 0xFFFFFFFF;
  static constexpr std::uint32_t linearMax = 8;

  // An empty object with room for so many members and bytes of names.
  static ObjectNode* Make(std::size_t capacity, std::size_t keyCapacity);
  static std::size_t BytesFor(std::size_t capacity, std::size_t keyCapacity) noexcept {
    return sizeof(ObjectNode) + capacity * sizeof(Member) + IndexEntries(capacity) * sizeof(std::uint32_t) +
           keyCapacity;
  }

  Member* Slots() noexcept { return reinterpret_cast<Member*>(this + 1); }
  char* Keys() noexcept { return reinterpret_cast<char*>(Index() + IndexSize()); }
  std::string_view Key(const Member& member) noexcept { return {Keys() + member.keyOffset, member.keySize}; }
  // The first living slot at or behind this one; `used` when there is none.
  std::uint32_t Living(std::uint32_t slot) noexcept;
  // The slot of a name, or none.
  std::uint32_t Find(std::string_view name, std::uint64_t hash) noexcept;

  // Adds a member that is not there yet, room provided.
  ZoJson* Append(std::string_view name, std::uint64_t hash, ZoJson value) noexcept;
  // Fills this empty object with members whose names stand in Keys() already, one behind the other, room provided. The
  // values are moved from. Of equal names the last value wins, at the place of the first.
  void AdoptAll(const std::uint32_t* keySizes, ZoJson* values, std::size_t count) noexcept;
  // Adds the members of another object to this empty one: its names, and nulls. It has a shape then.
  void TakeNames(ObjectNode& from) noexcept;
  // Whether its names are these, in this order, one behind the other. Only of an object without dead slots.
  bool HasNames(std::string_view names, const std::uint32_t* sizes, std::size_t count) noexcept;
  // An object with the shape of another, which has no dead slots, and with these values, which are moved from.
  static ObjectNode* MakeLike(ObjectNode& like, ZoJson* values);
  void Remove(std::uint32_t slot) noexcept;
  // Fills this empty object with the living members of another: copies, or the values themselves when `take`.
  void Fill(ObjectNode& from, bool take) noexcept;

  const std::uint32_t capacity;
  std::uint32_t used = 0;
  const std::uint32_t keyCapacity;
  std::uint32_t keyUsed = 0;
  std::uint32_t keyLiving = 0;
  const std::uint32_t indexMask;
  const bool indexed;
  std::uint64_t shape = 0;  // see ZoJson::Shape

 private:
  ObjectNode(std::uint32_t capacity, std::uint32_t keyCapacity, std::uint32_t indexMask,
             bool indexed) noexcept;

  static std::size_t IndexEntries(std::size_t capacity) noexcept {
    return capacity > linearMax ? std::bit_ceil(capacity * 2) : 0;
  }
  std::size_t IndexSize() const noexcept { return indexed ? std::size_t{indexMask} + 1 : 0; }
  std::uint32_t* Index() noexcept { return reinterpret_cast<std::uint32_t*>(Slots() + capacity); }
  bool Matches(const Member& member, std::string_view name, std::uint64_t hash) noexcept;
  // Where the index has this name's slot, or would have it. Only when indexed.
  std::uint32_t* Entry(std::string_view name, std::uint64_t hash) noexcept;
  void Enter(std::uint32_t slot) noexcept;
  void CloseUp() noexcept;
};

// What the files of this folder may do with the inside of a ZoJson.
struct ZoJsonAccess {
  using Node = ZoJson::Node;
  using ArrayNode = ZoJson::ArrayNode;
  using ObjectNode = ZoJson::ObjectNode;
  using Member = ZoJson::ObjectNode::Member;

  static constexpr std::size_t shortTextMax = ZoJson::shortTextMax;

  static bool HasNode(const ZoJson& value) noexcept { return value.HoldsNode(); }
  static Node* NodeOf(const ZoJson& value) noexcept { return value.wide.node; }
  // Only of a value that has a node and is of that kind.
  static ArrayNode& Array(const ZoJson& value) noexcept { return *static_cast<ArrayNode*>(value.wide.node); }
  static ObjectNode& Object(const ZoJson& value) noexcept {
    return *static_cast<ObjectNode*>(value.wide.node);
  }
  static std::string_view Text(const ZoJson& value) noexcept;
  static bool Boolean(const ZoJson& value) noexcept { return value.wide.boolean; }
  static std::int64_t Integer(const ZoJson& value) noexcept { return value.wide.integer; }
  static std::uint64_t Natural(const ZoJson& value) noexcept { return value.wide.natural; }
  static double Number(const ZoJson& value) noexcept { return value.wide.number; }

  static ZoJson FromText(std::string_view text) { return ZoJson::FromText(text); }
  static ZoJson FromInteger(std::int64_t value) noexcept { return ZoJson::FromInteger(value); }
  static ZoJson FromUnsigned(std::uint64_t value) noexcept { return ZoJson::FromUnsigned(value); }
  static ZoJson FromFloat(double value) noexcept { return ZoJson::FromFloat(value); }
  static ZoJson FromBoolean(bool value) noexcept { return ZoJson::FromBoolean(value); }
  // A value that takes over the caller's reference to a container that has members.
  static ZoJson Adopt(Node* node) noexcept;

  // An array or object without members yet, to be filled at once.
  static ZoJson NewArray(std::size_t capacity) { return Adopt(ArrayNode::Make(capacity)); }
  static ZoJson NewObject(std::size_t capacity, std::size_t keyCapacity) {
    return Adopt(ObjectNode::Make(capacity, keyCapacity));
  }

  // Whether anybody but this value refers to its node. When not, all that others did to it is visible here.
  static bool Shared(const ZoJson& value) noexcept {
    return value.wide.node->references.load(std::memory_order_acquire) != 1;
  }
  // Copies the bits, reference included, of a value to raw memory, and the other way round leaves the source
  // raw.
  static void Relocate(void* to, const ZoJson* from, std::size_t count) noexcept;
  // Whether the value is a container, and one with members.
  static bool IsContainer(const ZoJson& value) noexcept { return !value.IsPrimitive(); }

  // A value with a node of its own that has the same members, which are shared; with room for more.
  static ZoJson Detached(const ZoJson& value, std::size_t moreMembers, std::size_t moreKeyBytes);
  // Makes room in a container that is not shared.
  static void Reserve(ZoJson& value, std::size_t moreMembers, std::size_t moreKeyBytes);
};
