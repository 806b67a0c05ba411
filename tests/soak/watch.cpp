#include "tests/soak/watch.h"

#include <fmt/format.h>

namespace ZoSoak {

Watch::Watch(Slots& slots, CallBoard& board, Breaches& breaches, const Allowed& allowed, std::size_t seconds)
    : slots(slots),
      board(board),
      breaches(breaches),
      allowed(allowed),
      memory(seconds),
      heap(seconds),
      threads(seconds),
      files(seconds),
      thread([this] { Run(); }) {}

Watch::~Watch() {
  End();
}

void Watch::End() {
  {
    const std::lock_guard lock(mutex);
    endWanted = true;
    changed.notify_all();
  }
  if (thread.joinable()) {
    thread.join();
  }
}

void Watch::Run() {
  std::unique_lock lock(mutex);
  while (!changed.wait_for(lock, std::chrono::seconds(1), [this] { return endWanted; })) {
    lock.unlock();
    Look();
    lock.lock();
  }
}

void Watch::Look() {
  Sample();
  for (const std::string& what : board.Stuck(Clock::now())) {
    breaches.Report("stuck call", what);
    if (!hasSeenStuck.exchange(true)) {
      PrintStacks();
    }
  }
  for (const auto& listener : slots.Listeners()) {
    for (const std::string& what : listener->StandingStill()) {
      breaches.Report("subscription stands still", what);
    }
  }
}

void Watch::Sample() {
  const ProcessFigures figures = TakeFigures();
  const std::int64_t more = planted * static_cast<std::int64_t>(memory.Count());
  memory.Add(figures.memory + more);
  heap.Add(figures.heap + more);
  threads.Add(figures.threads);
  files.Add(figures.files);
  if (figures.threads > allowed.threads) {
    breaches.Report("threads", fmt::format("{}, and {} are allowed", figures.threads, allowed.threads));
  }
  if (figures.files > allowed.files) {
    breaches.Report("descriptors", fmt::format("{}, and {} are allowed", figures.files, allowed.files));
  }
}

void Watch::JudgeGrowth(Breaches& report) const {
  for (const auto& [name, series] : {std::pair("memory", &memory), {"heap", &heap}}) {
    if (series->Growth() > kGrowthLimit) {
      report.Report("growth",
                    fmt::format("{}: medians of the quarters {}, {}, {}, {} bytes; the limit from the second "
                                "to the last is {}",
                                name, series->QuarterMedian(0), series->QuarterMedian(1),
                                series->QuarterMedian(2), series->QuarterMedian(3), kGrowthLimit));
    }
  }
}

}  // namespace ZoSoak
