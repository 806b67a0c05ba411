#include "bench/json/reference.h"

#include <benchmark/benchmark.h>

#include <boost/json/src.hpp>
#include <cstdint>
#include <string>

#include "bench/json/documents.h"

namespace {

void ParseAndFreeReference(benchmark::State& state) {
  const std::string text = PayloadText();
  if (!Checked(state, boost::json::parse(text).as_object().size() == 6)) {
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(boost::json::parse(text));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void ParseAndFreeReferenceMonotonic(benchmark::State& state) {
  const std::string text = PayloadText();
  unsigned char buffer[16384];
  {
    boost::json::monotonic_resource memory(buffer, sizeof buffer);
    if (!Checked(state, boost::json::parse(text, &memory) == boost::json::parse(text))) {
      return;
    }
  }
  for (auto _ : state) {
    boost::json::monotonic_resource memory(buffer, sizeof buffer);
    benchmark::DoNotOptimize(boost::json::parse(text, &memory));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void PrintReference(benchmark::State& state) {
  const boost::json::value document = boost::json::parse(PayloadText());
  if (!Checked(state, boost::json::parse(boost::json::serialize(document)) == document)) {
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(boost::json::serialize(document));
  }
}

void AtThreeSegmentsReference(benchmark::State& state) {
  const boost::json::value document = boost::json::parse(NestedText());
  if (!Checked(state, document.at_pointer("/statistics/channel5/value").as_double() == 5.5)) {
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(&document.at_pointer("/statistics/channel5/value"));
  }
}

}  // namespace

void RegisterReference() {
  benchmark::RegisterBenchmark("ParseAndFreeReference", ParseAndFreeReference);
  benchmark::RegisterBenchmark("ParseAndFreeReferenceMonotonic", ParseAndFreeReferenceMonotonic);
  benchmark::RegisterBenchmark("PrintReference", PrintReference);
  benchmark::RegisterBenchmark("AtThreeSegmentsReference", AtThreeSegmentsReference);
}
