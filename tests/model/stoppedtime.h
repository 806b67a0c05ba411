// A process in which time stands still: the clock shows what a test sets, and the threads of an instance sleep
// until they are told to work.
//
// The program that links this wraps three functions (see CMakeLists.txt): the system clock, the base library's sleep and
// its join. While there is no StoppedTime they do what they always do.
//
// Threads: a test's one, which makes and destroys it; the instance's workers, from inside their sleep. One at a
// time, made before the instance and destroyed after it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace ZoModel {

class StoppedTime {
 public:
  // now: µs since the epoch.
  explicit StoppedTime(long long now);
  StoppedTime(const StoppedTime&) = delete;
  StoppedTime& operator=(const StoppedTime&) = delete;
  ~StoppedTime();

  void Advance(long long by) { now += by; }
  long long Now() const { return now; }
  // From now on each look at the clock moves it on by so much (µs) for the next one.
  void AdvanceWithEachLook(long long by) { byEachLook = by; }

  // Returns when the monitor thread sleeps; false when it does not come to that.
  bool WaitForMonitor();
  // Lets the monitor thread work once, and waits for it.
  bool MonitorPass();
  // How long each join since the start was to wait at most, in µs, in their order.
  std::vector<std::uint64_t> Joins();

  // From the wrapped functions.
  static StoppedTime* Current();
  long long Look() { return now.fetch_add(byEachLook); }
  // Whether this thread made it.
  bool IsOwner() const { return std::this_thread::get_id() == owner; }
  void SleepMonitor();
  void BeginJoin(std::uint64_t timeout);

 private:
  const std::thread::id owner = std::this_thread::get_id();
  std::atomic<long long> now;
  std::atomic<long long> byEachLook = 0;
  std::mutex mutex;
  std::condition_variable changed;
  bool asleep = false;  // guarded by mutex, like the three below
  bool turn = false;    // to work once
  bool joined = false;
  std::vector<std::uint64_t> joins;
};

}  // namespace ZoModel
