// Decides which thread runs the link's event loop.
//
// Waking a thread on another core costs more than everything else in a read, so a thread that waits for an
// answer runs the loop itself until the answer is there or its time is up. The link's own thread runs it when
// nobody asks; it steps aside when somebody does, and stays aside for some milliseconds after. One asker
// drives, the others wait and take over when it leaves. Who drives never decides what is right, only what is
// quick. Threads: any number of askers, one thread of the link's own. Owner: the connection. Lock: its own,
// entered with the connection's lock held by nobody; none is held while the loop runs. Invariants: (1)
// driving is true exactly while one thread is in EventLoop::RunOne or about to; (2) whoever stops driving
// wakes a successor if there is one.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <list>

#include "qapi/annotations.h"
#include "zoapi/threads/lockranks.h"
#include "zovyrnsdk/link/clock.h"
#include "zovyrnsdk/link/eventloop.h"

namespace ZoSdk {

class Driver {
 public:
  // atTakeOver is called, without a lock, by each thread that begins to drive; atFault, which must not raise, by one
  // that stops because the loop or atTakeOver raised.
  Driver(EventLoop& loop, std::function<void()> atTakeOver, std::function<void()> atFault);
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Returns when done, at the deadline, or once Close was called. Raises what the loop or atTakeOver raised
  // while this thread drove; others then go on.
  void Await(const std::atomic<bool>& done, Time deadline);
  // The same, Close or not: for who takes the link down.
  void AwaitClosing(const std::atomic<bool>& done, Time deadline);

  // Somebody's done may have become true.
  void Notify();

  // New work for whoever drives: posted when somebody does; else the next one to take over finds it.
  void Kick(const std::function<void()>& work);

  // The own thread's turn: drives for a while, or waits while others do. Returns often, at the time at the
  // latest.
  void Serve(Time until);
  // A push waits for the own thread.
  void PushArrived();

  // All who wait return. Any thread.
  void Close() noexcept;
  bool Closed() const { return closed; }

 private:
  struct Waiter {
    const std::atomic<bool>* done;
    std::condition_variable_any wake;
    bool asleep = false;  // else it drives, or is on its way to look
  };
  enum class Own { Away, Driving, Waiting };

  void AwaitUntil(const std::atomic<bool>& done, Time deadline, bool closing);
  void Drive(const std::atomic<bool>& done, Time deadline, bool closing);
  void PassOn() Q_REQUIRES(mutex);

  EventLoop& loop;
  const std::function<void()> atTakeOver;
  const std::function<void()> atFault;
  std::atomic<bool> closed{false};

  Zo::Mutex mutex{"ZoLink driver", Zo::LockRank_Link + 1};
  std::condition_variable_any ownWake;
  bool driving Q_GUARDED_BY(mutex) = false;
  Own own Q_GUARDED_BY(mutex) = Own::Away;
  Time asideUntil Q_GUARDED_BY(mutex){};
  Time pushesUntil Q_GUARDED_BY(mutex){};      // pushes came lately, so the own thread looks often
  bool pushWaits Q_GUARDED_BY(mutex) = false;  // it came since the own thread was here last
  std::list<Waiter*> waiters Q_GUARDED_BY(mutex);
};

}  // namespace ZoSdk
