// The item registry: turns item names into records on first use and keeps them for the life of the instance.
//
// A new item is looked for once in the sensor's data; those not found are retried by a thread of the
// registry, "ItemManager::ManageInvalidItems::Thread", once a second until they appear.
//
// Threads: Item and Snapshot from any; Items as it says. Owner: a sensor manager; shared with callers. The
// worker co-owns the records and reaches the sensor through a function, never through the sensor manager
// itself. Lock: rank Registry, held across sensor reads, so a slow request delays every other Item call.
// Invariants: 1. a record is never removed or replaced, so references to it stay valid until the registry is
// destroyed; 2. every name in invalidItems has a record that is not valid, and leaves the list when it
// becomes so.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zoapi/threads/locker.h"
#include "zoiohandler/vyrnclient/isensormanager.h"
#include "zoiohandler/vyrnclient/itemerror.h"
#include "zoiohandler/vyrnclient/iteminfo.h"

namespace ZoIO {

class ItemManager {
 public:
  using ItemInfo = ZoIO::ItemInfo;

  // What the worker calls before each pass and without the lock, how it reads a resource, and how it stores the payload
  // of its last read in the cache; and what is told of the resource of each new item before the cache is asked about it.
  // Must stay usable when the sensor manager is gone; reading raises instead of waiting once the registry was given up.
  struct Source {
    std::function<void()> begin;
    std::function<ZoJson(const std::string& uri)> read;
    std::function<void(const std::string& uri, const ZoJson& payload)> keep;
    std::function<void(const std::string& uri)> note = [](const std::string&) {};
  };

  // simulated: accept every item without asking the sensor. Without a source the worker reads from
  // sensorManager, which must then outlive it. Raises Zo::Exception when a lock or thread cannot be had.
  ItemManager(ISensorManager& sensorManager, bool simulated);
  ItemManager(ISensorManager& sensorManager, bool simulated, Source retrySource);
  ItemManager(const ItemManager&) = delete;
  ItemManager& operator=(const ItemManager&) = delete;
  ~ItemManager();

  // Ends the worker, at most a second later, and logs so. Done by the destructor at the latest.
  void Shutdown() noexcept;

  // The record of a name, created on first use, which may read from the sensor. Raises ItemError for a name
  // that cannot be parsed. The reference is valid as long as the registry.
  ItemInfo& Item(const std::string& name);

  // The map itself, without locking: only while nobody calls Item.
  std::unordered_map<std::string, ItemInfo>& Items();
  const std::unordered_map<std::string, ItemInfo>& Items() const;

  // The records of the moment, in the map's order. Read only what never changes in them.
  std::vector<const ItemInfo*> Snapshot() const;

  // The names that wait for their value to appear, oldest first.
  std::vector<std::string> InvalidItems() const;

  // Parses a name. Raises ItemError ("Invalid identifier.") where that fails. See docs/item-names.md.
  static const ItemInfo CreateItem(const std::string& name);

  // One pass of the worker. Raises what ended it.
  void RetryInvalidItems();

 private:
  struct State;

  static ZoJson GetEndpoint(const std::string& fragment);
  static void Replace(std::string& text, const std::string& from, const std::string& to);
  static int ManageInvalidItems(void* self);

  bool Validate(const ItemInfo& info);
  void Log(std::string_view message, int level, const char* function) const noexcept;

  ISensorManager& sensorManager;
  std::shared_ptr<State> state;
  Zo::Thread thread;
};

}  // namespace ZoIO
