// Looks every second whether all is as it was promised.
//
// Threads: one of its own, from the construction to End. Owner: the soak.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "tests/soak/callboard.h"
#include "tests/soak/growth.h"
#include "tests/soak/processfigures.h"
#include "tests/soak/slots.h"

namespace ZoSoak {

// How many bytes the process may grow by from the second quarter of a run to the last. All memory of the plug-in is
// bounded: names stay known for the life of an instance and the soak uses some fifty, the cache forgets after 5 s. What
// varies is how many instances live at a time and how full the allocator's arenas are, and that is some megabytes for
// the default number of instances. Under sanitizers freed memory is kept for a while (the quarantine is set to 16 MiB
// in main.cpp) and each thread that ever ran leaves its shadow.
inline constexpr std::int64_t kGrowthLimit = (ZoTest::kSanitized ? 64LL : 16LL) << 20U;

struct Allowed {
  std::int64_t threads = 0;
  std::int64_t files = 0;
};

class Watch {
 public:
  // allowed: at any time. seconds: how long it will be, roughly.
  Watch(Slots& slots, CallBoard& board, Breaches& breaches, const Allowed& allowed, std::size_t seconds);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  // Does nothing the second time.
  void End();
  // After End: compares quarters of the run.
  void JudgeGrowth(Breaches& breaches) const;

  // A call that never comes back holds up whoever waits for it.
  bool HasSeenStuck() const { return hasSeenStuck; }
  // After End.
  const Series& Memory() const { return memory; }
  const Series& Heap() const { return heap; }
  const Series& Threads() const { return threads; }
  const Series& Files() const { return files; }
  // For the self-test: each second seems to take so many bytes more.
  void PlantGrowth(std::int64_t bytes) { planted = bytes; }

 private:
  void Run();
  void Look();
  void Sample();

  Slots& slots;
  CallBoard& board;
  Breaches& breaches;
  const Allowed allowed;
  Series memory;
  Series heap;
  Series threads;
  Series files;
  std::atomic<bool> hasSeenStuck = false;
  std::atomic<std::int64_t> planted = 0;

  std::mutex mutex;
  std::condition_variable changed;
  bool endWanted = false;
  std::thread thread;
};

}  // namespace ZoSoak
