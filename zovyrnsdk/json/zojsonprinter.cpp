#include "zovyrnsdk/json/zojsonprinter.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "zovyrnsdk/json/zojsonnode.h"
#include "zovyrnsdk/json/zojsonstack.h"

namespace {

using Access = ZoJsonAccess;

// A container that is being printed, and its next slot.
struct Level {
  const ZoJson* container;
  std::uint32_t next;
};

bool NeedsEscape(unsigned char byte) noexcept {
  return byte < 0x20 || byte == '"' || byte == '\\';
}

// Whether one of eight bytes needs an escape. Exact: a borrow can only come from a byte that needs one
// itself.
bool AnyNeedsEscape(std::uint64_t bytes) noexcept {
  constexpr std::uint64_t ones = 0x0101010101010101U;
  const std::uint64_t quotes = bytes ^ (ones * '"');
  const std::uint64_t slashes = bytes ^ (ones * '\\');
  const std::uint64_t below = (bytes - ones * 0x20) & ~bytes;
  return ((below | ((quotes - ones) & ~quotes) | ((slashes - ones) & ~slashes)) & (ones * 0x80)) != 0;
}

// The next byte to escape at or behind this one; the size when there is none.
std::size_t NextToEscape(std::string_view text, std::size_t at) noexcept {
  for (; text.size() - at >= sizeof(std::uint64_t); at += sizeof(std::uint64_t)) {
    std::uint64_t bytes;
    std::memcpy(&bytes, text.data() + at, sizeof bytes);
    if (AnyNeedsEscape(bytes)) {
      break;
    }
  }
  while (at < text.size() && !NeedsEscape(static_cast<unsigned char>(text[at]))) {
    ++at;
  }
  return at;
}

class Printer {
 public:
  std::string Print(const ZoJson& root) {
    Value(root);
    while (!levels.empty()) {
      Step();
    }
    return {text.All(), text.Size()};
  }

 private:
  void Put(std::string_view plain) {
    std::memcpy(text.Room(plain.size()), plain.data(), plain.size());
    text.Grow(plain.size());
  }

  void Put(char plain) {
    *text.Room(1) = plain;
    text.Grow(1);
  }

  void Step() {
    Level& level = levels.back();
    if (level.container->IsArray()) {
      auto& array = Access::Array(*level.container);
      if (level.next == array.size) {
        return End(']');
      }
      if (level.next > 0) {
        Put(',');
      }
      Value(array.Elements()[level.next++]);
      return;
    }
    auto& object = Access::Object(*level.container);
    const std::uint32_t slot = object.Living(level.next);
    if (slot == object.used) {
      return End('}');
    }
    if (*text.Top(1) != '{') {
      Put(',');
    }
    level.next = slot + 1;
    const auto& member = object.Slots()[slot];
    Quoted(object.Key(member));
    Put(':');
    Value(member.value);
  }

  void End(char bracket) {
    Put(bracket);
    levels.pop_back();
  }

  void Value(const ZoJson& value) {
    switch (value.GetKind()) {
      case ZoJson::Kind::Null:
        return Put("null");
      case ZoJson::Kind::Boolean:
        return Put(Access::Boolean(value) ? "true" : "false");
      case ZoJson::Kind::Integer:
        return Number(Access::Integer(value));
      case ZoJson::Kind::Unsigned:
        return Number(Access::Natural(value));
      case ZoJson::Kind::Float:
        return Real(Access::Number(value));
      case ZoJson::Kind::String:
        return Quoted(Access::Text(value));
      case ZoJson::Kind::Array:
      case ZoJson::Kind::Object:
        if (!Access::HasNode(value)) {
          return Put(value.IsArray() ? "[]" : "{}");
        }
        Put(value.IsArray() ? '[' : '{');
        levels.push_back({&value, 0});
    }
  }

  template <typename T>
  void Number(T number) {
    constexpr std::size_t sizeMax = 20;  // of -9223372036854775808 and 18446744073709551615
    char* begin = text.Room(sizeMax);
    text.Grow(static_cast<std::size_t>(std::to_chars(begin, begin + sizeMax, number).ptr - begin));
  }

  void Real(double number) {
    if (!std::isfinite(number)) {
      throw ZoJsonError("JSON value: NaN and infinities have no JSON text");
    }
    // Up to here doubles hold every integer, or at least print one that has no more digits than they do.
    constexpr double plainMax = 1e16;
    if (std::abs(number) < plainMax && number == std::trunc(number)) {
      if (std::signbit(number)) {
        Put('-');
      }
      Number(static_cast<std::int64_t>(std::abs(number)));
      return Put(".0");
    }
    constexpr std::size_t sizeMax = 24;  // of -2.2250738585072014e-308; fixed texts are chosen when shorter
    char* begin = text.Room(sizeMax);
    char* end = std::to_chars(begin, begin + sizeMax, number).ptr;
    const std::string_view printed(begin, static_cast<std::size_t>(end - begin));
    text.Grow(printed.size());
    if (printed.find_first_of(".e") == std::string_view::npos) {
      Put(".0");
    }
  }

  void Quoted(std::string_view plain) {
    char* to = text.Room(plain.size() + 2);
    *to = '"';
    text.Grow(1);
    std::size_t begin = 0;
    for (std::size_t i = NextToEscape(plain, 0); i < plain.size(); i = NextToEscape(plain, begin)) {
      Put(plain.substr(begin, i - begin));
      Escape(static_cast<unsigned char>(plain[i]));
      begin = i + 1;
    }
    Put(plain.substr(begin));
    Put('"');
  }

  void Escape(unsigned char byte) {
    constexpr std::string_view plain = "\"\\\b\f\n\r\t";
    constexpr std::string_view letters = "\"\\bfnrt";
    const std::size_t known = plain.find(static_cast<char>(byte));
    if (known != std::string_view::npos) {
      Put('\\');
      return Put(letters[known]);
    }
    constexpr std::string_view digits = "0123456789abcdef";
    Put("\\u00");
    Put(digits[byte >> 4U]);
    Put(digits[byte & 15U]);
  }

  ZoJsonStack<char, 4096> text;
  std::vector<Level> levels;
};

}  // namespace

std::string PrintJson(const ZoJson& value) {
  Printer printer;  // "Printer()" would clear its whole buffer first
  return printer.Print(value);
}

std::string ZoJson::ToString() const {
  return PrintJson(*this);
}
