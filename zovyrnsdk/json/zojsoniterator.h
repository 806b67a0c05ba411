// Visits the members of an object, in the order of insertion, or the elements of an array, without copying
// the container. Anything else has nothing to visit.
//
//   for (ZoJsonIterator it(document); it.Valid(); it.Next()) use(it.Key(), it.Value());
//
// Threads: one iterator stays on one thread. It shares the container, so later edits of the original are not
// seen and do not disturb it.
#pragma once

#include <cstddef>
#include <string_view>

#include "zovyrnsdk/json/zojson.h"

class ZoJsonIterator {
 public:
  explicit ZoJsonIterator(ZoJson container);

  bool Valid() const noexcept { return index < size; }
  void Next() noexcept;

  // The member's name, unescaped; empty for an element. Valid while the iterator lives. Only when Valid().
  std::string_view Key() const noexcept;
  // The member's or element's value. Only when Valid().
  const ZoJson& Value() const noexcept;

 private:
  ZoJson container;
  std::size_t index = 0;  // of the element, or of the slot that holds the member
  std::size_t size;
};
