#include "zoiohandler/vyrnclient/knownresources.h"

#include <algorithm>

namespace ZoIO {

namespace {

constexpr std::size_t strangerLimit = std::size_t{64} << 20;  // bytes
constexpr std::size_t entrySize = 512;  // about, of a key here and in the cache without its text

}  // namespace

void KnownResources::Note(const std::string& uri) {
  known.insert(uri);
  if (const auto stranger = strangers.find(uri); stranger != strangers.end()) {
    strangerBytes -= stranger->second;
    strangers.erase(stranger);
  }
}

bool KnownResources::Admits(const std::string& uri, std::size_t bytes) {
  if (known.contains(uri)) {
    return true;
  }
  const std::size_t name = 2 * uri.size() + entrySize;
  const std::size_t cost = std::min(bytes, strangerLimit) + name;
  const auto stranger = strangers.find(uri);
  const bool isNew = stranger == strangers.end();
  const std::size_t others = strangerBytes - (isNew ? 0 : stranger->second);
  if (others + cost <= strangerLimit) {
    strangers.insert_or_assign(uri, cost);
    strangerBytes = others + cost;
    return true;
  }
  if (!isNew) {
    stranger->second = name;  // which the cache keeps
    strangerBytes = others + name;
  }
  return false;
}

}  // namespace ZoIO
