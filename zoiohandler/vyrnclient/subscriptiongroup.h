// The items that a host subscribed with one update interval.
//
// Threads and lock: none of its own; every call is made under the instance lock. Owner: the instance's groups
// by interval. The feed outlives it. Invariant: the schedule advances by the interval from one due time to
// the next, whatever the actual times were, so a group that fell behind catches up and never skips a tick.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "xhmi/variant_value.h"
#include "zoiohandler/vyrnclient/itemfeed.h"
#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoIO {

class SubscriptionGroup {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  // Due at once.
  SubscriptionGroup(ItemFeed& client, const std::chrono::milliseconds& interval);

  // Adds an item, to be pushed on the next tick; one that is there already stays as it is.
  void AddItem(const std::string& name);
  void RemoveItem(const std::string& name);
  // Pushes the item on the next tick even if it has not changed. Unknown names are ignored.
  void ForceUpdate(const std::string& name);
  bool IsEmpty() const { return items.empty(); }

  const TimePoint& NextTick() const { return nextTick; }

  // Refreshes every item from the cache, in the order of names, and pushes to the host: valid and forced ones
  // every time, the others when their value changed. An item that raises is left for the next tick; the
  // others go on.
  void Tick();

 private:
  struct Entry {
    std::unique_ptr<xhmi::variant_value> lastValue;  // of an item that is not valid; null until it was pushed
    bool forceUpdate = true;
    ItemManager::ItemInfo* item = nullptr;  // looked up on the first tick; the registry keeps it
  };

  using Items = std::map<std::string, Entry>;

  // An entry in the order of names. What stands here is all that a tick looks at while a valid item's document is
  // still: a walk over the map and the items waits for memory at each step.
  struct Row {
    explicit Row(Items::value_type& entry) : entry(&entry), name(entry.first.c_str()) {}

    Items::value_type* entry;
    const char* name;
    ItemManager::ItemInfo* item = nullptr;  // as in the entry, once it is known
    ItemFeed::Shown shown;
  };

  // Whether there is a row for each item. False without the memory for that.
  bool Arrange();
  void Prefetch(std::size_t row) const;
  ItemManager::ItemInfo& GetCurrentItem(Row& row, const ZoJson* element);
  void TickRow(Row& row, const CallbackGate::Entry& showing);
  void TickItem(Row& row, const ZoJson* element, const CallbackGate::Entry& showing);

  ItemFeed& client;
  const std::chrono::milliseconds interval;
  TimePoint nextTick;
  Items items;
  std::vector<Row> rows;  // of all items, or none since an item came or went
  // Of a tick: the rows whose document was a newer one, and those of them whose value was, too.
  std::size_t documentsNew = 0;
  std::size_t valuesNew = 0;
  bool itemsChange = true;  // so many of them in the tick before that items are fetched ahead of the walk
};

}  // namespace ZoIO
