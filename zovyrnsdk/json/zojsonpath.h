// Cursors over the segments of a path, so that At, HasKey, Set and Remove are written once for texts and for
// ready pointers. Internal to this folder.
//
// A cursor offers Done, Next, Name (unescaped), Hash (of the name) and Text (the whole path, canonically, for
// error texts). It refers to the text or pointer that it was made from, which must outlive it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "zovyrnsdk/json/zojsonpointer.h"

// Appends "/" and the name with "~" and "/" escaped.
void AppendJsonSegment(std::string& text, std::string_view name);

// Walks a text without allocating, unless a segment holds an escape.
class ZoJsonTextPath {
 public:
  explicit ZoJsonTextPath(std::string_view text);

  bool Done() const noexcept { return done; }
  void Next();
  std::string_view Name() const noexcept { return escaped ? std::string_view(scratch) : raw; }
  std::uint64_t Hash() const noexcept;
  std::string Text() const { return ZoJsonPointer(whole).ToString(); }

 private:
  void Take();

  std::string_view whole;
  std::string_view rest;  // behind the current segment, its "/" included
  std::string_view raw;   // the current segment as written
  std::string scratch;    // the current segment unescaped, when it holds a "~"
  bool escaped = false;
  bool done = false;
};

class ZoJsonPointerPath {
 public:
  explicit ZoJsonPointerPath(const ZoJsonPointer& pointer) noexcept
      : pointer(&pointer), segment(pointer.Segments().data()), end(segment + pointer.Segments().size()) {}

  bool Done() const noexcept { return segment == end; }
  void Next() noexcept { ++segment; }
  std::string_view Name() const noexcept { return segment->name; }
  std::uint64_t Hash() const noexcept { return segment->hash; }
  std::string Text() const { return pointer->ToString(); }

 private:
  const ZoJsonPointer* pointer;
  const ZoJsonPointer::Segment* segment;
  const ZoJsonPointer::Segment* end;
};
