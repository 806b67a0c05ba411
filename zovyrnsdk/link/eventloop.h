// The link's event loop: sockets and timers, run by whichever thread drives.
//
// Threads: RunOne is called by one thread at a time, which the driver sees to; Post and Poke by any thread.
// Owner: the connection. Handlers run inside RunOne, without any lock held.
#pragma once

#include <functional>
#include <memory>

#include "zovyrnsdk/link/clock.h"

namespace ZoSdk {

class EventLoop {
 public:
  struct Impl;

  EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop();

  // Waits for one thing to do and does it, until the time at most. False when there was none.
  bool RunOne(Time until);

  // Lets the driver run this next.
  void Post(std::function<void()> work);
  // Makes a RunOne that waits return.
  void Poke();
  // Makes every RunOne return at once, from now on. Any thread.
  void Stop() noexcept;

  // Does what is ready, and leaves out what raises. Nobody may drive any more.
  void Drain() noexcept;

  // The one alarm: calls handler once at that time, in place of what was set before. Driver only.
  void SetAlarm(Time when, std::function<void()> handler);

  Impl& Inside() { return *impl; }

 private:
  std::unique_ptr<Impl> impl;
};

}  // namespace ZoSdk
