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

// How many rows ahead of the walk memory is fetched.
constexpr std::size_t lookAhead = 16;

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
    if (found->second.item != nullptr) {
      client.Unwatch(*found->second.item);
    }
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
  documentsNew = 0;
  valuesNew = 0;
  const CallbackGate::Entry showing = client.BeginShowing();
  if (Arrange()) {
    for (std::size_t i = 0; i < rows.size() && showing.StillOpen(); ++i) {
      Prefetch(i + lookAhead);
      TickRow(rows[i], showing);
    }
  } else {
    for (auto entry = items.begin(); entry != items.end() && showing.StillOpen(); ++entry) {
      Row passing(*entry);
      TickRow(passing, showing);
    }
  }
  itemsChange = valuesNew > documentsNew / 4;
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
  if (row >= rows.size() || client.Holds(rows[row].shown)) {
    return;
  }
  const Row& ahead = rows[row];
  if (ahead.shown.memberSize != 0) {
    __builtin_prefetch(ahead.name + ahead.shown.memberAt);
  }
  if (itemsChange && ahead.item != nullptr) {
    __builtin_prefetch(&ahead.item->valid);
    __builtin_prefetch(&ahead.item->value);
  }
}

void SubscriptionGroup::TickRow(Row& row, const CallbackGate::Entry& showing) {
  try {
    if (client.Holds(row.shown)) {
      client.ShowAgain(row.name, row.shown, showing);
      return;
    }
    ++documentsNew;
    const ZoJson* element = nullptr;
    if (client.HoldsStill(row.name, row.shown, element)) {
      client.ShowAgain(row.name, row.shown, showing);
      return;
    }
    ++valuesNew;
    TickItem(row, element, showing);
  } catch (const std::exception&) {
    // One bad item must not hold up the others; it is tried again on the next tick.
  }
}

void SubscriptionGroup::TickItem(Row& row, const ZoJson* element, const CallbackGate::Entry& showing) {
  row.shown.slot = nullptr;  // until the item has been looked at
  const ItemManager::ItemInfo& item = GetCurrentItem(row, element);
  const std::string& name = row.entry->first;
  if (item.valid) {  // which stays, so that it is pushed on every tick, and what was pushed before is of no account
    client.Show(item, row.shown, element);
    if (client.Holds(row.shown)) {
      client.ShowAgain(row.name, row.shown, showing);
    } else {
      client.UpdateItem(name, item.value, item.type, 0);
    }
    return;
  }
  Entry& entry = row.entry->second;
  const bool changed = entry.lastValue == nullptr || item.value != *entry.lastValue;
  if (!entry.forceUpdate && !changed) {
    return;
  }
  client.UpdateItem(name, item.value, item.type, 0);
  if (changed) {
    entry.lastValue = std::make_unique<xhmi::variant_value>(item.value);  // may raise, and nothing changes
  }
  entry.forceUpdate = false;
}

ItemManager::ItemInfo& SubscriptionGroup::GetCurrentItem(Row& row, const ZoJson* element) {
  if (row.item == nullptr) {
    Entry& entry = row.entry->second;
    if (entry.item == nullptr) {
      entry.item = &client.Sensor()->PLC()->Item(row.entry->first);
      client.Watch(*entry.item);
    }
    row.item = entry.item;
  }
  client.RefreshFromCache(*row.item, element);
  return *row.item;
}

}  // namespace ZoIO
