#include "tools/zosensor/jsonlocator.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "zovyrnsdk/json/zojson.h"

namespace ZoSensor {
namespace {

// Walks over a text that is known to be valid JSON; at its end every look gives '\0'.
class Walker {
 public:
  Walker(std::string_view wholeText, std::size_t start) : text(wholeText), at(start) { SkipBlanks(); }

  std::size_t Offset() const { return at; }
  char Look() const { return at < text.size() ? text[at] : '\0'; }
  bool End() const { return at >= text.size(); }
  void Step() {
    ++at;
    SkipBlanks();
  }

  // A string with its quotes.
  std::string_view TakeString() {
    const std::size_t start = at++;
    while (!End() && text[at] != '"') {
      at += text[at] == '\\' ? 2 : 1;
    }
    ++at;
    const std::string_view taken = text.substr(start, at - start);
    SkipBlanks();
    return taken;
  }

  void SkipValue() {
    std::size_t depth = 0;
    do {
      const char c = Look();
      if (c == '"') {
        TakeString();
      } else if (c == '{' || c == '[') {
        ++depth;
        Step();
      } else if (c == '}' || c == ']') {
        --depth;
        Step();
      } else if (c == ',' || c == ':') {
        Step();
      } else {
        SkipWord();
      }
    } while (depth > 0 && !End());
  }

 private:
  void SkipWord() {
    while (!End() && std::string_view(",:{}[]\" \t\r\n").find(text[at]) == std::string_view::npos) {
      ++at;
    }
    SkipBlanks();
  }
  void SkipBlanks() {
    while (!End() && std::string_view(" \t\r\n").find(text[at]) != std::string_view::npos) {
      ++at;
    }
  }

  std::string_view text;
  std::size_t at;
};

// The offset of a child of the container at an offset. Of members with one name, the last counts.
std::optional<std::size_t> Child(std::string_view text, std::size_t container, const std::string& name) {
  Walker walker(text, container);
  const bool object = walker.Look() == '{';
  if (!object && walker.Look() != '[') {
    return std::nullopt;
  }
  std::optional<std::size_t> found;
  walker.Step();
  for (std::size_t index = 0; !walker.End() && walker.Look() != '}' && walker.Look() != ']'; ++index) {
    std::string key = std::to_string(index);
    if (object) {
      key = ZoJson::ParseString(walker.TakeString()).Get<std::string>();
      walker.Step();  // the colon
    }
    if (key == name) {
      found = walker.Offset();
    }
    walker.SkipValue();
    if (walker.Look() == ',') {
      walker.Step();
    }
  }
  return found;
}

}  // namespace

TextPosition PositionOf(std::string_view text, std::size_t offset) {
  TextPosition position;
  for (const char c : text.substr(0, offset)) {
    if (c == '\n') {
      ++position.line;
      position.column = 1;
    } else if ((static_cast<unsigned char>(c) & 0xc0) != 0x80) {
      ++position.column;  // once for each character, not for each of its bytes
    }
  }
  return position;
}

std::optional<std::size_t> FindDuplicateName(std::string_view text) {
  std::vector<std::set<std::string>> names;  // of each container around; none of an array
  Walker walker(text, 0);
  while (!walker.End()) {
    const char c = walker.Look();
    if (c == '"') {
      const std::size_t start = walker.Offset();
      const std::string_view taken = walker.TakeString();
      if (walker.Look() == ':' &&
          !names.back().insert(ZoJson::ParseString(taken).Get<std::string>()).second) {
        return start;
      }
      continue;
    }
    if (c == '{' || c == '[') {
      names.emplace_back();
    } else if (c == '}' || c == ']') {
      names.pop_back();
    }
    walker.Step();
  }
  return std::nullopt;
}

TextPosition LocateValue(std::string_view text, const ZoJsonPointer& pointer) {
  std::size_t offset = Walker(text, 0).Offset();
  for (const auto& segment : pointer.Segments()) {
    const auto child = Child(text, offset, segment.name);
    if (!child) {
      break;
    }
    offset = *child;
  }
  return PositionOf(text, offset);
}

}  // namespace ZoSensor
