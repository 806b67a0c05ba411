#include "tools/zosensor/standin.h"

#include <cstddef>
#include <utility>

namespace ZoSensor {
namespace {

// So many digits, without an exponent, are within the range of a double.
constexpr std::size_t MostDigits = 300;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The value of four hexadecimal digits, or -1.
int CodeUnit(std::string_view digits) {
  int unit = 0;
  for (const char c : digits) {
    const char lower = static_cast<char>(c | 0x20);
    if (IsDigit(c)) {
      unit = unit * 16 + (c - '0');
    } else if (lower >= 'a' && lower <= 'f') {
      unit = unit * 16 + (lower - 'a' + 10);
    } else {
      return -1;
    }
  }
  return digits.size() == 4 ? unit : -1;
}

class Copier {
 public:
  explicit Copier(std::string_view original) : text(original) { copy.reserve(text.size()); }

  std::string Copy() {
    bool inString = false;
    while (at < text.size()) {
      if (inString && text[at] == '\\') {
        CopyEscape();
      } else if (!inString && IsDigit(text[at])) {
        CopyNumber();
      } else {
        inString = inString != (text[at] == '"');
        copy += text[at++];
      }
    }
    return std::move(copy);
  }

 private:
  // The unit that an escape at an offset stands for, or -1.
  int UnitAt(std::size_t offset) const {
    return offset + 6 <= text.size() && text.substr(offset, 2) == "\\u" ? CodeUnit(text.substr(offset + 2, 4))
                                                                        : -1;
  }
  static bool Leads(int unit) { return unit >= 0xd800 && unit < 0xdc00; }
  static bool Trails(int unit) { return unit >= 0xdc00 && unit < 0xe000; }

  void CopyEscape() {
    const int unit = UnitAt(at);
    if (Leads(unit) && Trails(UnitAt(at + 6))) {
      Take(12);
    } else if (Leads(unit) || Trails(unit)) {
      copy += "\\ufffd";
      at += 6;
    } else {
      Take(2);  // the digits of an escape are plain characters
    }
  }

  // From its first digit: a sign before it has been copied.
  void CopyNumber() {
    TakeDigits(MostDigits);
    if (at < text.size() && text[at] == '.') {
      Take(1);
      TakeDigits(MostDigits);
    }
    if (at < text.size() && (text[at] | 0x20) == 'e') {
      Take(1);
      if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        Take(1);
      }
      if (at < text.size() && IsDigit(text[at])) {
        TakeDigits(0);
        copy += '0';
      }
    }
  }

  void Take(std::size_t count) {
    const std::string_view taken = text.substr(at, count);
    copy += taken;
    at += taken.size();
  }
  void TakeDigits(std::size_t most) {
    std::size_t count = 0;
    for (; at < text.size() && IsDigit(text[at]); ++at) {
      if (count++ < most) {
        copy += text[at];
      }
    }
  }

  std::string_view text;
  std::string copy;
  std::size_t at = 0;
};

}  // namespace

std::string WithStandIns(std::string_view text) {
  return Copier(text).Copy();
}

}  // namespace ZoSensor
