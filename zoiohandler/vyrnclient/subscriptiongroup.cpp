#include "zoiohandler/vyrnclient/subscriptiongroup.h"

#include <new>
#include <utility>

namespace ZoIO {

namespace {

// A host may ask for any interval, also one that no clock can hold.
SubscriptionGroup::TimePoint AddSaturating(SubscriptionGroup::TimePoint time,
                                           std::chrono::milliseconds interval) {
  using TimePoint = SubscriptionGroup::TimePoint;
  using Duration = TimePoint::duration;
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  // Beyond these the interval alone does not fit the clock's ticks.
  const Duration step = interval > duration_cast<milliseconds>(Duration::max())   ? Duration::max()
                        : interval < duration_cast<milliseconds>(Duration::min()) ? Duration::min()
                                                                                  : Duration(interval);
  const Duration since = time.time_since_epoch();
  if (step > Duration::zero() && since > Duration::max() - step) {
    return TimePoint::max();
  }
  if (step < Duration::zero() && since < Duration::min() - step) {
    return TimePoint::min();
  }
  return time + step;
}

// How many rows ahead of the walk memory is fetched: first the entries, which tell where the items are.
constexpr std::size_t entriesAhead = 24;
constexpr std::size_t itemsAhead = 12;

void PrefetchItem(const ItemManager::ItemInfo* item) {
  if (item != nullptr) {
    __builtin_prefetch(&item->pointer);
    __builtin_prefetch(&item->value);
    __builtin_prefetch(&item->seen);
  }
}

}  // namespace

SubscriptionGroup::SubscriptionGroup(ItemFeed& client, const std::chrono::milliseconds& interval)
    : client(client), interval(interval), nextTick(std::chrono::system_clock::now()) {}

void SubscriptionGroup::AddItem(const std::string& name) {
  if (items.try_emplace(name).second) {
    rows.clear();
  }
}

void SubscriptionGroup::RemoveItem(const std::string& name) {
  const auto found = items.find(name);
  if (found != items.end()) {
    rows.clear();
    items.erase(found);
  }
}

void SubscriptionGroup::ForceUpdate(const std::string& name) {
  const auto found = items.find(name);
  if (found != items.end()) {
    found->second.forceUpdate = true;
  }
}

void SubscriptionGroup::Tick() {
  if (Arrange()) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      Prefetch(i);
      TickRow(rows[i]);
    }
  } else {
    for (Items::value_type& entry : items) {
      Row passing(entry);
      TickRow(passing);
    }
  }
  nextTick = AddSaturating(nextTick, interval);
}

bool SubscriptionGroup::Arrange() {
  if (rows.size() == items.size()) {
    return true;
  }
  try {
    rows.reserve(items.size());
  } catch (const std::bad_alloc&) {
    return false;  // then it takes longer
  }
  for (Items::value_type& entry : items) {
    rows.emplace_back(entry);
  }
  return true;
}

void SubscriptionGroup::Prefetch(std::size_t row) const {
  if (row + entriesAhead < rows.size()) {
    const Row& far = rows[row + entriesAhead];
    if (!client.Holds(far.shown)) {
      __builtin_prefetch(&far.entry->second);
      __builtin_prefetch(&far.entry->second.item);
    }
  }
  if (row + itemsAhead < rows.size()) {
    const Row& near = rows[row + itemsAhead];
    if (!client.Holds(near.shown)) {
      PrefetchItem(near.entry->second.item);
    }
  }
}

void SubscriptionGroup::TickRow(Row& row) {
  try {
    if (client.Holds(row.shown)) {
      client.ShowAgain(row.name, row.shown);
    } else {
      TickItem(row);
    }
  } catch (const std::exception&) {
    // One bad item must not hold up the others; it is tried again on the next tick.
  }
}

void SubscriptionGroup::TickItem(Row& row) {
  auto& [name, entry] = *row.entry;
  row.shown = {};
  const ItemManager::ItemInfo& item = GetCurrentItem(name, entry);
  if (!item.valid && !entry.forceUpdate && item.value == entry.lastValue) {
    return;
  }
  client.UpdateItem(name, item.value, item.type, 0);
  if (item.value != entry.lastValue) {
    xhmi::variant_value sent = item.value;  // may raise, and then the entry stays as it was
    entry.lastValue = std::move(sent);
  }
  entry.forceUpdate = false;
  if (item.valid) {  // which stays, so that it is pushed on every tick
    row.shown = client.Show(item);
  }
}

ItemManager::ItemInfo& SubscriptionGroup::GetCurrentItem(const std::string& name, Entry& entry) {
  if (entry.item == nullptr) {
    entry.item = &client.Sensor()->PLC()->Item(name);
  }
  client.RefreshFromCache(*entry.item);
  return *entry.item;
}

}  // namespace ZoIO
