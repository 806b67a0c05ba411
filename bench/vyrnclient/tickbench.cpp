// One tick of a subscription group, from the cache to the host's callback, beside a flat vector that makes the same
// calls.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/vyrnclient/benchsensor.h"
#include "zoiohandler/vyrnclient/itemfeed.h"
#include "zoiohandler/vyrnclient/subscriptiongroup.h"

namespace {

using namespace std::chrono_literals;

struct Host {
  std::uint64_t calls = 0;
  std::uint64_t sum = 0;

  static void Value(const char* name, const ioDataValue* value, void* context) {
    auto& host = *static_cast<Host*>(context);
    ++host.calls;
    host.sum += value->value.uint64 + static_cast<unsigned char>(name[0]);
  }
  ioHandlerParam Param() {
    ioHandlerParam param{};
    param.context = this;
    param.itemValue = &Value;
    param.log = [](void*, std::int32_t, const char*) {};
    return param;
  }
};

// Items over resources, as a plant has them: each resource a document with a member for each of its items.
class Plant {
 public:
  Plant(int items, int resources) : resources(resources), perResource((items + resources - 1) / resources) {
    for (int r = 0; r < resources; ++r) {
      for (int m = 0; m < perResource && static_cast<int>(names.size()) < items; ++m) {
        names.push_back(Resource(r) + "#/measurements/" + Member(m));
      }
    }
  }

  std::string Resource(int number) const {
    char text[64];
    std::snprintf(text, sizeof text, "/plant/line/machine%07d/values", number);
    return text;
  }
  std::string Member(int number) const {
    char text[32];
    std::snprintf(text, sizeof text, "tag%07d", number);
    return text;
  }
  // A new document for every resource.
  void Push(ZoIO::CacheManager& cache, long long stamp) {
    ++round;
    for (int r = 0; r < resources; ++r) {
      std::string text = "{\"measurements\":{";
      for (int m = 0; m < perResource; ++m) {
        text += (m == 0 ? "\"" : ",\"") + Member(m) + "\":" + std::to_string(round + m);
      }
      cache.AddAt(Resource(r), ZoJson::ParseString(text + "}}"), stamp);
    }
  }

  std::vector<std::string> names;

 private:
  const int resources;
  const int perResource;
  int round = 0;
};

// Arguments: items, resources, whether names come in key order, whether documents change between ticks.
void Tick(benchmark::State& state) {
  Plant plant(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  if (state.range(2) == 0) {
    std::shuffle(plant.names.begin(), plant.names.end(), std::mt19937(1));
  }
  Host host;
  const auto parameters = std::make_shared<const ioHandlerParam>(host.Param());
  const auto logger = std::make_shared<ZoIO::Logger>(parameters->context, parameters->log);
  const auto sensor = std::make_shared<ZoBench::BenchSensor>(logger);
  ZoIO::ItemFeed feed(parameters, std::make_shared<ZoIO::CallbackGate>(), logger);
  feed.SetSensor(sensor);
  const bool changing = state.range(3) != 0;
  long long stamp = ZoIO::CacheManager::TimeInMills() - 4000;
  plant.Push(*sensor->Cache(), stamp);
  ZoIO::SubscriptionGroup group(feed, 100ms);
  for (const std::string& name : plant.names) {
    group.AddItem(name);
  }
  group.Tick();
  if (host.calls != plant.names.size()) {
    state.SkipWithError("a tick does not push every item");
    return;
  }
  for (auto _ : state) {
    if (changing) {
      state.PauseTiming();
      plant.Push(*sensor->Cache(), ++stamp);
      state.ResumeTiming();
    }
    group.Tick();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(Tick)
    ->ArgNames({"items", "resources", "ordered", "changing"})
    ->ArgsProduct({{1000, 100000}, {1000}, {1, 0}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

void FlatVector(benchmark::State& state) {
  const Plant plant(static_cast<int>(state.range(0)), 1000);
  struct Item {
    const char* name;
    ioDataValue value;
  };
  std::vector<Item> items;
  for (const std::string& name : plant.names) {
    items.push_back({name.c_str(), {}});
  }
  Host host;
  auto* volatile callback = &Host::Value;
  for (auto _ : state) {
    for (const Item& item : items) {
      callback(item.name, &item.value, &host);
    }
  }
  if (host.calls != static_cast<std::uint64_t>(state.iterations()) * items.size()) {
    state.SkipWithError("not every item was handed on");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(FlatVector)->ArgName("items")->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace
