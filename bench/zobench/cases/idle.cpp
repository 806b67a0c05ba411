// What a quiet plant costs: 1000 items that change, pushed to the host every 100 ms; and what an outage costs.
#include <fmt/format.h>

#include <cmath>
#include <memory>
#include <thread>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/emulator.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"

namespace ZoBench {
namespace {

constexpr int Items = 1000;

Names AllItems(int resources) {
  std::vector<std::string> names;
  const int each = Items / resources;
  for (int i = 0; i < Items; ++i) {
    names.push_back(fmt::format("/r{:03}#/v{:03}", i / each, i % each));
  }
  return Names(std::move(names));
}

struct Window {
  std::map<std::string, double> percent;  // of one core, by thread
  double total = 0;
  double grownBytes = 0;
};

Window Watch(int seconds) {
  const auto before = CpuByThread();
  const double cpu = ProcessCpu();
  const std::size_t allocated = AllocatedBytes();
  const double start = Now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double length = Now() - start;
  Window window;
  window.total = (ProcessCpu() - cpu) / length * 100;
  for (const auto& [name, used] : CpuByThread()) {
    const auto found = before.find(name);
    window.percent[name] = (used - (found == before.end() ? 0 : found->second)) / length * 100;
  }
  window.grownBytes = static_cast<double>(AllocatedBytes()) - static_cast<double>(allocated);
  return window;
}

std::string Breakdown(const Window& window) {
  std::string text;
  for (const auto& [name, percent] : window.percent) {
    if (percent >= 0.0005) {
      text += fmt::format("{}{} {:.3f}", text.empty() ? "" : ", ", name, percent);
    }
  }
  return text;
}

struct Series {
  std::vector<double> totals;
  Window last;
  double grownBytes = 0;  // since the end of the first window: in it the cache still forgets

  void Add(const Window& window) {
    grownBytes += totals.empty() ? 0 : window.grownBytes;
    totals.push_back(window.total);
    last = window;
  }
};

void AddRow(Bench& bench, Row row, const Series& series) {
  row.value = Summarize(series.totals);
  row.note = Breakdown(series.last);
  bench.report.Add(std::move(row));
}

// Windows of a plant whose values are at rest: the passes go on, and there is nothing to be taken in.
Series MeasureRest(Bench& bench, int resources) {
  constexpr double hardlyEver = 0.001;  // Hz
  Emulator sensor(MovingResources(resources, Items / resources, hardlyEver));
  Place(Widest(), {sensor.Pid()});
  Instance instance(bench.First(), sensor.Port());
  instance.Subscribe(AllItems(resources), 100);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  Series series;
  for (int i = 0; i < 5; ++i) {
    const std::uint64_t values = instance.Count().values;
    series.Add(Watch(bench.options.quick ? 1 : 4));
    Check(instance.Count().values > values, "no values came");
  }
  return series;
}

// Windows of the working plant, then windows without its sensor.
void Measure(Bench& bench, int resources) {
  Row working{"idle", fmt::format("1000 items, 100 ms, {} resources at 10 Hz", resources),
              {},     "% of a core",
              {},     {},
              {},     0.4,
              false,  false,
              {}};
  Row rest = working;
  rest.variant = fmt::format("1000 items at rest, {} resources", resources);
  rest.budget.reset();
  Row outage = rest;
  outage.variant = fmt::format("1000 items in an outage, {} resources", resources);
  outage.budget = 0.1;
  Guard(bench, working, [&] {
    const Series resting = MeasureRest(bench, resources);
    AddRow(bench, rest, resting);
    Emulator sensor(MovingResources(resources, Items / resources, 10));
    Place(Widest(), {sensor.Pid()});
    Instance instance(bench.First(), sensor.Port());
    instance.Subscribe(AllItems(resources), 100);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const int seconds = bench.options.quick ? 1 : 4;
    Series series;
    for (int i = 0; i < 5; ++i) {
      const std::uint64_t values = instance.Count().values;
      const double last = instance.Count().last;
      series.Add(Watch(seconds));
      const double expected = Items * 10.0 * seconds;
      const auto got = static_cast<double>(instance.Count().values - values);
      Check(std::abs(got - expected) <= expected / 5 + 2 * Items, fmt::format("{} values came", got));
      Check(instance.Count().last != last, "the values stand still");
    }
    AddRow(bench, working, series);
    sensor.Kill();
    Series without;
    for (int i = 0; i < 5; ++i) {
      const std::uint64_t values = instance.Count().values;
      without.Add(Watch(seconds));
      Check(instance.Count().values > values, "the passes have stopped");
    }
    AddRow(bench, outage, without);
    Row added = outage;
    added.variant = fmt::format("what that outage adds to rest, {} resources", resources);
    added.budget.reset();
    added.value = Summarize({Summarize(without.totals).median - Summarize(resting.totals).median});
    bench.report.Add(std::move(added));
    Row memory = outage;
    memory.variant = fmt::format("memory grown in that outage, {} resources", resources);
    memory.unit = "bytes";
    memory.budget = 0;
    memory.value = Summarize({without.grownBytes});
    bench.report.Add(std::move(memory));
  });
}

// Without items, what is left is the link's own work: pings, and attempts to connect.
void MeasureBare(Bench& bench) {
  Row row{"idle", "no items, connected", {}, "% of a core", {}, {}, {}, {}, false, false, {}};
  Guard(bench, row, [&] {
    Emulator sensor(MovingResources(1, 1, 10));
    Place(Widest(), {sensor.Pid()});
    Instance instance(bench.First(), sensor.Port());
    instance.Read("/r000#/v000");
    Check(instance.Count().values == 1 && instance.Count().invalid == 0, "the sensor cannot be read");
    const int seconds = bench.options.quick ? 1 : 4;
    Series series;
    for (int i = 0; i < 5; ++i) {
      series.Add(Watch(seconds));
    }
    AddRow(bench, row, series);
    sensor.Kill();
    row.variant = "no items, outage";
    row.budget = 0.1;
    Series without;
    for (int i = 0; i < 5; ++i) {
      without.Add(Watch(seconds));
    }
    AddRow(bench, row, without);
  });
}

}  // namespace

void RunIdle(Bench& bench) {
  MeasureBare(bench);
  Measure(bench, 10);
  Measure(bench, 100);
}

}  // namespace ZoBench
