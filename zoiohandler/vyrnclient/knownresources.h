// Which resources have items. Below a pattern a sensor may push others, as many as it likes and each for the first time;
// the cache, which never lets go of a key, takes 64 MiB of those.
//
// A plain container, guarded by its owner. Memory for each URI that was noted or admitted.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace ZoIO {

class KnownResources {
 public:
  // From now on it has an item. Raises when there is no memory, and it is a stranger still.
  void Note(const std::string& uri);

  // Whether a value of so many bytes of memory may be stored as the newest one of uri. Of a stranger whose value may not
  // be, no older one may stay.
  bool Admits(const std::string& uri, std::size_t bytes);

 private:
  std::unordered_set<std::string> known;
  std::unordered_map<std::string, std::size_t> strangers;  // with what each holds
  std::size_t strangerBytes = 0;
};

}  // namespace ZoIO
