#include "zovyrnsdk/link/interest.h"

#include <algorithm>

namespace ZoSdk {

namespace {

std::string_view WithoutSlash(std::string_view uri) {
  return uri.starts_with('/') ? uri.substr(1) : uri;
}

}  // namespace

void Interest::Asked(const Restorer::Key& key, std::uint64_t id) {
  Update(key, [&](std::uint64_t& latest) { latest = id; });
}

void Interest::Refused(const Restorer::Key& key, std::uint64_t id) {
  Update(key, [&](std::uint64_t& latest) { latest = latest <= id ? 0 : latest; });
}

void Interest::Ended(const Restorer::Key& key) {
  Update(key, [](std::uint64_t& latest) { latest = 0; });
}

template <typename Change>
void Interest::Update(const Restorer::Key& key, Change change) {
  const bool subscription = key.first == Restorer::Kind::Subscription;
  std::string_view name = key.second;
  Names& names = subscription && (name == "*" || name.ends_with("/*")) ? below : exact;
  std::size_t place = name.starts_with('/') ? 1 : 0;
  if (&names == &below) {
    place = name == "//*" ? 2 : place;  // everything is spelled in three ways
    name.remove_suffix(std::min<std::size_t>(2, name.size()));
  } else if (subscription) {
    place += 2;
  }
  const auto entry = names.try_emplace(std::string(WithoutSlash(name))).first;
  change(entry->second[place]);
  if (entry->second == Ids{}) {
    names.erase(entry);
  }
}

bool Interest::Covers(std::string_view uri) const {
  const std::string_view name = WithoutSlash(uri);
  if (exact.contains(name)) {
    return true;
  }
  if (below.empty()) {
    return false;
  }
  for (std::size_t end = name.size(); end != 0 && end != std::string_view::npos;
       end = name.rfind('/', end - 1)) {
    if (below.contains(name.substr(0, end))) {
      return true;
    }
  }
  return below.contains(std::string_view());
}

void Interest::Clear() {
  exact.clear();
  below.clear();
}

}  // namespace ZoSdk
