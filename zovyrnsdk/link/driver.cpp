#include "zovyrnsdk/link/driver.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace ZoSdk {

namespace {

constexpr std::chrono::milliseconds aside{4};        // after an asker left: it may well ask again
constexpr std::chrono::milliseconds look{2};         // between two looks while pushes come and others drive
constexpr std::chrono::milliseconds pushesLast{50};  // pushes are taken to go on for so long
constexpr std::chrono::milliseconds longWait{500};   // insurance alone: everything that matters wakes

}  // namespace

Driver::Driver(EventLoop& loop, std::function<void()> atTakeOver, std::function<void()> atFault)
    : loop(loop), atTakeOver(std::move(atTakeOver)), atFault(std::move(atFault)) {}

void Driver::Await(const std::atomic<bool>& done, Time deadline) {
  AwaitUntil(done, deadline, false);
}

void Driver::AwaitClosing(const std::atomic<bool>& done, Time deadline) {
  AwaitUntil(done, deadline, true);
}

void Driver::AwaitUntil(const std::atomic<bool>& done, Time deadline, bool closing) {
  Waiter self{&done, {}, false};
  Zo::MutexLock lock(mutex);
  const auto place = waiters.insert(closing ? waiters.begin() : waiters.end(), &self);
  // What raises, for want of memory, must leave no trace here: neither a waiter that is gone nor a driver that
  // does not drive.
  std::exception_ptr fault;
  while (!fault && !done && (closing || !closed) && Clock::now() < deadline) {
    if (!driving) {
      driving = true;
      mutex.unlock();
      try {
        Drive(done, deadline, closing);
      } catch (...) {  // raised again below
        fault = std::current_exception();
        atFault();
      }
      mutex.lock();
      driving = false;
      asideUntil = Clock::now() + aside;
    } else {
      // Whoever drives looks at the waiters when it leaves the loop; the own thread leaves when it is poked.
      if (own == Own::Driving || closing) {
        try {
          loop.Poke();
        } catch (...) {  // raised again below
          fault = std::current_exception();
          break;
        }
      }
      self.asleep = true;
      if (deadline == never) {
        self.wake.wait(mutex);
      } else {
        self.wake.wait_until(mutex, deadline);
      }
      self.asleep = false;
    }
  }
  waiters.erase(place);
  PassOn();
  if (fault) {
    std::rethrow_exception(fault);
  }
}

void Driver::Drive(const std::atomic<bool>& done, Time deadline, bool closing) {
  atTakeOver();
  bool inTime = true;
  while (inTime && !done && (closing || !closed)) {
    inTime = loop.RunOne(deadline);
  }
}

void Driver::PassOn() {
  if (driving) {
    return;
  }
  if (!waiters.empty()) {
    waiters.front()->wake.notify_one();
  } else if (own == Own::Waiting) {
    ownWake.notify_one();
  }
}

void Driver::Notify() {
  Zo::MutexLock lock(mutex);
  for (Waiter* waiter : waiters) {
    if (waiter->asleep && *waiter->done) {
      waiter->wake.notify_one();
    }
  }
}

void Driver::Kick(const std::function<void()>& work) {
  bool post = false;
  {
    Zo::MutexLock lock(mutex);
    post = driving;
  }
  if (post) {
    loop.Post(work);
  }
}

void Driver::Serve(Time until) {
  Zo::MutexLock lock(mutex);
  const Time now = Clock::now();
  // The push may have come, with an asker that drove and left, when this thread had looked already.
  if (closed || now >= until || std::exchange(pushWaits, false)) {
    return;
  }
  const bool busy = driving || !waiters.empty();
  if (busy || now < asideUntil) {
    const Time limit = now < pushesUntil ? now + look : busy ? now + longWait : asideUntil;
    // A short wait needs no wake-up when an asker leaves, which would cost the asker time.
    own = limit > now + aside ? Own::Waiting : Own::Away;
    ownWake.wait_until(mutex, std::min(limit, until));
    own = Own::Away;
    pushWaits = false;
    return;
  }
  driving = true;
  own = Own::Driving;
  mutex.unlock();
  std::exception_ptr fault;
  try {
    atTakeOver();
    loop.RunOne(until);
  } catch (...) {  // raised again below
    fault = std::current_exception();
    atFault();
  }
  mutex.lock();
  own = Own::Away;
  driving = false;
  pushWaits = false;
  PassOn();
  if (fault) {
    std::rethrow_exception(fault);
  }
}

void Driver::PushArrived() {
  Zo::MutexLock lock(mutex);
  pushesUntil = Clock::now() + pushesLast;
  pushWaits = true;
  if (own == Own::Waiting) {
    ownWake.notify_one();
  }
}

void Driver::Close() noexcept {
  {
    Zo::MutexLock lock(mutex);
    closed = true;
    for (Waiter* waiter : waiters) {
      waiter->wake.notify_one();
    }
    ownWake.notify_one();
  }
  try {
    loop.Poke();
  } catch (const std::bad_alloc&) {
    loop.Stop();  // needs no memory; what the loop still had to do goes with it
  }
}

}  // namespace ZoSdk
