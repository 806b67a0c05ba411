// What an instance's monitor thread works on: the subscription groups and the way of their values to the
// host.
//
// Threads: the instance's, and the monitor thread. Owner: shared by both, so that a pass which a host's
// callback holds up finds everything in place however long it takes. Lock: the instance lock, rank Instance.
#pragma once

#include <atomic>
#include <chrono>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "zoapi/threads/locker.h"
#include "zoiohandler/vyrnclient/itemfeed.h"
#include "zoiohandler/vyrnclient/subscriptiongroup.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoIO {

struct ZoVyrnClient::Serving {
  Serving(std::shared_ptr<const ioHandlerParam> parameters, std::shared_ptr<CallbackGate> gate,
          std::shared_ptr<Logger> logger)
      : logger(logger), feed(std::move(parameters), std::move(gate), std::move(logger)) {}

  // One pass: ticks every group that is due at the time that clock gives, in the order of intervals.
  template <typename Clock>
  void Pass(const Clock& clock) {
    Zo::Locker held(lock);
    const std::chrono::system_clock::time_point now = clock();
    feed.NoteTime(now);
    for (const auto& [interval, entry] : subscriptionGroups) {
      const std::shared_ptr<SubscriptionGroup> group = entry;
      if (now >= group->NextTick()) {
        group->Tick();
      }
    }
    feed.LetGoOfDocument();
  }

  // The group of an interval, made on first use.
  SubscriptionGroup& GetSubscriptionGroup(std::chrono::milliseconds interval) Q_REQUIRES(lock) {
    const auto known = subscriptionGroups.find(interval);
    if (known != subscriptionGroups.end()) {
      return *known->second;
    }
    // Made before it is entered: the monitor must never meet an entry without a group.
    return *subscriptionGroups.emplace(interval, std::make_shared<SubscriptionGroup>(feed, interval))
                .first->second;
  }

  // Takes an item out of every group, and drops the groups that are empty then.
  void RemoveFromGroups(const std::string& name) Q_REQUIRES(lock) {
    for (auto entry = subscriptionGroups.begin(); entry != subscriptionGroups.end();) {
      entry->second->RemoveItem(name);
      entry = entry->second->IsEmpty() ? subscriptionGroups.erase(entry) : std::next(entry);
    }
  }

  // Set once.
  const std::shared_ptr<Logger> logger;
  Zo::Lock lock;

  std::atomic<bool> running = false;
  ItemFeed feed;
  std::map<std::chrono::milliseconds, std::shared_ptr<SubscriptionGroup>> subscriptionGroups
      Q_GUARDED_BY(lock);
};

}  // namespace ZoIO
