// How long a host's call waits while the monitor thread walks many items: ReadItem of a simulator, which asks nobody, and
// of a sensor, which has no pass of its own.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
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

// A host that counts, and apart what comes of the one item that it reads.
struct Reader {
  Reader(const Plugin& plugin, std::uint16_t port, std::string name)
      : item(std::move(name)), instance(plugin, port, &OnValue, this) {}

  static void OnValue(const char* itemName, const ioDataValue* value, void* context) {
    auto& reader = *static_cast<Reader*>(context);
    reader.ofItem += reader.item == itemName ? 1 : 0;
    Counters::OnValue(itemName, value, &reader.all);
  }

  const std::string item;
  std::atomic<std::uint64_t> ofItem{0};
  Counters all;
  Instance instance;  // last, as it calls back until it is gone
};

// Sorted microseconds of so many reads, with pauses that keep no step with the passes, which do not have the item.
std::vector<double> ReadTimes(Reader& reader, int count) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int> pause(500, 1500);
  std::vector<double> times;
  const std::uint64_t values = reader.ofItem;
  const std::uint64_t invalid = reader.all.invalid;
  for (int i = 0; i < count; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
    const double start = Now();
    reader.instance.Read(reader.item);
    times.push_back((Now() - start) * 1e6);
  }
  Check(reader.ofItem - values == static_cast<std::uint64_t>(count), "not each read brought a value");
  Check(reader.all.invalid == invalid, "a value was not valid");
  std::sort(times.begin(), times.end());
  return times;
}

void AddTimes(Bench& bench, const char* variant, const std::vector<double>& times) {
  Row row{"wait", variant, {}, "us", Summarize(times), {}, {}, {}, false, false, {}};
  row.note = fmt::format("p50 {:.1f}, p99 {:.1f}, max {:.1f}", Quantile(times, 0.5), Quantile(times, 0.99),
                         times.back());
  bench.report.Add(std::move(row));
}

// Two passes at least have gone over all items, and every value was valid. Simulated ones become valid in the simulator's
// own next pass, of which there is one a second.
void AwaitPasses(const Counters& count) {
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
    constexpr int members = 100;  // and one more, which is read
    const ScriptedSensor sensor([](std::string_view) { return ScriptedMembers(members + 1); });
    ReleaseProcess(sensor.Pid());
    std::vector<std::string> items;
    for (int i = 0; i < WalkedItems; ++i) {
      items.push_back(ItemName(i / members, i % members));
    }
    const Names names(std::move(items));
    const int reads = bench.options.Repetitions(UsualReads);
    Reader walked(bench.First(), sensor.Port(), ItemName(0, members));
    walked.instance.Read(walked.item);
    Check(walked.ofItem == 1 && walked.all.last == ScriptedValue(members), "the sensor cannot be read");
    AddTimes(bench, "a sensor's, nothing subscribed", ReadTimes(walked, reads));
    walked.instance.Subscribe(names, 100);
    AwaitPasses(walked.all);
    AddTimes(bench, "a sensor's, its instance has 100000 items at 100 ms", ReadTimes(walked, reads));
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
    // A simulator answers a read with the URI of the resource, which for this item is a valid value.
    const std::string item = "/demo#";
    Reader other(bench.First(), Simulator, item);
    Reader walked(bench.First(), Simulator, item);
    AddTimes(bench, "nothing subscribed", ReadTimes(walked, reads));
    walked.instance.Subscribe(names, 100);
    AwaitPasses(walked.all);
    AddTimes(bench, "the instance of 100000 items at 100 ms", ReadTimes(walked, reads));
    AddTimes(bench, "another instance meanwhile", ReadTimes(other, reads));
    walked.instance.Unsubscribe(names);
  });
  MeasureSensor(bench);
}

}  // namespace ZoBench
