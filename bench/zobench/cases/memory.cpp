// What an item costs in memory once it is registered and subscribed, each measurement in a process of its own.
#include <fmt/format.h>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/child.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"
#include "bench/zobench/scriptedsensor.h"

namespace ZoBench {
namespace {

constexpr int MembersEach = 100;
constexpr int UsualRounds = 5;
constexpr long long Interval = 100;  // ms

// 60 characters.
std::string LongName(int resource, int member) {
  return fmt::format("/hall7/line2/station{:05}/measurements#/channel_value_{:06}", resource, member);
}

std::string LongMembers(std::string_view) {
  std::string text;
  for (int member = 0; member < MembersEach; ++member) {
    text += fmt::format("{}\"channel_value_{:06}\":{:.1f}", member == 0 ? "" : ",", member,
                        ScriptedValue(member));
  }
  return text;
}

// Bytes for each item: allocated, and resident.
std::vector<double> MeasureOnce(const Plugin& plugin, std::uint16_t port, int items) {
  std::vector<std::string> streamed;
  std::vector<std::string> names;
  for (int i = 0; i < items; ++i) {
    names.push_back(LongName(i / MembersEach, i % MembersEach));
    if (i % MembersEach == 0) {
      streamed.push_back(names.back().substr(0, names.back().find('#')) + "#/n");
    }
  }
  Check(names.front().size() == 60, "a name has another length");
  const Names first(streamed);
  const Names measured(names);
  Instance instance(plugin, port);
  instance.Subscribe(first, Interval);  // the documents are in the cache from here on
  Await([&] { return instance.Count().values >= static_cast<std::uint64_t>(first.Count()); },
        "the first values");
  const std::size_t allocated = AllocatedBytes();
  const std::size_t resident = ResidentBytes();
  instance.Subscribe(measured, Interval);
  // What a pass keeps of each item counts, too; the passes before the items were there deliver a hundredth of them.
  const std::uint64_t delivered = instance.Count().values;
  Await(
      [&] { return instance.Count().values >= delivered + 2 * static_cast<std::uint64_t>(measured.Count()); },
      "the items' first values");
  Check(instance.Count().invalid == 0, "an item has no value");
  const auto grown = [items](std::size_t before, std::size_t now) {
    return (static_cast<double>(now) - static_cast<double>(before)) / items;
  };
  return {grown(allocated, AllocatedBytes()), grown(resident, ResidentBytes())};
}

}  // namespace

void RunMemory(Bench& bench) {
  std::vector<int> counts = {1000, 10'000, 100'000};
  if (!bench.options.quick) {
    counts.push_back(1'000'000);
  }
  for (const int items : counts) {
    Row allocated{"memory", fmt::format("{} items, allocated", items),
                  {},       "bytes/item",
                  {},       {},
                  {},       1024.0,
                  false,    false,
                  {}};
    Row resident = allocated;
    resident.variant = fmt::format("{} items, resident", items);
    Guard(bench, allocated, [&] {
      const ScriptedSensor sensor(&LongMembers);
      Place(Widest(), {sensor.Pid()});
      std::vector<double> costs[2];
      for (int i = 0; i < bench.options.Repetitions(UsualRounds); ++i) {
        const auto figures = MeasureApart([&] { return MeasureOnce(bench.First(), sensor.Port(), items); });
        costs[0].push_back(figures.at(0));
        costs[1].push_back(figures.at(1));
      }
      allocated.value = Summarize(costs[0]);
      resident.value = Summarize(costs[1]);
      bench.report.Add(allocated);
      bench.report.Add(resident);
    });
  }
}

}  // namespace ZoBench
