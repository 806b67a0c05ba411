#include "tools/zosensor/jsonvalues.h"

#include <algorithm>

namespace ZoSensor {
namespace {

// The offset behind the string that begins at one.
std::size_t StringEnd(std::string_view text, std::size_t at) {
  for (++at; at < text.size() && text[at] != '"'; ++at) {
    at += text[at] == '\\' ? 1 : 0;
  }
  return std::min(at + 1, text.size());
}

}  // namespace

std::size_t JsonValues(std::string_view text) {
  std::size_t count = 1;
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (c == '"') {
      at = StringEnd(text, at);
      continue;
    }
    count += c == ',' || c == '[' || c == '{' ? 1 : 0;
    ++at;
  }
  return count;
}

bool HoldsMoreValues(std::string_view text, std::size_t most) {
  return text.size() > most && JsonValues(text) > most;
}

std::string JsonOutline(std::string_view text) {
  std::string outline;
  std::size_t depth = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const char c = text[at];
    at = c == '"' ? StringEnd(text, at) : at + 1;
    const bool opens = c == '{' || c == '[';
    const bool closes = c == '}' || c == ']';
    if (opens && depth == 1) {
      outline += "null";
    } else if (depth <= 1) {
      outline += text.substr(start, at - start);
    }
    depth += opens ? 1 : 0;
    depth -= closes && depth > 0 ? 1 : 0;
  }
  return outline;
}

}  // namespace ZoSensor
