#include "zovyrnsdk/link/pushqueue.h"

#include <algorithm>
#include <utility>

#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

void PushQueue::Offer(const std::string& uri, Push push, Time now) {
  Slots::value_type& entry = Remember(uri, now);
  Slot& slot = entry.second;
  push.bytes += uri.size();  // which is kept beside the document
  if (!slot.waiting) {
    slot.place = order.emplace(DueOf(slot, now), &entry);
    slot.waiting = true;
    slot.began = now;
    slot.arrived = now;
  } else {
    bytes -= slot.push.bytes;
    // The place in the order stays, so that a URI that is pushed without a pause is still handed on in time; but what is
    // newer than an answer keeps its distance to that.
    if (slot.last >= slot.arrived) {
      slot.arrived = now;
      Schedule(slot, now);
    }
  }
  bytes += push.bytes;
  slot.push = std::move(push);
}

bool PushQueue::AnswerArrived(const std::string& uri, const ZoJson& payload, std::size_t size, bool taking,
                              Time now, std::uint64_t arrivalOrder) {
  Slot& slot = Remember(uri, now).second;
  slot.last = taking ? now + pushPatience - pushSpacing : now;
  if (slot.waiting) {
    slot.push.document.Set("payload", payload);
    slot.push.order = std::max(slot.push.order, arrivalOrder);  // it is as new as its content
    bytes -= std::exchange(slot.push.bytes, size + uri.size());
    bytes += slot.push.bytes;
    slot.arrived = now;
    Schedule(slot, now);
  }
  return slot.handedOn || (slot.lastPush != Time::min() && now < slot.lastPush + pushSpacing);
}

void PushQueue::AnswerTaken(const std::string& uri, Time now) {
  Slot& slot = Remember(uri, now).second;
  slot.last = now;
  if (slot.waiting) {
    Schedule(slot, now);
  }
}

std::vector<Push> PushQueue::TakeDue(Time now, std::size_t limit) {
  std::vector<Push> due;
  // First, so that nothing is lost halfway for want of memory.
  due.reserve(std::min(limit, order.size()));
  handed.reserve(due.capacity());
  while (due.size() < limit && !order.empty() && order.begin()->first <= now) {
    Slot& slot = order.begin()->second->second;
    order.erase(order.begin());
    bytes -= slot.push.bytes;
    delivering += slot.push.bytes;
    slot.waiting = false;
    slot.last = now;
    slot.handedOn = true;
    handed.push_back(&slot);
    due.push_back(std::exchange(slot.push, Push()));
  }
  return due;
}

void PushQueue::Delivered(Time now) {
  for (Slot* slot : handed) {
    slot->handedOn = false;
    slot->lastPush = now;
    slot->last = std::max(slot->last, now);
    if (slot->waiting) {
      Move(*slot, std::max(slot->place->first, DueOf(*slot, now)));
    }
  }
  handed.clear();
  delivering = 0;
}

void PushQueue::Clear() {
  slots.clear();
  order.clear();
  handed.clear();
  bytes = 0;
  uriBytes = 0;
}

bool PushQueue::Full() const {
  return bytes + delivering > pushBytesLimit || order.size() > pushCountLimit;
}

PushQueue::Slots::value_type& PushQueue::Remember(const std::string& uri, Time now) {
  Prune(now);
  const auto [entry, isNew] = slots.try_emplace(uri);
  uriBytes += isNew ? uri.size() : 0;
  return *entry;
}

Time PushQueue::DueOf(const Slot& slot, Time now) {
  return slot.last == Time::min() ? now : std::max(now, slot.last + pushSpacing);
}

void PushQueue::Schedule(Slot& slot, Time now) {
  Move(slot, std::min({DueOf(slot, now), slot.arrived + pushPatience, slot.began + pushWaitLimit}));
}

void PushQueue::Move(Slot& slot, Time due) {
  auto place = order.extract(slot.place);
  place.key() = due;
  slot.place = order.insert(std::move(place));
}

// Only the last few milliseconds matter, so what is older goes, at a cost that is constant over time.
void PushQueue::Prune(Time now) {
  const bool hasLongNames = uriBytes > longName * (leastPruned + slots.size()) && now >= pruneNamesAt;
  if (slots.size() < pruneAt && !hasLongNames) {
    return;
  }
  std::erase_if(slots, [&](const auto& entry) {
    const Slot& slot = entry.second;
    const bool isQuiet =
        !slot.waiting && !slot.handedOn && (slot.last == Time::min() || slot.last + pushSpacing < now);
    uriBytes -= isQuiet ? entry.first.size() : 0;
    return isQuiet;
  });
  pruneAt = std::max(leastPruned, slots.size() * 2);
  pruneNamesAt = now + pruneNamesEvery;
}

}  // namespace ZoSdk
