// Turns signals into something that poll can wait for, while a command watches.
//
// Threads: constructed before the plug-in is loaded, so that every later thread inherits the blocked signals
// and none of them is disturbed; Take belongs to the main thread. One thread of its own waits for the
// signals. Invariants: 1. the first request to end is handed to the main thread; the second one ends the
// process at once (after the emergency text was written), because then the main thread is stuck in a call; 2.
// the destructor puts the signals back.
#pragma once

#include <signal.h>

#include <atomic>
#include <optional>
#include <thread>

#include "tools/zohost/descriptor.h"

namespace zohost {

class Signals {
 public:
  // Raises std::system_error.
  Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  ~Signals();

  // What to do before the process is ended the hard way. Called on the signal thread; must be safe there.
  using Emergency = void (*)() noexcept;
  void SetEmergency(Emergency emergency) { emergency_.store(emergency); }

  // Set by SIGINT, SIGTERM and SIGHUP, and never cleared.
  bool Ending() const { return requests_.load() > 0; }
  // Readable when ending; for those who must not wait any longer.
  int EndingNumber() const { return ending_.Number(); }

  // The next thing that happened: SIGWINCH, SIGTSTP, SIGCONT, or nothing.
  std::optional<int> Take();
  // Readable when there is something to take.
  int HappenedNumber() const { return happened_.Number(); }

 private:
  void Wait();
  void EndAtOnce(int signal);

  sigset_t caught_ = {};
  sigset_t before_ = {};
  WakeUp ending_;
  WakeUp happened_;
  std::atomic<int> requests_ = 0;
  std::atomic<bool> resized_ = false;
  std::atomic<bool> stopped_ = false;
  std::atomic<bool> continued_ = false;
  std::atomic<bool> leaving_ = false;
  std::atomic<Emergency> emergency_ = nullptr;
  std::thread thread_;
};

}  // namespace zohost
