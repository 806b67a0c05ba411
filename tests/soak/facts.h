// What the soak knows of its sensors, by which everything that arrives is judged.
//
// Threads: any; a sensor's own keeper writes what stands in Keeper's part, the rest is for all.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <mutex>

#include "tests/support/deadline.h"

namespace ZoSoak {

using ZoTest::Clock;

// How long a healthy sensor's items may stand still. Of the guarantees the slowest chain counts: a dead peer is noticed
// within 3 s, what the sensor refuses to bring back is asked for every 3 s, a request in between may time out with 3 s,
// and /late appears 4 s after its sensor: 13 s. The rest is for a busy machine; sanitizers slow the plug-in and the
// sensor some ten times down.
inline constexpr std::chrono::seconds kStaleLimit{ZoTest::kSanitized ? 45 : 20};

// How long after a disturbance calls may still fail: the time to notice a dead peer, one time-out, and the next attempt to
// connect.
inline constexpr std::chrono::seconds kRecovery{ZoTest::kSanitized ? 20 : 10};

class SensorFacts {
 public:
  explicit SensorFacts(int number) : number(number) {}

  const int number;

  // Keeper's part. A start is counted before its process exists.
  std::atomic<std::uint16_t> port = 0;
  std::atomic<int> start = 0;
  std::atomic<Clock::rep> startedAt = 0;

  // What was done to it last, for messages.
  std::atomic<const char*> lastFault = "none";

  // While this is held the sensor is disturbed by its holder alone.
  std::mutex disturbing;

  void Disturb() {
    ++generation;
    ++disturbances;
  }
  void Settle() {
    calmSince = Clock::now().time_since_epoch().count();
    ++generation;
    --disturbances;
  }
  // Since when nothing has been wrong with it; in the far future while something is.
  Clock::time_point CalmSince() const {
    return disturbances > 0 ? Clock::time_point::max() : Clock::time_point(Clock::duration(calmSince.load()));
  }
  bool IsCalmFor(Clock::duration time) const {
    const Clock::time_point since = CalmSince();
    return since != Clock::time_point::max() && Clock::now() - since >= time;
  }
  // Another one means that there was a disturbance in between.
  std::uint64_t Generation() const { return generation; }

  // Delays and exchanges answers on purpose: an answer that was made before a push may come after it, and so older
  // values after newer ones. Nobody could tell.
  void ExcuseOrder() { excusedUntil = std::numeric_limits<Clock::rep>::max(); }
  void ExcuseOrderUntil(Clock::time_point time) { excusedUntil = time.time_since_epoch().count(); }
  bool IsOrderExcused() const { return Clock::now().time_since_epoch().count() < excusedUntil; }

 private:
  std::atomic<int> disturbances = 0;
  std::atomic<Clock::rep> calmSince = 0;
  std::atomic<std::uint64_t> generation = 0;
  std::atomic<Clock::rep> excusedUntil = 0;
};

// Counts for the summary, and what all share.
struct Tallies {
  const Clock::time_point begin = Clock::now();
  std::atomic<std::uint64_t> writes = 0;  // numbers of written values that were given out
  std::atomic<std::uint64_t> values = 0;
  std::atomic<std::uint64_t> invalids = 0;
  std::atomic<std::uint64_t> results = 0;
  std::atomic<std::uint64_t> slowCallbacks = 0;
  std::atomic<std::uint64_t> logLines[7] = {};  // by level
  std::atomic<std::uint64_t> stragglers = 0;    // callbacks after a destruction that gave a thread up
  std::atomic<std::uint64_t> excusedFalls = 0;  // values out of order while the sensor exchanged answers
  std::atomic<std::uint64_t> refusedSubscriptions = 0;  // the sensor, told to fail, granted neither way
  std::atomic<std::uint64_t> skippedSubscriptions = 0;  // thought to be subscribed already
  std::atomic<std::uint64_t> checkedWrites = 0;         // written and read back from a calm sensor
  std::atomic<std::uint64_t> checkedReads = 0;          // reads that a calm sensor had to answer
  std::atomic<std::uint64_t> checkedChanges = 0;        // last changes that had to arrive
  std::atomic<std::uint64_t> restarts = 0;

  double Seconds() const { return std::chrono::duration<double>(Clock::now() - begin).count(); }
};

}  // namespace ZoSoak
