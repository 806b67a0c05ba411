// How a watch shows its updates: as a table that is redrawn in place, or as lines.
//
// Threads: main thread only.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "tools/zohost/inbox.h"

namespace zohost {

class WatchView {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~WatchView() = default;
  // All operations may raise OutputError, except where noted.
  virtual void Add(const Update& update) = 0;
  // Brings what was added to the screen or file, when its time has come.
  virtual void Show(Clock::time_point now) = 0;
  // When Show wants to be called next, if nothing else happens.
  virtual std::optional<Clock::time_point> NextShow() const = 0;
  // Lines for standard error, without harm to what is shown.
  virtual void Tell(std::string_view lines) = 0;
  virtual void Resized() {}
  // Around a stop of the process by its user.
  virtual void Suspend() {}
  virtual void Resume() {}
  // A descriptor to wait on for keys (or -1), and whether the key that was pressed ends the watch.
  virtual int KeyNumber() const { return -1; }
  virtual bool TakeEndKey() { return false; }
  // The last Show, and the terminal as it was.
  virtual void Finish() = 0;
};

}  // namespace zohost
