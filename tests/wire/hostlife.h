// The life of a host over a socket that breaks at a byte, or whose base library fails, of the test's choice: create,
// read, write, subscribe, tick, unsubscribe, subscribe again, call, destroy.
//
// Every call must give one of its results in time, and whatever was granted must be there in the end: each call that
// failed is made again, as a host does, and then each change at the sensor must reach the host. The instance is the class
// behind the exports, for these run one at a time over all instances. Threads: one a life; any number of lives at once.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/recorder.h"
#include "tests/wire/plantsensor.h"
#include "tests/wire/swallowingproxy.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoTest {

class HostLife {
 public:
  // No break with number 0.
  explicit HostLife(const SwallowingProxy::Break& point = {.number = 0});
  HostLife(const HostLife&) = delete;
  HostLife& operator=(const HostLife&) = delete;

  // The whole of it.
  void Live();
  // Subscribed, and then the session ends: the next one restores it.
  void LiveThroughARestore();
  // From now on calls may fail without a break.
  void Excuse() { excused = true; }

  const SwallowingProxy& Proxy() const { return proxy; }
  // The longest that a change took to reach the host, and the longest that a call took.
  std::chrono::milliseconds LongestWait() const { return longestWait; }
  std::chrono::milliseconds LongestCall() const { return longestCall; }

 private:
  // False when the sensor could not be reached, for good.
  bool Begin();
  void ExpectOffline();
  void End();
  int Timed(int requests, const std::function<int()>& call);
  void Insist(int requests, const std::function<int()>& call);
  bool MayFail() const { return excused || proxy.Broken(); }
  void ReadFirst();
  void Write(int value);
  void SubscribeBoth();
  void ExpectChange(int value);
  bool CouldNotAsk() const;
  void ExpectToArrive(const std::string& item, int value);
  // For the reader of a failure.
  std::string Story() const;

  PlantSensor sensor;
  SwallowingProxy proxy;
  Recorder recorder;
  std::unique_ptr<ZoIO::ZoVyrnClient> client;
  bool excused = false;
  std::chrono::milliseconds longestWait{0};
  std::chrono::milliseconds longestCall{0};
};

// Does a job, which is told its number from 0, in so many processes of their own side by side, for what is one for the
// whole process. Each failure in them is one here.
void InChildren(unsigned children, const std::function<void(unsigned)>& job);

// Does jobs, so many at once.
void InParallel(std::size_t jobs, std::size_t threads, const std::function<void(std::size_t)>& job);

}  // namespace ZoTest
