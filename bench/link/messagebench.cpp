// A message on its way in, beside its text parsed alone, and a request on its way out.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "bench/json/payload.h"
#include "zovyrnsdk/link/incoming.h"
#include "zovyrnsdk/link/limits.h"
#include "zovyrnsdk/link/outgoing.h"

namespace {

using ZoSdk::Incoming;

const std::string uri = "/plant/line/machine0000001/values";

std::string PushText() {
  return R"({"event":"stream","uri":")" + uri + R"(","payload":)" + PayloadText() + "}";
}
std::string AnswerText() {
  return R"({"id":17,"status":1,"uri":")" + uri + R"(","payload":)" + PayloadText() + "}";
}

void ReadMessage(benchmark::State& state, const std::string& text, Incoming::Kind kind) {
  ZoJsonShapes shapes;
  Incoming message;
  for (auto _ : state) {
    message = ZoSdk::ReadIncoming(text, shapes);
  }
  if (message.kind != kind || message.document.At("/payload") != ZoJson::ParseString(PayloadText())) {
    state.SkipWithError("the message is not what was sent");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
void ReadPush(benchmark::State& state) {
  ReadMessage(state, PushText(), Incoming::Kind::Stream);
}
BENCHMARK(ReadPush);
void ReadAnswer(benchmark::State& state) {
  ReadMessage(state, AnswerText(), Incoming::Kind::Answer);
}
BENCHMARK(ReadAnswer);

// The same text, and nothing looked at.
void ParseMessage(benchmark::State& state) {
  const std::string text = PushText();
  ZoJsonShapes shapes;
  ZoJson document;
  for (auto _ : state) {
    std::size_t memory = ZoSdk::documentLimit;
    document = ZoJson::ParseString(text, memory, shapes);
  }
  if (document.Size() != 3) {
    state.SkipWithError("not the message");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(ParseMessage);

void Compose(benchmark::State& state, ZoRequestMethod method, const ZoJson* payload, const ZoJson& expected) {
  std::string text;
  for (auto _ : state) {
    text = ZoSdk::FinishRequest(17, ZoSdk::ComposeRequest(method, uri, payload).tail);
    benchmark::DoNotOptimize(text.data());
  }
  if (ZoJson::ParseString(text) != expected) {
    state.SkipWithError("not the request");
  }
}
void ComposeRead(benchmark::State& state) {
  Compose(state, ZoRequestMethod_Read, nullptr,
          ZoJson::ParseString(R"({"id":17,"method":"read","uri":")" + uri + "\"}"));
}
BENCHMARK(ComposeRead);
void ComposeUpdate(benchmark::State& state) {
  const std::string value = R"({"measurements":{"tag0000001":12.5}})";
  const ZoJson payload = ZoJson::ParseString(value);
  Compose(
      state, ZoRequestMethod_Update, &payload,
      ZoJson::ParseString(R"({"id":17,"method":"update","uri":")" + uri + R"(","payload":)" + value + "}"));
}
BENCHMARK(ComposeUpdate);

}  // namespace
