// Many instances in one host, each with one subscribed item: simulators, or connections to one sensor.
#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/child.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"
#include "bench/zobench/scriptedsensor.h"

namespace ZoBench {
namespace {

constexpr int UsualRounds = 3;

struct Figure {
  const char* name;
  const char* unit;
};

constexpr Figure Figures[] = {
    {"threads of each", "threads"}, {"allocated by each", "bytes"}, {"resident of each", "bytes"},
    {"CPU of all", "% of a core"},  {"to create each", "ms"},       {"to destroy each", "ms"},
};

// An instance of a sensor takes some descriptors, as does the sensor's side of it. Without them its creation fails, and
// the row says so.
void AllowManyDescriptors() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
}

// The figures, in their order.
std::vector<double> MeasureOnce(const Plugin& plugin, std::uint16_t port, int count, int seconds) {
  const std::size_t alone = ThreadCount();
  Instance first(plugin, port);  // what the first one costs once is none of the others'
  const std::size_t threads = ThreadCount();
  const std::size_t allocated = AllocatedBytes();
  const std::size_t resident = ResidentBytes();
  std::vector<std::unique_ptr<Instance>> instances;
  double start = Now();
  for (int i = 0; i < count; ++i) {
    instances.push_back(std::make_unique<Instance>(plugin, port));
  }
  const double create = Now() - start;
  const Names item({port == Simulator ? "/demo#/int" : ItemName(0, 0)});
  for (const auto& instance : instances) {
    instance->Subscribe(item, 100);
  }
  Await(
      [&] {
        return std::all_of(instances.begin(), instances.end(), [](const auto& instance) {
          return instance->Count().values > instance->Count().invalid;
        });
      },
      "a value of each instance");
  if (port != Simulator) {
    Check(std::all_of(instances.begin(), instances.end(),
                      [](const auto& instance) { return instance->Count().last == FirstRound; }),
          "an instance has another value than its sensor");
  }
  std::vector<double> figures;
  const auto each = [count](std::size_t before, std::size_t now) {
    return (static_cast<double>(now) - static_cast<double>(before)) / count;
  };
  figures.push_back(each(threads, ThreadCount()));
  figures.push_back(each(allocated, AllocatedBytes()));
  figures.push_back(each(resident, ResidentBytes()));
  first.Destroy();
  const double cpu = ProcessCpu();
  start = Now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  figures.push_back((ProcessCpu() - cpu) / (Now() - start) * 100);
  figures.push_back(create / count * 1e3);
  start = Now();
  instances.clear();
  figures.push_back((Now() - start) / count * 1e3);
  Check(ThreadCount() == alone, "threads are left");
  return figures;
}

// The rows of so many instances. Kind says what they are.
void Measure(Bench& bench, const char* kind, std::uint16_t port, int count) {
  const Row row{"instances", fmt::format("{} {}", count, kind), {}, {}, {}, {}, {}, {}, false, false, {}};
  Guard(bench, row, [&] {
    std::vector<std::vector<double>> rounds;
    for (int i = 0; i < bench.options.Repetitions(UsualRounds); ++i) {
      rounds.push_back(
          MeasureApart([&] { return MeasureOnce(bench.First(), port, count, bench.options.quick ? 1 : 5); }));
    }
    for (std::size_t figure = 0; figure < std::size(Figures); ++figure) {
      std::vector<double> values;
      for (const auto& round : rounds) {
        values.push_back(round.at(figure));
      }
      Row own = row;
      own.variant += fmt::format(": {}", Figures[figure].name);
      own.unit = Figures[figure].unit;
      own.value = Summarize(values);
      bench.report.Add(std::move(own));
    }
  });
}

}  // namespace

void RunInstances(Bench& bench) {
  AllowManyDescriptors();
  std::vector<int> counts = {1, 10, 100};
  if (!bench.options.quick) {
    counts.push_back(1000);
  }
  ReleaseProcess(::getpid());
  for (const int count : counts) {
    Measure(bench, "simulators", Simulator, count);
  }
  const ScriptedSensor sensor([](std::string_view) { return ScriptedMembers(1); });
  for (const int count : counts) {
    Measure(bench, "connections to a sensor", sensor.Port(), count);
  }
}

}  // namespace ZoBench
