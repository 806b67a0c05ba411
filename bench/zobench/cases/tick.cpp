// What a pass over the subscribed items costs the monitor thread, beside a walk over a flat table with the same callback.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"
#include "bench/zobench/references.h"
#include "bench/zobench/scriptedsensor.h"

namespace ZoBench {
namespace {

constexpr int UsualPasses = 15;

// Takes the time from a pass's first callback to its last, and adds up what they bring.
struct PassSink {
  struct Pass {
    double cost = 0;  // seconds of CPU
    double sum = 0;
  };

  std::uint64_t items = 0;
  std::uint64_t seen = 0;
  double sum = 0;
  double start = 0;
  std::array<Pass, 64> recent{};  // each at its number
  std::atomic<std::uint64_t> passes{0};

  static void OnValue(const char* /*itemName*/, const ioDataValue* value, void* context) {
    auto& sink = *static_cast<PassSink*>(context);
    if (sink.seen == 0) {
      sink.start = ThreadCpu();
      sink.sum = 0;
    }
    sink.sum += NumberOf(*value);
    if (++sink.seen == sink.items) {
      sink.recent[sink.passes % sink.recent.size()] = {ThreadCpu() - sink.start, sink.sum};
      sink.seen = 0;
      sink.passes.fetch_add(1, std::memory_order_release);
    }
  }

  // The pass of that number, of which there are a few later ones at most.
  Pass Await(std::uint64_t number) const {
    ZoBench::Await([&] { return passes.load(std::memory_order_acquire) > number; }, "a pass");
    return recent[number % recent.size()];
  }
};

struct Shape {
  int items;
  int resources;
  bool shuffled;

  int Members() const { return items / resources; }
  long long Interval() const { return items <= 10'000 ? 100 : items <= 100'000 ? 500 : 3000; }
};

Names NamesOf(const Shape& shape) {
  std::vector<std::string> names;
  names.reserve(static_cast<std::size_t>(shape.items));
  for (int i = 0; i < shape.items; ++i) {
    names.push_back(ItemName(i / shape.Members(), i % shape.Members()));
  }
  if (shape.shuffled) {
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
  }
  return Names(std::move(names));
}

// The sum of a pass in which every resource is of the round.
double ExpectedSum(const Shape& shape, std::uint64_t round) {
  double sum = static_cast<double>(FirstRound + round);
  for (int member = 1; member < shape.Members(); ++member) {
    sum += ScriptedValue(member);
  }
  return sum * shape.resources;
}

FlatTable TableOf(const Shape& shape) {
  FlatTable table;
  for (int i = 0; i < shape.items; ++i) {
    const int member = i % shape.Members();
    table.Add(ItemName(i / shape.Members(), member),
              member == 0 ? static_cast<double>(FirstRound) : ScriptedValue(member));
  }
  return table;
}

class TickRun {
 public:
  TickRun(Bench& bench, const Shape& shape)
      : bench(bench),
        shape(shape),
        sensor([this](std::string_view) { return ScriptedMembers(this->shape.Members() - 1); }) {
    Place(Widest(), {sensor.Pid()});
    const Names names = NamesOf(shape);
    for (const Subject& subject : bench.subjects) {
      sinks.push_back(std::make_unique<PassSink>());
      sinks.back()->items = static_cast<std::uint64_t>(shape.items);
      instances.push_back(
          std::make_unique<Instance>(*subject.plugin, sensor.Port(), &PassSink::OnValue, sinks.back().get()));
      instances.back()->Subscribe(names, shape.Interval());
    }
    for (const auto& sink : sinks) {
      sink->Await(0);
    }
  }

  void Measure(bool changing) {
    const Row row = RowOf(changing);
    Guard(bench, row, [&] { AddCompared(bench, row, Passes(changing)); });
  }

  Row RowOf(bool changing) const {
    Row row{"tick",
            fmt::format("{} items, {} resources, {}, {}", shape.items, shape.resources,
                        shape.shuffled ? "shuffled" : "ordered", changing ? "changing" : "still"),
            {},
            "ns/item",
            {},
            {},
            {},
            {},
            false,
            false,
            {}};
    if (shape.items == 100'000 && shape.resources == 1000) {
      row.budget = 100;
    }
    return row;
  }

 private:
  std::vector<std::vector<double>> Passes(bool changing) {
    std::vector<std::vector<double>> costs(sinks.size() + 1);
    const int wanted = bench.options.Repetitions(shape.items > 100'000 ? 5 : UsualPasses);
    for (int pass = 0, dropped = 0; pass <= wanted;) {
      std::vector<double> own;
      std::vector<std::uint64_t> next;
      for (const auto& sink : sinks) {
        next.push_back(sink->passes);
      }
      if (changing) {
        ++round;
        for (unsigned client = 0; client < sinks.size(); ++client) {
          sensor.Push(client, FirstRound + round, 1);
        }
      }
      bool whole = true;
      for (std::size_t i = 0; i < sinks.size(); ++i) {
        const PassSink::Pass first = sinks[i]->Await(next[i]);
        whole = whole && first.sum == ExpectedSum(shape, round);
        own.push_back(first.cost);
      }
      own.push_back(WalkTable());
      if (!whole) {
        // A pass came while the documents did, so that neither it nor the next one meets all of them new. Another time.
        Check(++dropped < 20 + wanted, "the passes do not bring the values that the sensor has");
        std::this_thread::sleep_for(std::chrono::milliseconds(dropped * 37 % shape.Interval()));
        continue;
      }
      if (pass++ > 0) {
        for (std::size_t i = 0; i < costs.size(); ++i) {
          costs[i].push_back(own[i] / shape.items * 1e9);
        }
      }
    }
    return costs;
  }

  double WalkTable() {
    PassSink sink;
    sink.items = static_cast<std::uint64_t>(shape.items);
    table.Walk(&PassSink::OnValue, &sink);
    Check(sink.passes == 1 && sink.recent[0].sum == ExpectedSum(shape, 0),
          "the reference walks other values");
    return sink.recent[0].cost;
  }

  Bench& bench;
  const Shape shape;
  ScriptedSensor sensor;
  FlatTable table = TableOf(shape);
  std::vector<std::unique_ptr<PassSink>> sinks;
  std::vector<std::unique_ptr<Instance>> instances;  // end before their sinks do
  std::uint64_t round = 0;
};

}  // namespace

void RunTick(Bench& bench) {
  const int most = bench.options.quick ? 100'000 : 1'000'000;
  for (int items = 1000; items <= most; items *= 10) {
    for (const int resources : {1, 1000, 10'000}) {
      for (const bool shuffled : {false, true}) {
        const Shape shape{items, resources, shuffled};
        if (resources > items || (bench.options.quick && resources == 10'000)) {
          continue;
        }
        const Row row{"tick", fmt::format("{} items, {} resources", items, resources),
                      {},     "ns/item",
                      {},     {},
                      {},     {},
                      false,  false,
                      {}};
        Guard(bench, row, [&] {
          TickRun run(bench, shape);
          run.Measure(false);
          run.Measure(true);
        });
      }
    }
  }
}

}  // namespace ZoBench
