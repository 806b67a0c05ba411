// What is remembered of the objects that came before, so that parsing the next of the same kind is quicker: a sensor
// sends the same names again and again, and what follows from them (hashes, index) is copied then, not computed.
//
// An aid alone: a document is the same with it and without. 64 kinds of objects are remembered, four for each remainder
// of the hash: hashes are seeded, and the two or three kinds of one sensor must not drive each other out in one process
// of 64. A fifth takes the place of the kind that was not seen for longest. Threads: one at a time. It owns the names of
// the objects that it remembers, never their values. Invariant: all shapes together cost `bytesMax` at most, which is
// not counted as memory of any document.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zovyrnsdk/json/zojson.h"

class ZoJsonShapes {
 public:
  // The names of a document of 100 000 members and more.
  static constexpr std::size_t bytesMax = std::size_t{8} << 20;

  // The object with these names whose values are null; or null.
  const ZoJson* Find(std::uint64_t hashOfNames) noexcept;
  // An object has been parsed whose names have this hash. It is remembered when it came before, so that names that
  // come once cost nothing to speak of.
  void Note(std::uint64_t hashOfNames, const ZoJson& object) noexcept;

  std::size_t Bytes() const noexcept { return bytes; }

 private:
  struct Entry {
    std::uint64_t hash = 0;
    ZoJson shape;  // null: it came once
    std::size_t bytes = 0;
    std::uint64_t lastUse = 0;
  };
  using Set = std::array<Entry, 4>;

  Set& SetOf(std::uint64_t hash) noexcept { return sets[hash % sets.size()]; }
  void Remember(Entry& entry, const ZoJson& object);

  std::array<Set, 16> sets;
  std::size_t bytes = 0;
  std::uint64_t uses = 0;
};
