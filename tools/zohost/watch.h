// The watch command: subscribes items and shows their updates until it is told to end.
//
// Threads: main thread only; see Signals and Inbox for the others.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/zohost/console.h"
#include "tools/zohost/session.h"
#include "tools/zohost/signals.h"
#include "tools/zohost/watchview.h"

namespace zohost {

struct WatchOptions {
  enum class Format { automatic, table, jsonl, csv };
  std::string address;
  std::vector<std::string> items;
  std::chrono::milliseconds interval{200};
  std::optional<std::chrono::milliseconds> duration;
  std::optional<std::uint64_t> count;
  bool onChange = false;
  Format format = Format::automatic;
};

class Watch {
 public:
  // The session, console and signals must outlive the watch.
  Watch(Session& session, Console& console, Signals& signals, WatchOptions options);

  // Subscribes, shows, unsubscribes. Does not close the session. Raises OutputError only before it has
  // subscribed.
  Status Run();

 private:
  using Clock = WatchView::Clock;

  bool Subscribe();
  void TellLosses();
  void Show();
  std::unique_ptr<WatchView> MakeView();
  void Wait();
  void TakeSignals();
  void TakeDelivery(const Delivery& delivery);
  bool Counts(const Update& update);
  bool Ended(Clock::time_point now) const;

  Session& session_;
  Console& console_;
  Signals& signals_;
  WatchOptions options_;
  std::vector<std::string> subscribed_;
  bool refused_ = false;
  Delivery early_;  // came before there was a view
  std::unique_ptr<WatchView> view_;
  std::optional<Clock::time_point> deadline_;
  std::uint64_t shown_ = 0;
  bool ended_ = false;
  std::unordered_map<std::string, Value> lastValues_;
};

}  // namespace zohost
