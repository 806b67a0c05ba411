// How long a host's call waits while the monitor thread walks many items: ReadItem of a simulator, which asks nobody, and
// of a sensor, which has no pass of its own.
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
#include "bench/zobench/scriptedsensor.h"

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
std::vector<double> ReadTimes(Instance& instance, const std::string& item, int count) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int> pause(500, 1500);
  std::vector<double> times;
  const std::uint64_t values = instance.Count().values;
  const std::uint64_t invalid = instance.Count().invalid;
  for (int i = 0; i < count; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
    const double start = Now();
    instance.Read(item);
    times.push_back((Now() - start) * 1e6);
  }
  Check(instance.Count().values - values >= static_cast<std::uint64_t>(count), "a read brought no value");
  Check(instance.Count().invalid == invalid, "a value was not valid");
  std::sort(times.begin(), times.end());
  return times;
}

void AddTimes(Bench& bench, const char* variant, const std::vector<double>& times) {
  Row row{"wait", variant, {}, "us", Summarize(times), {}, {}, {}, false, false, {}};
  row.note = fmt::format("p50 {:.1f}, p99 {:.1f}, max {:.1f}", Quantile(times, 0.5), Quantile(times, 0.99),
                         times.back());
  bench.report.Add(std::move(row));
}

// Two passes at least have gone over all items, and every value was valid: a simulated one is from the simulator's next
// pass on, of which there is one a second.
void AwaitPasses(Instance& instance) {
  const Counters& count = instance.Count();
  std::uint64_t values = count.values;
  std::uint64_t invalid = count.invalid;
  Await(
      [&] {
        if (count.invalid != invalid) {
          invalid = count.invalid;
          values = count.values;
        }
        return count.values >= values + 2 * WalkedItems;
      },
      "two passes of valid values");
}

void MeasureSensor(Bench& bench) {
  const Row row{"wait", "a sensor's, 100000 items", {}, "us", {}, {}, {}, {}, false, false, {}};
  Guard(bench, row, [&] {
    constexpr int members = 100;
    const ScriptedSensor sensor([](std::string_view) { return ScriptedMembers(members); });
    ReleaseProcess(sensor.Pid());
    std::vector<std::string> items;
    for (int i = 0; i < WalkedItems; ++i) {
      items.push_back(ItemName(i / members, i % members));
    }
    const Names names(std::move(items));
    const std::string item = ItemName(0, 2);
    const int reads = bench.options.Repetitions(UsualReads);
    Instance walked(bench.First(), sensor.Port());
    walked.Read(item);
    Check(walked.Count().values == 1 && walked.Count().last == ScriptedValue(2), "the sensor cannot be read");
    AddTimes(bench, "a sensor's, nothing subscribed", ReadTimes(walked, item, reads));
    walked.Subscribe(names, 100);
    AwaitPasses(walked);
    AddTimes(bench, "a sensor's, its instance has 100000 items at 100 ms", ReadTimes(walked, item, reads));
  });
}

}  // namespace

void RunWait(Bench& bench) {
  const Row row{"wait", "100000 items", {}, "us", {}, {}, {}, {}, false, false, {}};
  Guard(bench, row, [&] {
    // A host's thread and the monitor thread are free to run side by side.
    ReleaseProcess(::getpid());
    const int reads = bench.options.Repetitions(UsualReads);
    const Names names = WalkedNames();
    const std::string item =
        "/demo#";  // the simulator answers a read with the resource's name, which is a value here
    Instance other(bench.First(), Simulator);
    Instance walked(bench.First(), Simulator);
    other.Read(item);
    walked.Read(item);
    Check(other.Count().values == 1 && walked.Count().values == 1, "the simulator cannot be read");
    AddTimes(bench, "nothing subscribed", ReadTimes(walked, item, reads));
    walked.Subscribe(names, 100);
    AwaitPasses(walked);
    AddTimes(bench, "the instance of 100000 items at 100 ms", ReadTimes(walked, item, reads));
    AddTimes(bench, "another instance meanwhile", ReadTimes(other, item, reads));
    walked.Unsubscribe(names);
  });
  MeasureSensor(bench);
}

}  // namespace ZoBench
