// SubscribeItems and UnsubscribeItems of items whose resources are streamed already, so that what is measured is the
// plug-in's bookkeeping with its log lines, and no exchange with the sensor.
#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/interleave.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"
#include "bench/zobench/scriptedsensor.h"

namespace ZoBench {
namespace {

constexpr int MembersEach = 100;
constexpr int UsualRounds = 15;
constexpr long long Never = 3'600'000;  // ms

struct Lists {
  explicit Lists(int items) : streamed(First(items)), names(Others(items)) {}

  static std::vector<std::string> First(int items) {
    std::vector<std::string> list;
    for (int resource = 0; resource < std::max(1, items / MembersEach); ++resource) {
      list.push_back(ItemName(resource, 0));
    }
    return list;
  }
  static std::vector<std::string> Others(int items) {
    std::vector<std::string> list;
    for (int i = 0; i < items; ++i) {
      list.push_back(ItemName(i / MembersEach, i % MembersEach + 1));
    }
    return list;
  }

  Names streamed;  // one item of each resource
  Names names;     // what is measured
};

// Three costs of one instance, microseconds for each item.
struct Costs {
  double first = 0;  // names that the instance has not seen
  double again = 0;  // names that it has
  double away = 0;
};

Costs MeasureOnce(const Plugin& plugin, const ScriptedSensor& sensor, const Lists& lists) {
  Instance instance(plugin, sensor.Port());
  instance.Subscribe(lists.streamed, Never);
  const std::uint64_t requests = sensor.Record().requests;
  const std::uint64_t lines = instance.Count().lines;
  const double unit = 1e6 / lists.names.Count();
  Costs costs;
  double start = Now();
  instance.Subscribe(lists.names, Never);
  costs.first = (Now() - start) * unit;
  Check(instance.Count().lines - lines >= static_cast<std::uint64_t>(lists.names.Count()),
        "a new item is not logged");
  start = Now();
  instance.Unsubscribe(lists.names);
  costs.away = (Now() - start) * unit;
  Check(sensor.Record().requests == requests, "a resource is not streamed any more");
  start = Now();
  instance.Subscribe(lists.names, Never);
  costs.again = (Now() - start) * unit;
  Check(sensor.Record().requests == requests, "the resources were not streamed already");
  Check(instance.Count().complaints == 0, "the plug-in complained");
  return costs;
}

// The same names into a hash table with a log call each, and out of it again.
Costs ReferenceOnce(const Lists& lists) {
  Counters counters;
  ioLogCallback volatile log = &Counters::OnLog;
  const double unit = 1e6 / lists.names.Count();
  std::unordered_map<std::string, int> table;
  const auto insertAll = [&] {
    const double start = Now();
    for (int i = 0; i < lists.names.Count(); ++i) {
      const char* name = lists.names.Pointers()[i];
      table.emplace(name, i);
      log(&counters, 2, name);
    }
    return (Now() - start) * unit;
  };
  Costs costs;
  costs.first = insertAll();
  const double start = Now();
  for (int i = 0; i < lists.names.Count(); ++i) {
    table.erase(lists.names.Pointers()[i]);
  }
  costs.away = (Now() - start) * unit;
  Check(table.empty(), "the reference keeps names");
  costs.again = insertAll();
  return costs;
}

using Member = double Costs::*;

void Add(Bench& bench, const Row& row, const std::vector<std::vector<Costs>>& all, Member member) {
  std::vector<std::vector<double>> costs;
  for (const auto& list : all) {
    auto& own = costs.emplace_back();
    std::transform(list.begin(), list.end(), std::back_inserter(own),
                   [&](const Costs& c) { return c.*member; });
  }
  AddCompared(bench, row, costs);
}

void Measure(Bench& bench, int items, bool subscribing) {
  const char* const name = subscribing ? "subscribe" : "unsubscribe";
  Row row{name, fmt::format("{} items", items), {}, "us/item", {}, {}, {}, {}, false, false, {}};
  Guard(bench, row, [&] {
    const ScriptedSensor sensor([](std::string_view) { return ScriptedMembers(MembersEach); });
    Place(Widest(), {sensor.Pid()});
    const Lists lists(items);
    std::vector<std::vector<Costs>> all(bench.subjects.size() + 1);
    for (int round = 0; round <= bench.options.Repetitions(UsualRounds); ++round) {
      for (std::size_t place = 0; place < all.size(); ++place) {
        const std::size_t i = TurnAt(round, place, all.size());
        const Costs own = i == bench.subjects.size() ? ReferenceOnce(lists)
                                                     : MeasureOnce(*bench.subjects[i].plugin, sensor, lists);
        if (round > 0) {
          all[i].push_back(own);
        }
      }
    }
    if (!subscribing) {
      Add(bench, row, all, &Costs::away);
      return;
    }
    row.budget = 5;
    row.variant = fmt::format("{} items, first time", items);
    Add(bench, row, all, &Costs::first);
    row.variant = fmt::format("{} items, again", items);
    Add(bench, row, all, &Costs::again);
  });
}

}  // namespace

void RunSubscribe(Bench& bench) {
  for (const int items : {1000, 10'000, 100'000}) {
    Measure(bench, items, true);
  }
}

void RunUnsubscribe(Bench& bench) {
  for (const int items : {1000, 10'000, 100'000}) {
    Measure(bench, items, false);
  }
}

}  // namespace ZoBench
