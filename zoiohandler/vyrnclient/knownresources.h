// Which resources this side has asked about. Below a pattern a sensor may push others, as many as it likes and each for
// the first time; the cache, which never lets go of a key, takes 64 MiB of them.
//
// A plain container, guarded by its owner. Memory for each URI that was asked about, and for each that was admitted.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace ZoIO {

class KnownResources {
 public:
  // From now on it is known. Without the memory to remember it, it counts as a stranger.
  void Asked(const std::string& uri) noexcept;

  // Whether a value of so many bytes of memory may be stored as the newest one of uri.
  bool Admits(const std::string& uri, std::size_t bytes);

 private:
  std::unordered_set<std::string> known;
  std::unordered_map<std::string, std::size_t> strangers;  // with what each holds
  std::size_t strangerBytes = 0;
};

}  // namespace ZoIO
