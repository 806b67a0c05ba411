// Takes the documents of one pass of the simulator to the cache, one for each item, in the walk's order.
//
// The cache keeps the first document of a millisecond, and a document that is kept costs a copy of its containers with
// the next item. A resource of many items, or a walk that comes back to many resources, would be copied every
// millisecond, and one whose copy takes longer than that for every item: time and memory would grow with the square of
// the items. So a pass has an allowance of copies, in proportion to its items. As long as there is some left the clock
// decides what is kept. Afterwards a resource's documents count as of the millisecond of its last one that looked at
// the clock, as if the rest of the walk had taken no time, so that the cache drops them. The first and the last
// document of a resource always go by the clock: all values are in the last.
//
// Threads: one. Owner: the pass.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zoiohandler/vyrnclient/iteminfo.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoIO {

class CacheManager;

class PassDocuments {
 public:
  // The walk's items, which must outlive this.
  PassDocuments(CacheManager& cache, const std::vector<const ItemInfo*>& items);
  PassDocuments(const PassDocuments&) = delete;
  PassDocuments& operator=(const PassDocuments&) = delete;

  // The document after the change of the next item, whose resource it is.
  void Add(const std::string& uri, const ZoJson& document);
  // The same at a time (as CacheManager::TimeInMills gives it) that the caller chooses.
  void AddAt(const std::string& uri, const ZoJson& document, long long now);

 private:
  struct Resource {
    std::size_t items = 0;
    std::size_t left = 0;  // items whose turn has not come
    long long stamp = 0;   // of the last document that went by the clock
  };

  bool GoesByTheClock(const Resource& resource) const noexcept;

  CacheManager& cache;
  std::size_t allowance;  // members that may still be copied
  std::unordered_map<std::string_view, Resource> resources;
};

}  // namespace ZoIO
