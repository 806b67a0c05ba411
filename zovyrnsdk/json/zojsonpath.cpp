#include "zovyrnsdk/json/zojsonpath.h"

#include <algorithm>

#include "zovyrnsdk/json/zojsonhash.h"

namespace {

void Unescape(std::string& name, std::string_view raw) {
  name.clear();
  for (std::size_t i = 0; i < raw.size(); ++i) {
    const char next = raw[i] == '~' && i + 1 < raw.size() ? raw[i + 1] : '\0';
    if (next == '0' || next == '1') {
      name.push_back(next == '0' ? '~' : '/');
      ++i;
    } else {
      name.push_back(raw[i]);
    }
  }
}

}  // namespace

void AppendJsonSegment(std::string& text, std::string_view name) {
  text.push_back('/');
  while (!name.empty()) {
    const std::size_t plain = std::min(name.find_first_of("~/"), name.size());
    text.append(name.substr(0, plain));
    if (plain == name.size()) {
      return;
    }
    text.append(name[plain] == '~' ? "~0" : "~1");
    name.remove_prefix(plain + 1);
  }
}

ZoJsonTextPath::ZoJsonTextPath(std::string_view text) : whole(text), rest(text), done(text.empty()) {
  if (!done) {
    if (rest.front() == '/') {
      rest.remove_prefix(1);
    }
    Take();
  }
}

void ZoJsonTextPath::Next() {
  if (rest.empty()) {
    done = true;
    return;
  }
  rest.remove_prefix(1);
  Take();
}

std::uint64_t ZoJsonTextPath::Hash() const noexcept {
  return ZoJsonHash(Name());
}

void ZoJsonTextPath::Take() {
  raw = rest.substr(0, rest.find('/'));
  rest.remove_prefix(raw.size());
  escaped = raw.find('~') != std::string_view::npos;
  if (escaped) {
    Unescape(scratch, raw);
  }
}
