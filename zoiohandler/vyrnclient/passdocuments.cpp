#include "zoiohandler/vyrnclient/passdocuments.h"

#include <algorithm>

#include "zoiohandler/vyrnclient/cachemanager.h"

namespace ZoIO {

namespace {

// A resource of up to 256 items never gets to the end of this, however slow its pass is.
constexpr std::size_t copiesOfAnyPass = 256 * 256;
constexpr std::size_t copiesForAnItem = 4;

}  // namespace

PassDocuments::PassDocuments(CacheManager& cache, const std::vector<const ItemInfo*>& items)
    : cache(cache), allowance(copiesOfAnyPass + copiesForAnItem * items.size()) {
  for (const ItemInfo* item : items) {
    Resource& resource = resources[item->uri];
    ++resource.items;
    ++resource.left;
  }
}

void PassDocuments::Add(const std::string& uri, const ZoJson& document) {
  AddAt(uri, document, CacheManager::TimeInMills());
}

void PassDocuments::AddAt(const std::string& uri, const ZoJson& document, long long now) {
  Resource& resource = resources.at(uri);
  if (GoesByTheClock(resource)) {
    resource.stamp = now;
  }
  --resource.left;
  if (cache.AddInOrderAt(uri, document, 0, resource.stamp) == CacheManager::Added::Stored) {
    allowance -= std::min(allowance, std::max(resource.items, document.Size()));
  }
}

bool PassDocuments::GoesByTheClock(const Resource& resource) const noexcept {
  const bool first = resource.left == resource.items;
  const bool last = resource.left == 1;
  return allowance > 0 || first || last;
}

}  // namespace ZoIO
