// How long DestroyIoInstance takes, the whole call, in whatever state the link is.
#include <functional>
#include <thread>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/emulator.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"

namespace ZoBench {
namespace {

constexpr int UsualRounds = 15;

const Names& Items() {
  static const Names items({"/r000#/v000", "/r001#/v001", "/r002#/v002", "/r003#/v003"});
  return items;
}

// Milliseconds. A sensor of its own each time; prepare brings it into the state of the variant.
double DestroyOnce(const Plugin& plugin, double rate, bool subscribed,
                   const std::function<void(Emulator&)>& prepare) {
  Emulator sensor(MovingResources(4, 10, rate));
  Place(Widest(), {sensor.Pid()});
  Instance instance(plugin, sensor.Port());
  if (subscribed) {
    instance.Subscribe(Items(), 100);
    Await([&] { return instance.Count().values > instance.Count().invalid; }, "a value");
  } else {
    instance.Read("/r000#/v000");
    Check(instance.Count().values == 1, "the sensor cannot be read");
  }
  prepare(sensor);
  const double start = Now();
  instance.Destroy();
  const double cost = (Now() - start) * 1e3;
  const std::uint64_t values = instance.Count().values;
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  Check(instance.Count().values == values, "a callback came after the end");
  return cost;
}

void Measure(Bench& bench, const char* variant, double rate, bool subscribed,
             const std::function<void(Emulator&)>& prepare) {
  Row row{"destroy", variant, {}, "ms", {}, {}, {}, 50.0, false, false, {}};
  Guard(bench, row, [&] {
    std::vector<double> costs;
    for (int i = 0; i < bench.options.Repetitions(UsualRounds); ++i) {
      costs.push_back(DestroyOnce(bench.First(), rate, subscribed, prepare));
    }
    row.value = Summarize(costs);
    bench.report.Add(row);
  });
}

}  // namespace

void RunDestroy(Bench& bench) {
  const auto nothing = [](Emulator&) {};
  Measure(bench, "idle", 10, false, nothing);
  Measure(bench, "four streams at 1 kHz", 1000, true, nothing);
  Measure(bench, "link down for 50 ms", 10, true, [](Emulator& sensor) {
    sensor.Kill();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  });
  Measure(bench, "sensor silent for 50 ms", 10, true, [](Emulator& sensor) {
    sensor.Freeze();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  });
}

}  // namespace ZoBench
