// All resources by path, sorted. Threads: the I/O thread alone. Owner: the sensor.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zosensor/resource.h"
#include "tools/zosensor/uri.h"

namespace ZoSensor {

class ResourceStore {
 public:
  using Entry = std::shared_ptr<Resource>;

  // False when the path is taken.
  bool Add(Entry resource);
  // The resource that was taken out; null when there was none.
  Entry Remove(std::string_view path);
  Entry Find(std::string_view path) const;
  std::size_t Size() const { return resources.size(); }
  // In the order of their paths. Costs what matches, not what exists.
  std::vector<Entry> Matching(const Pattern& pattern) const;
  // {"resources": [...]}
  ZoJson Directory() const;

 private:
  std::map<std::string, Entry, std::less<>> resources;
};

}  // namespace ZoSensor
