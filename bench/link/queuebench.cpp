// Pushes in front of the handlers, beside a plain table of the standard library, and requests under way.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "zovyrnsdk/link/pushqueue.h"
#include "zovyrnsdk/link/requesttable.h"

namespace {

using namespace std::chrono_literals;
using ZoSdk::Push;

std::vector<std::string> Uris(std::int64_t count) {
  std::vector<std::string> uris;
  for (std::int64_t i = 0; i < count; ++i) {
    uris.push_back("/plant/line/machine" + std::to_string(i) + "/values");
  }
  return uris;
}

// A push of each URI, all of them due, every 2 ms; those of a batch are handed on 16 at a time.
void QueuePushes(benchmark::State& state) {
  const std::vector<std::string> uris = Uris(state.range(0));
  const ZoJson document = ZoJson::ParseString(R"({"value":1})");
  ZoSdk::PushQueue queue;
  ZoSdk::Time now = ZoSdk::Clock::now();
  std::int64_t delivered = 0;
  std::uint64_t orders = 0;
  for (auto _ : state) {
    now += 2ms;
    std::uint64_t order = 0;
    for (const std::string& uri : uris) {
      queue.Offer(uri, {Push::Kind::Stream, document, 100, ++order}, now);
    }
    for (std::vector<Push> due = queue.TakeDue(now, 16); !due.empty(); due = queue.TakeDue(now, 16)) {
      for (const Push& push : due) {
        ++delivered;
        orders += push.order;
      }
      queue.Delivered(now);
    }
  }
  const std::int64_t each = state.range(0) * (state.range(0) + 1) / 2;
  if (delivered != state.iterations() * state.range(0) || queue.Waiting() != 0 ||
      orders != static_cast<std::uint64_t>(state.iterations() * each)) {
    state.SkipWithError("not every push was handed on");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(QueuePushes)->Arg(1)->Arg(1000)->Arg(100000);

// The newest document of each URI, without an order or a distance.
void NewestOfEach(benchmark::State& state) {
  const std::vector<std::string> uris = Uris(state.range(0));
  const ZoJson document = ZoJson::ParseString(R"({"value":1})");
  std::unordered_map<std::string, ZoJson> newest;
  for (auto _ : state) {
    for (const std::string& uri : uris) {
      newest[uri] = document;
    }
  }
  if (newest.size() != uris.size()) {
    state.SkipWithError("not every document is there");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(NewestOfEach)->Arg(1)->Arg(1000)->Arg(100000);

// A request beside so many that wait for their answers: made, sent, answered.
void RequestUnderWay(benchmark::State& state) {
  ZoSdk::RequestTable table;
  const ZoSdk::Time now = ZoSdk::Clock::now();
  const auto request = [&] {
    ZoSdk::RequestTable::Entry entry;
    entry.uri = "/plant/line/machine0000001/values";
    entry.tail = R"(,"method":"read","uri":"/plant/line/machine0000001/values"})";
    entry.since = now;
    return entry;
  };
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    table.Add(request());
    table.NextMessage(now);
  }
  for (auto _ : state) {
    const std::uint64_t id = table.Add(request());
    benchmark::DoNotOptimize(table.NextMessage(now));
    benchmark::DoNotOptimize(table.Take(id));
  }
  if (table.Size() != static_cast<std::size_t>(state.range(0)) || table.HasUnsent()) {
    state.SkipWithError("not every request was answered");
  }
}
BENCHMARK(RequestUnderWay)->Arg(0)->Arg(1000)->Arg(100000);

}  // namespace
