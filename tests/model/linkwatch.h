// Sees what a link hands on, so that a test can wait for it, and takes the luck out of its times.
//
// The program that links this wraps a few operations (see CMakeLists.txt):
// - those by which a push comes into the link's queue and leaves it for a handler are counted;
// - a stream or subscription that was refused to come back is asked for in the next session only, not every 3 s;
// - the registry's worker waits for answers until they are there;
// - a call of the host ends unanswered as soon as the sensor has left its request so;
// - a resource whose reads are braked is not asked about every 5 s: other news of it lift the brake;
// - a resource whose answers end sessions is read ever more rarely by a time that stands until it is told to go on.
// While there is no LinkWatch they do what they always do.
//
// Threads: a test's one, which makes and destroys it; the link's. One at a time, made before the instance and destroyed
// after it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/deadline.h"

namespace ZoModel {

class LinkWatch {
 public:
  LinkWatch();
  LinkWatch(const LinkWatch&) = delete;
  LinkWatch& operator=(const LinkWatch&) = delete;
  ~LinkWatch();

  // Until every push that came into the queue has been through its handler. False when it does not come to that. Two
  // pushes of one URI must not be in the queue at once: of those only one gets through.
  bool WaitUntilHandedOn(ZoTest::Clock::duration limit);

  // What was handed on since the last call, in the order of the texts: "stream /r {...}".
  std::vector<std::string> TakeHandedOn();

  // The sensor may leave a request unanswered; it did ("1 /r", by the method's number); whether it did, told once.
  void ExpectSilence(bool expected);
  bool ExpectsSilence();
  void NoteUnanswered(std::string request);
  bool TakeUnanswered(const std::string& request);

  // Is told when a caller has asked for a subscription and is about to wait for the answer. Set before any does.
  void OnSubscription(std::function<void()> listener) { onSubscription = std::move(listener); }

  // Of the time by which reads come ever more rarely; µs.
  void Advance(long long by) { time += by; }

  // From the wrapped operations.
  static LinkWatch* Current();
  void NoteOffered();
  void NoteHandedOn(std::string push);
  std::chrono::microseconds Time() const { return std::chrono::microseconds(time); }
  void NoteSubscription() const { onSubscription(); }

 private:
  std::atomic<long long> time = 0;
  std::function<void()> onSubscription = [] {};
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t offered = 0;  // guarded by mutex, like all below
  std::size_t handedOn = 0;
  bool silence = false;
  std::multiset<std::string> unanswered;
  std::vector<std::string> pushes;
};

}  // namespace ZoModel
