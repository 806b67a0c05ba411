#include "fuzz/plugin/namemodel.h"

#include <cstddef>

namespace ZoFuzz {

namespace {

bool Divides(char letter) {
  return letter == '/' || letter == ' ' || (letter >= '\t' && letter <= '\r');
}

// Takes one letter off the front; "%20" counts as one, a blank.
char TakeDecoded(std::string_view& text) {
  const bool blank = text.starts_with("%20");
  const char letter = blank ? ' ' : text.front();
  text.remove_prefix(blank ? 3 : 1);
  return letter;
}

std::string Decoded(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    result += TakeDecoded(text);
  }
  return result;
}

std::string WithoutEscapes(std::string_view segment) {
  std::string name;
  for (std::size_t i = 0; i < segment.size(); ++i) {
    const bool escape =
        segment[i] == '~' && i + 1 < segment.size() && (segment[i + 1] == '0' || segment[i + 1] == '1');
    name += !escape ? segment[i] : segment[++i] == '1' ? '/' : '~';
  }
  return name;
}

std::vector<std::string> SegmentsOf(std::string_view path) {
  std::vector<std::string> segments;
  if (path.starts_with('/')) {
    path.remove_prefix(1);
  } else if (path.empty()) {
    return segments;
  }
  std::string segment;
  for (const char letter : path) {
    if (letter == '/') {
      segments.push_back(WithoutEscapes(segment));
      segment.clear();
    } else {
      segment += letter;
    }
  }
  segments.push_back(WithoutEscapes(segment));
  return segments;
}

std::vector<std::string> Tidied(std::string_view fragment) {
  std::vector<std::string> segments;
  std::string segment;
  for (const char letter : fragment) {
    if (!Divides(letter)) {
      segment += letter;
    } else if (!segment.empty()) {
      segments.push_back(WithoutEscapes(Decoded(segment)));
      segment.clear();
    }
  }
  if (!segment.empty()) {
    segments.push_back(WithoutEscapes(Decoded(segment)));
  }
  return segments;
}

// Up to the first "/" that is not the first letter, wherever it stands, and without any "#".
std::string PatternOf(std::string_view name) {
  std::string pattern;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] != '#') {
      pattern += name[i];
    }
    if (name[i] == '/' && i > 0) {
      return pattern + "*";
    }
  }
  return "*";
}

}  // namespace

NameModel::NameModel(std::string_view name) {
  std::size_t hash = 0;
  while (hash < name.size() && name[hash] != '#') {
    uri += name[hash++];
  }
  if (hash == name.size()) {
    subscriptionUri = uri + "/*";
    place = SegmentsOf(name);
    return;
  }
  const std::string_view fragment = name.substr(hash + 1);
  subscriptionUri = PatternOf(name);
  endpoint = Tidied(fragment);
  place = SegmentsOf(Decoded(fragment));
}

ZoJson NameModel::Body(const ZoJson& value) const {
  ZoJson body = value;
  if (endpoint) {
    for (auto member = endpoint->rbegin(); member != endpoint->rend(); ++member) {
      ZoJson outer = ZoJson::EmptyObject();
      outer.Set(ZoJsonPointer::Member(*member), body);
      body = outer;
    }
  }
  return body;
}

}  // namespace ZoFuzz
