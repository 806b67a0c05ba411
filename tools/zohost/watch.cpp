#include "tools/zohost/watch.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <unordered_set>
#include <utility>

#include "tools/zohost/lineview.h"
#include "tools/zohost/tableview.h"
#include "tools/zohost/terminal.h"
#include "tools/zohost/text.h"

namespace zohost {
namespace {

// Subscribing an item twice would take two unsubscribes, and it has one row anyway.
std::vector<std::string> WithoutRepeats(const std::vector<std::string>& items) {
  std::unordered_set<std::string> seen;
  std::vector<std::string> unique;
  std::copy_if(items.begin(), items.end(), std::back_inserter(unique),
               [&](const std::string& item) { return seen.insert(item).second; });
  return unique;
}

std::string IntervalText(std::chrono::milliseconds interval) {
  return interval.count() % 1000 == 0 && interval.count() > 0 ? fmt::format("{}s", interval.count() / 1000)
                                                              : fmt::format("{}ms", interval.count());
}

std::string LostUpdatesText(std::uint64_t count) {
  return fmt::format(
      "zohost: {} updates were lost here, because they came quicker than they could be shown.\n", count);
}

int MillisecondsUntil(WatchView::Clock::time_point time) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - WatchView::Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 60'000));
}

}  // namespace

Watch::Watch(Session& session, Console& console, Signals& signals, WatchOptions options)
    : session_(session), console_(console), signals_(signals), options_(std::move(options)) {
  options_.items = WithoutRepeats(options_.items);
}

Status Watch::Run() {
  if (!Subscribe()) {
    return Status::refused;
  }
  try {
    Show();
  } catch (const OutputError& error) {
    view_.reset();
    // A reader that has seen enough ends a watch like Ctrl-C does.
    if (!error.closed) {
      Console::Tell(fmt::format("zohost: standard output takes no more: {}.\n", error.what()));
      refused_ = true;
    }
  }
  view_.reset();
  session_.Unsubscribe(subscribed_);
  TellLosses();
  return refused_ ? Status::refused : Status::done;
}

// What came too late to be shown is the user's wish; what came before and is missing is not.
void Watch::TellLosses() {
  const Delivery last = session_.Take();
  console_.Absorb(last);
  if (last.lostUpdates > 0) {
    Console::Tell(LostUpdatesText(last.lostUpdates));
  }
  if (const std::size_t bytes = console_.Out().Abandoned(); bytes > 0) {
    Console::Tell(fmt::format("zohost: {} bytes were not taken by the reader of standard output.\n", bytes));
  }
}

bool Watch::Subscribe() {
  const std::vector<std::string> failed = session_.Subscribe(options_.items, options_.interval);
  const std::unordered_set<std::string> failedNames(failed.begin(), failed.end());
  std::copy_if(options_.items.begin(), options_.items.end(), std::back_inserter(subscribed_),
               [&](const std::string& item) { return !failedNames.contains(item); });
  if (failed.empty()) {
    return true;
  }
  refused_ = true;
  early_ = session_.Take();  // the reasons are wanted now, the first updates later
  console_.Absorb(early_);
  early_.log.clear();
  early_.lostLogLines = 0;
  if (subscribed_.empty()) {
    console_.Refuse(fmt::format("nothing could be subscribed at {}.", Printable(options_.address)),
                    "The sensor is not connected.");
    return false;
  }
  for (const std::string& item : failed) {
    console_.Refuse(fmt::format("{} could not be subscribed.", Printable(item)), "");
  }
  return true;
}

void Watch::Show() {
  view_ = MakeView();
  if (options_.duration) {
    deadline_ = Clock::now() + *options_.duration;
  }
  while (true) {
    TakeSignals();
    const Clock::time_point now = Clock::now();
    TakeDelivery(std::exchange(early_, {}));
    TakeDelivery(session_.Take());
    view_->Show(now);
    console_.Out().CheckReader();
    if (Ended(now)) {
      break;
    }
    Wait();
  }
  view_->Finish();
}

std::unique_ptr<WatchView> Watch::MakeView() {
  using Format = WatchOptions::Format;
  Output& out = console_.Out();
  if (options_.format == Format::jsonl || options_.format == Format::csv) {
    return std::make_unique<LineView>(out,
                                      options_.format == Format::jsonl ? LineFormat::jsonl : LineFormat::csv);
  }
  if (out.IsTerminal() && TerminalCanMove()) {
    signals_.SetEmergency(&Terminal::Emergency);
    const std::string title =
        fmt::format("{}: {} item{} every {}{}", Printable(options_.address), subscribed_.size(),
                    subscribed_.size() == 1 ? "" : "s", IntervalText(options_.interval),
                    options_.onChange ? ", changes only" : "");
    return std::make_unique<TableView>(out, title, subscribed_);
  }
  return std::make_unique<LineView>(out, LineFormat::plain);
}

void Watch::Wait() {
  int timeout = -1;
  for (const std::optional<Clock::time_point>& time : {view_->NextShow(), deadline_}) {
    if (time) {
      const int left = MillisecondsUntil(*time);
      timeout = timeout < 0 ? left : std::min(timeout, left);
    }
  }
  std::array<pollfd, 5> waiting = {{{session_.WakeUpNumber(), POLLIN, 0},
                                    {signals_.EndingNumber(), POLLIN, 0},
                                    {signals_.HappenedNumber(), POLLIN, 0},
                                    {view_->KeyNumber(), POLLIN, 0},
                                    {console_.Out().Number(), 0, 0}}};  // errors only: the reader has gone
  if (poll(waiting.data(), waiting.size(), timeout) > 0 && waiting[3].revents != 0 && view_->TakeEndKey()) {
    ended_ = true;
  }
}

void Watch::TakeSignals() {
  while (const std::optional<int> signal = signals_.Take()) {
    if (*signal == SIGWINCH) {
      view_->Resized();
    } else if (*signal == SIGTSTP) {
      view_->Suspend();
      raise(SIGSTOP);
    } else {
      view_->Resume();
    }
  }
}

void Watch::TakeDelivery(const Delivery& delivery) {
  view_->Tell(console_.Log().Add(delivery.log));
  if (delivery.lostLogLines > 0) {
    view_->Tell(Console::LostLogLinesText(delivery.lostLogLines));
  }
  if (delivery.lostUpdates > 0) {
    view_->Tell(LostUpdatesText(delivery.lostUpdates));
  }
  for (const Update& update : delivery.updates) {
    if (signals_.Ending() || (options_.count && shown_ >= *options_.count)) {
      return;
    }
    if (Counts(update)) {
      view_->Add(update);
      ++shown_;
    }
  }
}

bool Watch::Counts(const Update& update) {
  if (!options_.onChange) {
    return true;
  }
  const auto [last, first] = lastValues_.try_emplace(update.item, update.value);
  if (!first && last->second.SameAs(update.value)) {
    return false;
  }
  last->second = update.value;
  return true;
}

bool Watch::Ended(Clock::time_point now) const {
  return ended_ || signals_.Ending() || (deadline_ && now >= *deadline_) ||
         (options_.count && shown_ >= *options_.count);
}

}  // namespace zohost
