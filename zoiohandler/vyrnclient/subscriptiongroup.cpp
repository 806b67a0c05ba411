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

}  // namespace

SubscriptionGroup::SubscriptionGroup(ItemFeed& client, const std::chrono::milliseconds& interval)
    : client(client), interval(interval), nextTick(std::chrono::system_clock::now()) {}

void SubscriptionGroup::AddItem(const std::string& name) {
  items.try_emplace(name);
}

void SubscriptionGroup::RemoveItem(const std::string& name) {
  items.erase(name);
}

void SubscriptionGroup::ForceUpdate(const std::string& name) {
  const auto found = items.find(name);
  if (found != items.end()) {
    found->second.forceUpdate = true;
  }
}

void SubscriptionGroup::Tick() {
  for (auto& [name, entry] : items) {
    try {
      TickItem(name, entry);
    } catch (const std::exception&) {
      // One bad item must not hold up the others; it is tried again on the next tick.
    }
  }
  nextTick = AddSaturating(nextTick, interval);
}

void SubscriptionGroup::TickItem(const std::string& name, Entry& entry) {
  const ItemManager::ItemInfo item = GetCurrentItem(name);
  if (!item.valid && !entry.forceUpdate && item.value == entry.lastValue) {
    return;
  }
  client.UpdateItem(name, item.value, item.type, 0);
  xhmi::variant_value sent = item.value;  // may raise, and then the entry stays as it was
  entry.forceUpdate = false;
  entry.lastValue = std::move(sent);
}

ItemManager::ItemInfo SubscriptionGroup::GetCurrentItem(const std::string& name) {
  ItemManager::ItemInfo& item = client.Sensor()->PLC()->Item(name);
  client.UpdateItemFromCache(item);
  return item;
}

}  // namespace ZoIO
