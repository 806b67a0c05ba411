#include "tools/zohost/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace zohost {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

struct Character {
  char32_t code = 0;
  std::size_t size = 1;  // bytes; a broken sequence is taken byte by byte
  bool valid = false;
};

std::uint8_t Byte(std::string_view text, std::size_t at) {
  return static_cast<std::uint8_t>(text[at]);
}

// Decodes the character at the start of the text, which is not empty. Overlong forms, surrogates and codes
// beyond U+10FFFF are not valid.
Character Decode(std::string_view text) {
  const std::uint8_t lead = Byte(text, 0);
  if (lead < 0x80) {
    return {lead, 1, true};
  }
  const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < size) {
    return {};
  }
  char32_t code = lead & (0xFFu >> (size + 1));
  for (std::size_t at = 1; at < size; ++at) {
    const std::uint8_t next = Byte(text, at);
    if ((next & 0xC0u) != 0x80u) {
      return {};
    }
    code = (code << 6) | (next & 0x3Fu);
  }
  const bool overlong = (size == 3 && code < 0x800) || (size == 4 && code < 0x10000);
  if (overlong || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) {
    return {};
  }
  return {code, size, true};
}

struct Range {
  char32_t first;
  char32_t last;
};

template <std::size_t N>
bool Within(const std::array<Range, N>& ranges, char32_t code) {
  const auto after =
      std::upper_bound(ranges.begin(), ranges.end(), code,
                       [](char32_t wanted, const Range& range) { return wanted < range.first; });
  return after != ranges.begin() && code <= std::prev(after)->last;
}

// Marks that are drawn over the character before them.
constexpr std::array<Range, 12> combining = {{{0x0300, 0x036F},
                                              {0x0483, 0x0489},
                                              {0x0591, 0x05BD},
                                              {0x064B, 0x065F},
                                              {0x0E34, 0x0E3A},
                                              {0x0E47, 0x0E4E},
                                              {0x1AB0, 0x1AFF},
                                              {0x1DC0, 0x1DFF},
                                              {0x20D0, 0x20FF},
                                              {0xFE00, 0xFE0F},
                                              {0xFE20, 0xFE2F},
                                              {0xE0100, 0xE01EF}}};

// East Asian wide and full-width characters, and the pictures that terminals draw over two columns.
constexpr std::array<Range, 18> wide = {{{0x1100, 0x115F},
                                         {0x231A, 0x231B},
                                         {0x23E9, 0x23EC},
                                         {0x2E80, 0x303E},
                                         {0x3041, 0x33FF},
                                         {0x3400, 0x4DBF},
                                         {0x4E00, 0xA4CF},
                                         {0xA960, 0xA97C},
                                         {0xAC00, 0xD7A3},
                                         {0xF900, 0xFAFF},
                                         {0xFE30, 0xFE6F},
                                         {0xFF00, 0xFF60},
                                         {0xFFE0, 0xFFE6},
                                         {0x1F300, 0x1F64F},
                                         {0x1F680, 0x1F6FF},
                                         {0x1F900, 0x1F9FF},
                                         {0x1FA70, 0x1FAFF},
                                         {0x20000, 0x3FFFD}}};

// Characters that act instead of being seen: C0, DEL, C1, line separators, direction marks, zero-width
// spaces.
constexpr std::array<Range, 8> acting = {{{0x0000, 0x001F},
                                          {0x007F, 0x009F},
                                          {0x00AD, 0x00AD},
                                          {0x061C, 0x061C},
                                          {0x200B, 0x200F},
                                          {0x2028, 0x202E},
                                          {0x2060, 0x206F},
                                          {0xFEFF, 0xFEFF}}};

int Columns(char32_t code) {
  if (code < 0x300) {
    return 1;
  }
  return Within(combining, code) ? 0 : Within(wide, code) ? 2 : 1;
}

// Calls visit(character, its bytes) for each character of the text.
template <typename Visit>
void EachCharacter(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const Character character = Decode(text);
    visit(character, text.substr(0, character.size));
    text.remove_prefix(character.size);
  }
}

}  // namespace

std::string ValidUtf8(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  EachCharacter(text, [&](const Character& character, std::string_view bytes) {
    result += character.valid ? bytes : replacement;
  });
  return result;
}

std::string Printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  EachCharacter(text, [&](const Character& character, std::string_view bytes) {
    if (!character.valid) {
      result += replacement;
    } else if (!Within(acting, character.code)) {
      result += bytes;
    } else if (character.code == '\n') {
      result += "\\n";
    } else if (character.code == '\r') {
      result += "\\r";
    } else if (character.code == '\t') {
      result += "\\t";
    } else {
      result += fmt::format("\\u{:04x}", static_cast<std::uint32_t>(character.code));
    }
  });
  return result;
}

int DisplayWidth(std::string_view text) {
  int columns = 0;
  EachCharacter(text,
                [&](const Character& character, std::string_view) { columns += Columns(character.code); });
  return columns;
}

std::string FitStart(std::string_view text, int columns, std::string_view mark) {
  if (DisplayWidth(text) <= columns) {
    return std::string(text);
  }
  int left = columns - DisplayWidth(mark);
  if (left < 0) {
    return std::string(static_cast<std::size_t>(std::max(columns, 0)), ' ');
  }
  std::size_t kept = 0;
  bool full = false;
  EachCharacter(text, [&](const Character& character, std::string_view bytes) {
    full = full || Columns(character.code) > left;
    if (!full) {
      left -= Columns(character.code);
      kept += bytes.size();
    }
  });
  return std::string(text.substr(0, kept)).append(mark);
}

std::string FitEnd(std::string_view text, int columns, std::string_view mark) {
  int excess = DisplayWidth(text) - columns;
  if (excess <= 0) {
    return std::string(text);
  }
  excess += DisplayWidth(mark);
  if (DisplayWidth(mark) > columns) {
    return std::string(static_cast<std::size_t>(std::max(columns, 0)), ' ');
  }
  std::size_t cut = 0;
  EachCharacter(text, [&](const Character& character, std::string_view bytes) {
    // A mark without width goes with the character that it belongs to.
    if (excess > 0 || (cut > 0 && Columns(character.code) == 0 && excess == 0)) {
      excess -= Columns(character.code);
      cut += bytes.size();
      return;
    }
    excess = -1;
  });
  return std::string(mark).append(text.substr(cut));
}

std::string Padded(std::string text, int columns) {
  const int missing = columns - DisplayWidth(text);
  if (missing > 0) {
    text.append(static_cast<std::size_t>(missing), ' ');
  }
  return text;
}

std::string JsonString(std::string_view text) {
  std::string result = "\"";
  EachCharacter(text, [&](const Character& character, std::string_view bytes) {
    if (!character.valid) {
      result += replacement;
    } else if (bytes == "\"" || bytes == "\\") {
      result.append("\\").append(bytes);
    } else if (character.code == '\n') {
      result += "\\n";
    } else if (character.code < 0x20 || (character.code >= 0x7F && character.code < 0xA0)) {
      result += fmt::format("\\u{:04x}", static_cast<std::uint32_t>(character.code));
    } else {
      result += bytes;
    }
  });
  return result + '"';
}

std::string CsvField(std::string_view text) {
  std::string valid = ValidUtf8(text);
  const bool plain = valid.find_first_of(",\"\r\n") == std::string::npos &&
                     (valid.empty() || (valid.front() != ' ' && valid.back() != ' '));
  if (plain) {
    return valid;
  }
  std::string result = "\"";
  for (const char character : valid) {
    result += character;
    if (character == '"') {
      result += '"';
    }
  }
  return result + '"';
}

}  // namespace zohost
