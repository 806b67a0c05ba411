#include "zovyrnsdk/link/pushqueue.h"

#include <algorithm>
#include <utility>

#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

void PushQueue::Offer(const std::string& uri, Push push, Time now) {
  Prune(now);
  auto& entry = *slots.try_emplace(uri).first;
  Slot& slot = entry.second;
  if (slot.waiting) {
    // The place in the order stays: a URI that is pushed without a pause is still handed on in time.
    bytes -= slot.push.bytes;
  } else {
    slot.place = order.emplace(DueOf(slot, now), &entry);
    slot.waiting = true;
    slot.arrived = now;
  }
  bytes += push.bytes;
  slot.push = std::move(push);
}

void PushQueue::AnswerArrived(const std::string& uri, bool taking, Time now) {
  Prune(now);
  Slot& slot = slots.try_emplace(uri).first->second;
  Drop(slot);
  slot.last = taking ? now + pushPatience - pushSpacing : now;
}

void PushQueue::AnswerTaken(const std::string& uri, Time now) {
  Prune(now);
  Slot& slot = slots.try_emplace(uri).first->second;
  slot.last = now;
  if (slot.waiting) {
    auto place = order.extract(slot.place);
    place.key() = std::min(DueOf(slot, now), slot.arrived + pushPatience);
    slot.place = order.insert(std::move(place));
  }
}

void PushQueue::Refresh(const std::string& uri, const ZoJson& payload, std::size_t size, Time now) {
  const auto found = slots.find(uri);
  if (found != slots.end() && found->second.waiting) {
    Slot& slot = found->second;
    slot.push.document.Set("payload", payload);
    bytes += size;
    bytes -= slot.push.bytes;
    slot.push.bytes = size;
    return;
  }
  Prune(now);
  slots.try_emplace(uri).first->second.last = now;
}

std::vector<Push> PushQueue::TakeDue(Time now, std::size_t limit) {
  std::vector<Push> due;
  while (due.size() < limit && !order.empty() && order.begin()->first <= now) {
    Slot& slot = order.begin()->second->second;
    order.erase(order.begin());
    bytes -= slot.push.bytes;
    delivering += slot.push.bytes;
    slot.waiting = false;
    slot.last = now;
    due.push_back(std::exchange(slot.push, Push()));
  }
  return due;
}

void PushQueue::Clear() {
  slots.clear();
  order.clear();
  bytes = 0;
}

bool PushQueue::Full() const {
  return bytes + delivering > pushBytesLimit || order.size() > pushCountLimit;
}

Time PushQueue::DueOf(const Slot& slot, Time now) {
  return slot.last == Time::min() ? now : std::max(now, slot.last + pushSpacing);
}

void PushQueue::Drop(Slot& slot) {
  if (slot.waiting) {
    order.erase(slot.place);
    bytes -= slot.push.bytes;
    slot.push = Push();
    slot.waiting = false;
  }
}

// Only the last few milliseconds matter, so what is older goes, at a cost that is constant over time.
void PushQueue::Prune(Time now) {
  if (slots.size() < pruneAt) {
    return;
  }
  std::erase_if(slots, [&](const auto& entry) {
    const Slot& slot = entry.second;
    return !slot.waiting && (slot.last == Time::min() || slot.last + pushSpacing < now);
  });
  pruneAt = std::max<std::size_t>(1024, slots.size() * 2);
}

}  // namespace ZoSdk
