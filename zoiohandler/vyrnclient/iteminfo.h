// What an item name means, and the item's last value.
//
// A plain structure, copied where a snapshot is needed. name, uri, subscriptionUri and pointer never change
// once the registry holds the record, so they may be read without a lock. valid is set by the registry's
// worker while others read it. The rest belongs to the instance and is guarded by its lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "xhmi/iohandler.h"
#include "xhmi/variant_value.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonpointer.h"

namespace ZoIO {

// A bool that one thread may set while others read it, and that can be copied.
class SharedFlag {
 public:
  // cppcheck-suppress noExplicitConstructor ; it stands in for a bool
  SharedFlag(bool value) noexcept : flag(value) {}
  SharedFlag(const SharedFlag& other) noexcept : flag(bool(other)) {}
  SharedFlag& operator=(const SharedFlag& other) noexcept { return *this = bool(other); }
  SharedFlag& operator=(bool value) noexcept {
    flag.store(value, std::memory_order_release);
    return *this;
  }
  operator bool() const noexcept { return flag.load(std::memory_order_acquire); }

 private:
  std::atomic<bool> flag;
};

struct ItemInfo {
  std::string name;             // as the host gave it
  std::string uri;              // the resource, and its key in the cache
  std::string subscriptionUri;  // the pattern to subscribe where the resource cannot be streamed
  ZoJson endpoint;              // write template: a document with one leaf, 0; empty for a name without "#"
  ZoJsonPointer pointer;        // where the value lies in the resource's payload
  // From here to the scalar of value stands what a tick of a newer value looks at: the less memory that is, the less a
  // pass waits for it.
  SharedFlag valid = true;  // found in the sensor's data
  bool subscribed = false;
  std::uint32_t watchers = 0;  // groups that have ticked it
  // The variant starts with the integer 0 while type says invalid: a scalar is stored over it in place, and
  // type alone tells how to read it.
  enumtype type = enumtype_invalid;
  // Where the cache keeps the resource (null: not known yet), and the version of it that value and type were taken
  // from; 0 makes them be taken anew. It holds for one run of the clock (see ItemFeed).
  std::uint32_t clockRun = 0;
  const CacheManager::Slot* slot = nullptr;
  std::uint64_t seen = 0;
  xhmi::variant_value value{0LL};  // see type
};

}  // namespace ZoIO
