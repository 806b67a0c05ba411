// Places for instances: host threads fill them, use what is in them, and empty them again.
//
// Threads: any. A slot's guard is held shared by those that use the handle and alone by the one that changes it; it is
// only ever tried, so no thread waits for another one's call in it.
// Owner: the soak.
#pragma once

#include <atomic>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/soak/listener.h"

namespace ZoSoak {

struct Slot {
  SensorFacts* sensor = nullptr;  // null: the simulator
  // Whether names may be subscribed whose pattern is everything. One such subscription brings the changes of all
  // resources, and so hides a stream that was lost.
  bool everything = false;
  std::shared_mutex guard;
  std::mutex subscribing;  // one at a time, so that what is known of the subscriptions is in their order
  void* handle = nullptr;
  std::shared_ptr<Listener> listener;
  std::atomic<bool> filled = false;  // whether there is an instance, for those without the guard
  std::atomic<bool> worked = false;  // the instance reached its sensor once
};

class Slots {
 public:
  std::deque<Slot> all;

  // A listener whose instance was destroyed. It is kept until its last callbacks have surely returned.
  void Bury(std::shared_ptr<Listener> listener) {
    const std::lock_guard lock(mutex);
    const Clock::time_point now = Clock::now();
    buried.emplace_back(now, std::move(listener));
    std::erase_if(buried, [now](const auto& each) {
      return now - each.first > std::chrono::seconds(10) && !each.second->IsInCallback();
    });
  }
  void ForgetBuried() {
    const std::lock_guard lock(mutex);
    buried.clear();
  }

  // The listeners of live instances.
  std::vector<std::shared_ptr<Listener>> Listeners() {
    const std::lock_guard lock(mutex);
    return {live.begin(), live.end()};
  }
  void Add(std::shared_ptr<Listener> listener) {
    const std::lock_guard lock(mutex);
    live.push_back(std::move(listener));
  }
  void Remove(const std::shared_ptr<Listener>& listener) {
    const std::lock_guard lock(mutex);
    live.remove(listener);
  }

 private:
  std::mutex mutex;
  std::list<std::shared_ptr<Listener>> live;
  std::list<std::pair<Clock::time_point, std::shared_ptr<Listener>>> buried;
};

}  // namespace ZoSoak
