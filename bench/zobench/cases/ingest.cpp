// How fast pushed documents are taken in, from the socket to the cache, beside a reader that looks at the frames alone.
#include <fmt/format.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "bench/json/payload.h"
#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/interleave.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"
#include "bench/zobench/references.h"
#include "bench/zobench/scriptedsensor.h"

namespace ZoBench {
namespace {

constexpr int Resources = 1000;

struct Load {
  const char* name;
  int members;           // numbers; 0 for the document that the JSON benchmarks parse
  std::uint64_t rounds;  // documents of each resource in a block
  int repetitions;
};

// What stands behind n. The document of the JSON benchmarks has texts and truth values, too, and groups.
std::string Members(const Load& load) {
  if (load.members > 0) {
    return ScriptedMembers(load.members);
  }
  const std::string document = PayloadText();
  return document.substr(1, document.size() - 2);
}

// Watches one item of each resource until all of them have a round's number, in one pass.
struct RoundSink {
  std::atomic<double> wanted{0};
  std::atomic<int> matching{0};  // in a row

  static void OnValue(const char* /*itemName*/, const ioDataValue* value, void* context) {
    auto& sink = *static_cast<RoundSink*>(context);
    sink.matching = NumberOf(*value) == sink.wanted ? sink.matching + 1 : 0;
  }

  void AwaitRound(std::uint64_t round) {
    wanted = static_cast<double>(FirstRound + round);
    matching = 0;
    Await([this] { return matching >= Resources; }, "the last document of each resource", 10);
  }
};

class IngestRun {
 public:
  IngestRun(Bench& bench, const Load& load, const Placement& placement)
      : bench(bench), load(load), sensor([members = Members(load)](std::string_view) { return members; }) {
    Place(placement, {sensor.Pid()});
    std::vector<std::string> names;
    std::vector<std::string> uris;
    for (int resource = 0; resource < Resources; ++resource) {
      names.push_back(ItemName(resource, 0));
      uris.push_back(names.back().substr(0, names.back().find('#')));
    }
    for (const Subject& subject : bench.subjects) {
      sinks.push_back(std::make_unique<RoundSink>());
      instances.push_back(std::make_unique<Instance>(*subject.plugin, sensor.Port(), &RoundSink::OnValue,
                                                     sinks.back().get()));
      instances.back()->Subscribe(Names(names), 100);
    }
    rounds.resize(instances.size() + 1);
    reader = std::make_unique<FramesOnlyReader>(sensor.Port(), uris);
  }

  // Microseconds for each document: of the clock, and of this process's CPU.
  void Run(const Row& wall, const Row& cpu) {
    std::vector<std::vector<double>> cpuCosts(instances.size() + 1);
    std::vector<Block> blocks;
    for (std::size_t i = 0; i <= instances.size(); ++i) {
      blocks.emplace_back([this, i, &cpuCosts] { return Blast(i, cpuCosts[i]); });
    }
    const auto costs = Interleave(bench.options.Repetitions(load.repetitions), blocks);
    for (auto& row : cpuCosts) {
      row.erase(row.begin());  // the round that warmed up
    }
    AddThroughput(wall, costs);
    AddCompared(bench, cpu, cpuCosts);
  }

 private:
  double Blast(std::size_t client, std::vector<double>& cpuCosts) {
    const std::uint64_t first = rounds[client] + 1;
    rounds[client] += load.rounds;
    const auto documents = static_cast<double>(load.rounds * Resources);
    const double cpu = ProcessCpu();
    const double start = Now();
    sensor.BeginPush(static_cast<unsigned>(client), FirstRound + first, load.rounds);
    if (client == instances.size()) {
      Check(reader->TakeToPing() == load.rounds * Resources, "the reference missed a document");
    }
    sensor.AwaitPush();
    const double cost = (Now() - start) / documents * 1e6;
    cpuCosts.push_back((ProcessCpu() - cpu) / documents * 1e6);
    if (client < instances.size()) {
      sinks[client]->AwaitRound(rounds[client]);
    }
    return cost;
  }

  // The budget is one of throughput, so the ratio is turned over.
  void AddThroughput(const Row& row, const std::vector<std::vector<double>>& costs) {
    std::vector<std::vector<double>> rates = costs;
    for (auto& list : rates) {
      for (double& value : list) {
        value = 1e6 / value;
      }
    }
    for (std::size_t i = 0; i < instances.size(); ++i) {
      Row own = row;
      own.value = Summarize(rates[i]);
      own.reference = Summarize(rates.back());
      own.ratio = Summarize(Ratios(rates[i], rates.back()));
      if (instances.size() > 1) {
        own.variant += " (" + bench.subjects[i].label + ")";
        if (i == 0) {
          own.note = Comparison(Summarize(costs[0]), Summarize(costs[1]));
        }
      }
      bench.report.Add(std::move(own));
    }
  }

  Bench& bench;
  const Load& load;
  ScriptedSensor sensor;
  std::vector<std::unique_ptr<RoundSink>> sinks;
  std::vector<std::unique_ptr<Instance>> instances;  // end before their sinks do
  std::unique_ptr<FramesOnlyReader> reader;
  std::vector<std::uint64_t> rounds;  // how far each client has got
};

}  // namespace

void RunIngest(Bench& bench) {
  static const Load loads[] = {{"0.3 KB", 16, 20, 15},
                               {"2 KB, 115 numbers", 115, 10, 15},
                               {"2 KB, 60 values", 0, 10, 15},
                               {"100 KB", 5900, 1, 7}};
  for (const Placement& placement : Placements()) {
    for (const Load& load : loads) {
      Row wall{"ingest",
               fmt::format("{}, {} URIs", load.name, Resources),
               placement.name,
               "docs/s",
               {},
               {},
               {},
               {},
               false,
               true,
               {}};
      Row cpu{"ingest",
              fmt::format("{}, {} URIs, CPU", load.name, Resources),
              placement.name,
              "us/doc",
              {},
              {},
              {},
              {},
              false,
              false,
              {}};
      if (std::string_view(load.name).starts_with("2 KB")) {
        wall.budget = 0.35;
        wall.ofRatio = true;
      }
      Guard(bench, wall, [&] { IngestRun(bench, load, placement).Run(wall, cpu); });
    }
  }
}

}  // namespace ZoBench
