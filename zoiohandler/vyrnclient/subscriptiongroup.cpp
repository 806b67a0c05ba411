#include "zoiohandler/vyrnclient/subscriptiongroup.h"

#include <utility>

#include "zoiohandler/vyrnclient/itemfeed.h"

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

// How far ahead of the walk memory is fetched: first the entries, which tell where the items are.
constexpr std::size_t entriesAhead = 16;
constexpr std::size_t itemsAhead = 8;

void PrefetchItem(const ItemManager::ItemInfo* item) {
  if (item != nullptr) {
    __builtin_prefetch(&item->valid);
    __builtin_prefetch(&item->seen);
    __builtin_prefetch(item->slot);
  }
}

}  // namespace

SubscriptionGroup::SubscriptionGroup(ItemFeed& client, const std::chrono::milliseconds& interval)
    : client(client), interval(interval), nextTick(std::chrono::system_clock::now()) {}

void SubscriptionGroup::AddItem(const std::string& name) {
  order.clear();
  if (order.capacity() <= items.size()) {
    order.reserve(2 * items.size() + 1);
  }
  items.try_emplace(name);
}

void SubscriptionGroup::RemoveItem(const std::string& name) {
  order.clear();
  items.erase(name);
}

void SubscriptionGroup::ForceUpdate(const std::string& name) {
  const auto found = items.find(name);
  if (found != items.end()) {
    found->second.forceUpdate = true;
  }
}

void SubscriptionGroup::Tick() {
  Arrange();
  const std::size_t count = order.size();
  for (std::size_t i = 0; i < count; ++i) {
    if (i + entriesAhead < count) {
      __builtin_prefetch(&order[i + entriesAhead]->second);
    }
    if (i + itemsAhead < count) {
      PrefetchItem(order[i + itemsAhead]->second.item);
    }
    auto& [name, entry] = *order[i];
    try {
      TickItem(name, entry);
    } catch (const std::exception&) {
      // One bad item must not hold up the others; it is tried again on the next tick.
    }
  }
  nextTick = AddSaturating(nextTick, interval);
}

void SubscriptionGroup::Arrange() {
  if (order.size() == items.size()) {
    return;
  }
  order.clear();
  for (Items::value_type& entry : items) {
    order.push_back(&entry);
  }
}

void SubscriptionGroup::TickItem(const std::string& name, Entry& entry) {
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
}

ItemManager::ItemInfo& SubscriptionGroup::GetCurrentItem(const std::string& name, Entry& entry) {
  if (entry.item == nullptr) {
    entry.item = &client.Sensor()->PLC()->Item(name);
  }
  client.RefreshFromCache(*entry.item);
  return *entry.item;
}

}  // namespace ZoIO
