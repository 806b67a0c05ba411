// The host's side of one instance: its callbacks, and what it knows of its subscriptions. Every callback is judged.
//
// Threads: callbacks come on any; the others are called by host threads. It must live until the callbacks that ran when
// the instance was destroyed have returned, so the soak keeps listeners for a while. Owner: shared.
// Lock: one of its own, a leaf; never held while a callback sleeps.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tests/soak/breaches.h"
#include "tests/soak/catalogue.h"
#include "tests/soak/facts.h"
#include "tests/soak/judge.h"
#include "xhmi/iohandler.h"

namespace ZoSoak {

// What one thread's call has been answered with; a thread makes one call at a time.
struct CurrentCall {
  std::string_view item;  // what is read
  const void* token = nullptr;
  int values = 0;
  int results = 0;
  int lines = 0;   // of the log
  int errors = 0;  // of these at error
  enumtype type = enumtype_invalid;
  std::int64_t integer = 0;
  std::string response;
  std::string streamed;           // the last resource that was asked to stream
  std::set<std::string> refused;  // resources that are neither streamed nor subscribed
  // Resources whose pattern is thought to be subscribed already. The plug-in counts the users of a pattern down whenever
  // a stream that there was not is ended, below 0 too, and then asks the sensor for nothing. No two resources of the
  // soak share a pattern, so it may or may not be subscribed.
  std::set<std::string> skipped;
  bool IsDoubtful(const std::string& uri) const { return refused.contains(uri) || skipped.contains(uri); }
};

class Listener {
 public:
  // sensor: null for the simulator.
  Listener(const SensorFacts* sensor, std::uint64_t seed, Tallies& tallies, Breaches& breaches);
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  ioHandlerParam Param();
  const SensorFacts* Sensor() const { return sensor; }
  const Items& Catalogue() const { return sensor != nullptr ? SensorItems() : SimulatorItems(); }

  // Of the calling thread; a call begins by clearing it.
  static CurrentCall& Current();

  // What a successful call has done. doubtful: what CurrentCall says.
  void Subscribed(const std::string& name, bool doubtful);
  void Unsubscribed(const std::string& name);
  // Nobody knows how far a failed call came: from here on the item's deliveries are not watched.
  void BecameUncertain(const std::string& name);

  // Subscribed items that should move and have not: one sentence each, and each once.
  std::vector<std::string> StandingStill();
  // Whether all that should move has moved since then.
  bool AllMovedSince(Clock::time_point time) const;
  std::size_t Watched() const;
  bool IsSubscribed(const std::string& name) const;
  // Whether an item has to deliver, as far as anybody knows, and whether this integer came last.
  bool Delivers(const std::string& name) const;
  bool Holds(const std::string& name, std::int64_t value) const;

  // Once DestroyIoInstance has returned.
  void Destroyed(Clock::duration took);
  bool IsInCallback() const { return inCallback > 0; }

  // For the self-test: a callback that is wrong in the way that is named.
  void Plant(const std::string& what);

 private:
  struct ItemState {
    const Item* item = nullptr;
    Order order;
    std::uint64_t last = 0;
    std::uint32_t lastType = enumtype_invalid;
    Clock::time_point movedAt;
    Clock::time_point subscribedAt;
    int users = 0;  // as the plug-in counts them: a stream ends with the last one
    bool delivering = false;
    bool doubtful = false;  // until its stream has no users any more
    bool uncertain = false;
    bool reported = false;
    bool Delivers() const { return delivering && !doubtful && !uncertain; }
    bool IsWatched() const { return item->changes && Delivers(); }
  };
  class Visit;

  static void OnValue(const char* itemName, const ioDataValue* value, void* context);
  static void OnResult(const void* callToken, const char* response, void* context);
  static void OnLog(void* context, std::int32_t level, const char* text);

  void Take(std::string_view name, const ioDataValue& value);
  void CheckOrder(ItemState& state, const ioDataValue& value);
  void Note(std::string_view line, std::int32_t level);
  void DawdleAtTimes();
  void Remember(std::string_view line);
  Knowledge Known() const;
  std::string Place(std::string_view name) const;

  const SensorFacts* sensor;
  Tallies& tallies;
  Breaches& breaches;
  const std::uint64_t seed;
  std::atomic<std::uint64_t> calls = 0;
  std::atomic<int> inCallback = 0;
  std::atomic<bool> destroyed = false;
  std::atomic<bool> deaf = false;  // planted: nothing of any item counts as having come
  std::atomic<Clock::rep> toleratedUntil = 0;

  mutable std::mutex mutex;
  std::unordered_map<std::string_view, ItemState> states;
  std::deque<std::string> remembered;  // log lines about subscriptions and errors, the last few
};

}  // namespace ZoSoak
