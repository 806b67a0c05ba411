// A JSON pointer (RFC 6901): the path to a value inside a document.
//
// A plain value: copyable, any thread. No text is refused: a leading "/" may be left out, "~0" and "~1" stand for
// "~" and "/", and a "~" before anything else stands for itself. The empty text is the whole document; "/" is the
// member with the empty name.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class ZoJsonPointer {
 public:
  // One segment of the path: its unescaped name, and what look-ups need of it, computed once.
  struct Segment {
    std::string name;
    std::uint64_t hash = 0;
  };

  ZoJsonPointer() = default;
  explicit ZoJsonPointer(std::string_view text);

  // A pointer of one segment: the member with exactly this name, whatever characters it holds.
  static ZoJsonPointer Member(std::string_view name);

  // below, as a path below above.
  static ZoJsonPointer Combine(const ZoJsonPointer& above, const ZoJsonPointer& below);
  static ZoJsonPointer Combine(const ZoJsonPointer& above, std::string_view below);

  // The canonical text: every segment escaped and with a leading "/"; empty for the whole document.
  std::string ToString() const;

  bool Empty() const { return segments.empty(); }
  const std::vector<Segment>& Segments() const { return segments; }

  friend bool operator==(const ZoJsonPointer& a, const ZoJsonPointer& b);

 private:
  std::vector<Segment> segments;
};
