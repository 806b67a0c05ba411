#include "tests/model/item.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <limits>
#include <type_traits>

namespace ZoModel {

namespace {

std::string WithBlanks(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.compare(i, 3, "%20") == 0) {
      result += ' ';
      i += 2;
    } else {
      result += text[i];
    }
  }
  return result;
}

// A write's path: blanks and slashes divide it, and what is empty goes.
Path BodyPath(const std::string& fragment) {
  std::string path;
  std::string segment;
  for (const char letter : fragment + "/") {
    if (std::string(" \t\n\v\f\r/").find(letter) == std::string::npos) {
      segment += letter;
    } else if (!segment.empty()) {
      path += "/" + WithBlanks(segment);
      segment.clear();
    }
  }
  return ParsePointer(path);
}

std::string PatternOf(const std::string& name) {
  const std::size_t slash = name.size() < 2 ? std::string::npos : name.find('/', 1);
  std::string pattern = slash == std::string::npos ? "*" : name.substr(0, slash + 1) + "*";
  pattern.erase(std::remove(pattern.begin(), pattern.end(), '#'), pattern.end());
  return pattern;
}

// Hosts get floats with the precision of a C float; beyond its range, the greatest one.
double AsFloat(double value) {
  constexpr double most = std::numeric_limits<float>::max();
  return static_cast<double>(static_cast<float>(std::clamp(value, -most, most)));
}

}  // namespace

Item::Item(const std::string& name) : name(name) {
  const std::size_t hash = name.find('#');
  if (hash == std::string::npos) {
    uri = name;
    pattern = name + "/*";
    pointer = ParsePointer(name);
    return;
  }
  const std::string fragment = name.substr(hash + 1);
  uri = name.substr(0, hash);
  pattern = PatternOf(name);
  pointer = ParsePointer(WithBlanks(fragment));
  body = BodyPath(fragment);
}

void Item::Refresh(const Document* document) {
  const Document* element = document == nullptr ? nullptr : document->Find(pointer);
  if (element == nullptr || element->IsNull()) {
    type = Invalid;
  } else if (const auto* integer = std::get_if<long long>(&element->content)) {
    type = Signed;
    value.bits = static_cast<std::uint64_t>(*integer);
  } else if (const auto* natural = std::get_if<unsigned long long>(&element->content)) {
    type = Unsigned;
    value.bits = *natural;
  } else if (const auto* real = std::get_if<double>(&element->content)) {
    type = Float;
    value.bits = std::bit_cast<std::uint64_t>(AsFloat(*real));
  } else if (const auto* boolean = std::get_if<bool>(&element->content)) {
    type = Boolean;
    value.bits = (value.bits & ~0xffULL) | (*boolean ? 1 : 0);  // the low byte alone
  } else if (const auto* text = std::get_if<std::string>(&element->content)) {
    type = Text;
    value = {Text, 0, *text};
  }
  // An array or object leaves the item as it was.
}

std::string Item::Value() const {
  switch (type) {
    case Text:
      return "0:" + value.text;
    case Boolean:
      return (value.bits & 0xff) != 0 ? "1:1" : "1:0";
    case Signed:
      return "2:" + std::to_string(static_cast<long long>(value.bits));
    case Float: {
      char digits[40];
      std::snprintf(digits, sizeof digits, "3:%.17g", std::bit_cast<double>(value.bits));
      return digits;
    }
    case Unsigned:
      return "4:" + std::to_string(value.bits);
    default:
      return "5:INVALID";
  }
}

bool Item::IsIn(const Document& document) const {
  const Document* element = document.Find(pointer);
  return element != nullptr && !element->IsNull();
}

}  // namespace ZoModel
