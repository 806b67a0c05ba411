// One log line through the plug-in, beside snprintf and the same callback.
//
// A call of a method that does not exist logs one line and is then refused; what the export does around it is counted in.
#include <unistd.h>

#include <cstdio>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/interleave.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"

namespace ZoBench {
namespace {

constexpr int UsualRounds = 41;
constexpr int Lines = 2000;

double CallUnknownMethod(const Plugin& plugin, Instance& instance) {
  const std::uint64_t lines = instance.Count().lines;
  const double start = Now();
  for (int i = 0; i < Lines; ++i) {
    plugin.callMethod(nullptr, nullptr, "NoSuchMethodOfThisName", "{}", instance.Handle());
  }
  const double cost = (Now() - start) / Lines * 1e9;
  Check(instance.Count().lines - lines == Lines, "a call does not log one line");
  return cost;
}

double PrintAndCall() {
  Counters counters;
  ioLogCallback volatile log = &Counters::OnLog;
  const int thread = ::gettid();
  const double start = Now();
  for (int i = 0; i < Lines; ++i) {
    char line[256];
    std::snprintf(line, sizeof line, "[%s](%d)%s %s\n", "ZoIO::ZoVyrnClient::Call", thread, "Calling method",
                  "NoSuchMethodOfThisName");
    log(&counters, 2, line);
  }
  const double cost = (Now() - start) / Lines * 1e9;
  Check(counters.lines == Lines, "the reference logs other lines");
  return cost;
}

}  // namespace

void RunLog(Bench& bench) {
  const Row row{"log", "a line of some 70 characters", {}, "ns/line", {}, {}, {}, {}, false, false, {}};
  Guard(bench, row, [&] {
    Place(Placements().front(), {});
    std::vector<std::unique_ptr<Instance>> instances;
    std::vector<Block> blocks;
    for (const Subject& subject : bench.subjects) {
      instances.push_back(std::make_unique<Instance>(*subject.plugin, Simulator));
      blocks.emplace_back(
          [&subject, &own = *instances.back()] { return CallUnknownMethod(*subject.plugin, own); });
    }
    blocks.emplace_back(&PrintAndCall);
    AddCompared(bench, row, Interleave(bench.options.Repetitions(UsualRounds), blocks));
  });
}

}  // namespace ZoBench
