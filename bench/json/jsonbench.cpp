// JSON values beside a widely used library. Every case checks what it does.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/json/documents.h"
#include "bench/json/reference.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonshapes.h"

namespace {

std::size_t Leaves(const ZoJson& document) {
  return document.Flatten().Size();
}

void ParseAndFree(benchmark::State& state) {
  const std::string text = PayloadText();
  if (!Checked(state, Leaves(ZoJson::ParseString(text)) == 60 && text.size() > 1800 && text.size() < 2300)) {
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(ZoJson::ParseString(text));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(ParseAndFree);

// As the link does it: documents of one kind, one after the other.
void ParseAndFreeShaped(benchmark::State& state) {
  const std::string text = PayloadText();
  ZoJsonShapes shapes;
  std::size_t memory = 0;
  for (int time = 0; time < 3; ++time) {
    memory = std::size_t{1} << 30;
    if (!Checked(state, ZoJson::ParseString(text, memory, shapes) == ZoJson::ParseString(text))) {
      return;
    }
  }
  if (!Checked(state, shapes.Bytes() > 0)) {
    return;
  }
  for (auto _ : state) {
    memory = std::size_t{1} << 30;
    benchmark::DoNotOptimize(ZoJson::ParseString(text, memory, shapes));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(ParseAndFreeShaped);

void Print(benchmark::State& state) {
  const ZoJson document = ZoJson::ParseString(PayloadText());
  if (!Checked(state, ZoJson::ParseString(document.ToString()) == document)) {
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(document.ToString());
  }
}
BENCHMARK(Print);

void Copy(benchmark::State& state) {
  const ZoJson document = ZoJson::ParseString(PayloadText());
  std::vector<ZoJson> copies(1000);
  if (!Checked(state, ZoJson(document) == document)) {
    return;
  }
  for (auto _ : state) {
    for (ZoJson& copy : copies) {
      copy = document;  // also lets go of the copy from the round before
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(copies.size()));
}
BENCHMARK(Copy);

void CopyOnly(benchmark::State& state) {
  const ZoJson document = ZoJson::ParseString(PayloadText());
  std::vector<ZoJson> copies;
  copies.reserve(100000);
  for (auto _ : state) {
    if (copies.size() == copies.capacity()) {
      state.PauseTiming();
      copies.clear();
      state.ResumeTiming();
    }
    copies.emplace_back(document);
  }
  Checked(state, !copies.empty() && copies.back() == document);
}
BENCHMARK(CopyOnly);

// What a copy cannot be quicker than: it counts.
void AtomicIncrement(benchmark::State& state) {
  std::atomic<std::uint32_t> count = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(count.fetch_add(1, std::memory_order_relaxed));
  }
  Checked(state, count == static_cast<std::uint32_t>(state.iterations()));
}
BENCHMARK(AtomicIncrement);

void AtThreeSegments(benchmark::State& state) {
  const ZoJson document = ZoJson::ParseString(NestedText());
  const ZoJsonPointer pointer("/statistics/channel5/value");
  if (!Checked(state, document.At(pointer).Get<double>() == 5.5)) {
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(document.At(pointer));
  }
}
BENCHMARK(AtThreeSegments);

void AtThreeSegmentsByText(benchmark::State& state) {
  const ZoJson document = ZoJson::ParseString(NestedText());
  if (!Checked(state, document.At("/statistics/channel5/value").Get<double>() == 5.5)) {
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(document.At("/statistics/channel5/value"));
  }
}
BENCHMARK(AtThreeSegmentsByText);

void MemberOfTenThousand(benchmark::State& state) {
  const ZoJson document = ZoJson::ParseString(WideText(10000));
  std::vector<ZoJsonPointer> pointers;
  for (std::size_t i = 0; i < 10000; ++i) {
    pointers.push_back(ZoJsonPointer::Member("member_" + std::to_string(i * 7919 % 10000)));
    if (!Checked(state, document.At(pointers.back()).Get<std::size_t>() == i * 7919 % 10000)) {
      return;
    }
  }
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(document.At(pointers[next]));
    next = next + 1 < pointers.size() ? next + 1 : 0;
  }
}
BENCHMARK(MemberOfTenThousand);

void SetMembersInSequence(benchmark::State& state) {
  const auto members = static_cast<std::size_t>(state.range(0));
  std::vector<ZoJsonPointer> pointers;
  for (std::size_t i = 0; i < members; ++i) {
    pointers.push_back(ZoJsonPointer::Member("member_" + std::to_string(i)));
  }
  for (auto _ : state) {
    ZoJson document;
    for (const ZoJsonPointer& pointer : pointers) {
      document.Set(pointer, 1);
    }
    if (!Checked(state, document.Size() == members)) {
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(members));
}
BENCHMARK(SetMembersInSequence)->Arg(8)->Arg(100)->Arg(10000)->Arg(1000000);

void DrainFrontToBack(benchmark::State& state) {
  const auto members = static_cast<std::size_t>(state.range(0));
  const std::string text = WideText(members);
  std::vector<ZoJsonPointer> pointers;
  for (std::size_t i = 0; i < members; ++i) {
    pointers.push_back(ZoJsonPointer::Member("member_" + std::to_string(i)));
  }
  for (auto _ : state) {
    state.PauseTiming();
    ZoJson document = ZoJson::ParseString(text);
    state.ResumeTiming();
    for (const ZoJsonPointer& pointer : pointers) {
      document.Remove(pointer);
    }
    if (!Checked(state, document.Empty())) {
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(members));
}
BENCHMARK(DrainFrontToBack)->Arg(100)->Arg(10000)->Arg(100000);

void FlattenAndBack(benchmark::State& state) {
  const ZoJson document = ZoJson::ParseString(PayloadText());
  if (!Checked(state, document.Flatten().Unflatten() == document)) {
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(document.Flatten().Unflatten());
  }
}
BENCHMARK(FlattenAndBack);

}  // namespace

int main(int argc, char** argv) {
  RegisterReference();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
