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
  name = WithoutSlash(name);
  std::size_t uncounted = 0;
  // First, since a name without its length would not be found.
  std::size_t& count = &names == &below ? lengths[name.size()] : uncounted;
  const auto [entry, isNew] = names.try_emplace(std::string(name));
  count += isNew ? 1 : 0;
  change(entry->second[place]);
  if (entry->second == Ids{}) {
    names.erase(entry);
    if (--count == 0 && &names == &below) {
      lengths.erase(name.size());
    }
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
  return std::any_of(lengths.begin(), lengths.end(), [&](const auto& each) {
    const std::size_t end = each.first;
    const bool mayEnd = end == 0 || end == name.size() || (end < name.size() && name[end] == '/');
    return mayEnd && below.contains(name.substr(0, end));
  });
}

void Interest::Clear() {
  exact.clear();
  below.clear();
  lengths.clear();
}

}  // namespace ZoSdk
