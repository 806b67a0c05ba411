// Which calls of exports are under way, and how long they and all before them took.
//
// Threads: each seat is of one thread; any may look. Owner: the soak.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "tests/soak/breaches.h"
#include "tests/soak/histogram.h"
#include "tests/support/deadline.h"

namespace ZoSoak {

using ZoTest::Clock;

enum class CallKind { Create, Destroy, Read, Write, Subscribe, Unsubscribe, Method, Info };
inline constexpr std::size_t kCallKinds = 8;
const char* Text(CallKind kind);

// Names in one call. Its worst case is a multiple of it.
inline constexpr std::size_t kMostNames = 4;

// How long a call may take that no other call holds up.
std::chrono::milliseconds LimitOf(CallKind kind);
// The same for the slowest kind.
std::chrono::milliseconds LongestLimit();

class CallBoard {
 public:
  CallBoard(std::size_t seats, Breaches& breaches);

  // Its lifetime is the time of a call.
  class Call {
   public:
    // alone: no other call begins before it has ended.
    Call(CallBoard& board, std::size_t seat, CallKind kind, bool alone = false);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    // What it has taken so far.
    Clock::duration Taken() const { return Clock::now() - begin; }

   private:
    CallBoard& board;
    const std::size_t seat;
    const CallKind kind;
    const bool alone;
    Clock::time_point begin;
  };

  // Calls that take longer than they can: one sentence each, and each once.
  std::vector<std::string> Stuck(Clock::time_point now);
  // For the self-test: a call that began so long ago.
  void Plant(std::size_t seat, Clock::duration ago);

  const Histogram& Of(CallKind kind) const { return histograms[static_cast<std::size_t>(kind)]; }
  std::uint64_t AloneCount() const { return aloneCount; }

 private:
  struct Seat {
    std::atomic<int> kind = -1;  // none is under way
    std::atomic<Clock::rep> since = 0;
    std::atomic<bool> reported = false;
  };

  void Enter(bool alone);
  void Leave(bool alone);

  Breaches& breaches;
  std::vector<Seat> seats;
  std::array<Histogram, kCallKinds> histograms;
  std::atomic<Clock::rep> lastEnd = 0;
  std::atomic<std::uint64_t> aloneCount = 0;

  std::mutex mutex;
  std::condition_variable changed;
  std::size_t inside = 0;
  std::size_t aloneWanted = 0;
  bool isAlone = false;
};

}  // namespace ZoSoak
