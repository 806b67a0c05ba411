#include "zovyrnsdk/json/zojsonpointer.h"

#include <algorithm>
#include <utility>

#include "zovyrnsdk/json/zojsonhash.h"
#include "zovyrnsdk/json/zojsonpath.h"

namespace {

ZoJsonPointer::Segment MakeSegment(std::string_view name) {
  return {std::string(name), static_cast<std::size_t>(ZoJsonHash(name))};
}

}  // namespace

ZoJsonPointer::ZoJsonPointer(std::string_view text) {
  const bool leadingSlashMissing = !text.empty() && text.front() != '/';
  segments.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '/')) +
                   (leadingSlashMissing ? 1 : 0));
  for (ZoJsonTextPath path(text); !path.Done(); path.Next()) {
    segments.push_back(MakeSegment(path.Name()));
  }
}

ZoJsonPointer ZoJsonPointer::Member(std::string_view name) {
  ZoJsonPointer pointer;
  pointer.segments.push_back(MakeSegment(name));
  return pointer;
}

ZoJsonPointer ZoJsonPointer::Combine(const ZoJsonPointer& above, const ZoJsonPointer& below) {
  ZoJsonPointer pointer;
  pointer.segments.reserve(above.segments.size() + below.segments.size());
  pointer.segments = above.segments;
  pointer.segments.insert(pointer.segments.end(), below.segments.begin(), below.segments.end());
  return pointer;
}

ZoJsonPointer ZoJsonPointer::Combine(const ZoJsonPointer& above, std::string_view below) {
  return Combine(above, ZoJsonPointer(below));
}

std::string ZoJsonPointer::ToString() const {
  std::size_t size = 0;
  for (const Segment& segment : segments) {
    size += segment.name.size() + 1;
  }
  std::string text;
  text.reserve(size);
  for (const Segment& segment : segments) {
    AppendJsonSegment(text, segment.name);
  }
  return text;
}

bool operator==(const ZoJsonPointer& a, const ZoJsonPointer& b) {
  return std::equal(a.segments.begin(), a.segments.end(), b.segments.begin(), b.segments.end(),
                    [](const ZoJsonPointer::Segment& x, const ZoJsonPointer::Segment& y) {
                      return x.hash == y.hash && x.name == y.name;
                    });
}
