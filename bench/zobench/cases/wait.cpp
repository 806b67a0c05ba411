// How long a host's call waits while the monitor thread walks many items: ReadItem of a simulator, which asks nobody.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"

namespace ZoBench {
namespace {

constexpr int WalkedItems = 100'000;
constexpr int UsualReads = 1500;

Names WalkedNames() {
  std::vector<std::string> names;
  for (int i = 0; i < WalkedItems; ++i) {
    names.push_back(fmt::format("/r{:04}#/int{:03}", i / 100, i % 100));
  }
  return Names(std::move(names));
}

// Sorted microseconds of so many reads, with pauses that keep no step with the passes.
std::vector<double> ReadTimes(Instance& instance, int count) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int> pause(500, 1500);
  std::vector<double> times;
  for (int i = 0; i < count; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
    const double start = Now();
    instance.Read("/demo#/int");
    times.push_back((Now() - start) * 1e6);
  }
  std::sort(times.begin(), times.end());
  return times;
}

void AddTimes(Bench& bench, const char* variant, const std::vector<double>& times) {
  Row row{"wait", variant, {}, "us", Summarize(times), {}, {}, {}, false, false, {}};
  row.note = fmt::format("p50 {:.1f}, p99 {:.1f}, max {:.1f}", Quantile(times, 0.5), Quantile(times, 0.99),
                         times.back());
  bench.report.Add(std::move(row));
}

}  // namespace

void RunWait(Bench& bench) {
  const Row row{"wait", "100000 items", {}, "us", {}, {}, {}, {}, false, false, {}};
  Guard(bench, row, [&] {
    // A host's thread and the monitor thread are free to run side by side.
    ReleaseProcess(::getpid());
    const int reads = bench.options.Repetitions(UsualReads);
    const Names names = WalkedNames();
    Instance other(bench.First(), Simulator);
    Instance walked(bench.First(), Simulator);
    other.Read("/demo#/int");
    walked.Read("/demo#/int");
    Check(other.Count().values == 1 && walked.Count().values == 1, "the simulator cannot be read");
    AddTimes(bench, "nothing subscribed", ReadTimes(walked, reads));
    walked.Subscribe(names, 100);
    const std::uint64_t values = walked.Count().values;
    Await([&] { return walked.Count().values >= values + 2 * WalkedItems; }, "two passes");
    AddTimes(bench, "the instance of 100000 items at 100 ms", ReadTimes(walked, reads));
    AddTimes(bench, "another instance meanwhile", ReadTimes(other, reads));
    walked.Unsubscribe(names);
  });
}

}  // namespace ZoBench
