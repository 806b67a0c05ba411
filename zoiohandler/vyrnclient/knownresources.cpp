#include "zoiohandler/vyrnclient/knownresources.h"

#include <algorithm>
#include <new>

namespace ZoIO {

namespace {

constexpr std::size_t strangerLimit = std::size_t{64} << 20;  // bytes
constexpr std::size_t entrySize = 512;  // about, of a key here and in the cache without its text

}  // namespace

void KnownResources::Asked(const std::string& uri) noexcept {
  try {
    if (!known.insert(uri).second) {
      return;
    }
  } catch (const std::bad_alloc&) {
    return;
  }
  if (const auto stranger = strangers.find(uri); stranger != strangers.end()) {
    strangerBytes -= stranger->second;
    strangers.erase(stranger);
  }
}

bool KnownResources::Admits(const std::string& uri, std::size_t bytes) {
  if (known.contains(uri)) {
    return true;
  }
  const std::size_t cost = std::min(bytes, strangerLimit) + 2 * uri.size() + entrySize;
  const auto stranger = strangers.find(uri);
  const std::size_t others = strangerBytes - (stranger == strangers.end() ? 0 : stranger->second);
  if (cost > strangerLimit || others > strangerLimit - cost) {
    return false;
  }
  strangers.insert_or_assign(uri, cost);
  strangerBytes = others + cost;
  return true;
}

}  // namespace ZoIO
