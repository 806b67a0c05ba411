// One log line, beside a formatted print that makes the same call.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "qapi/thread.h"
#include "zoiohandler/vyrnclient/logger.h"

namespace {

constexpr const char* function = "ZoIO::ZoVyrnClient::Read";

struct Host {
  std::uint64_t lines = 0;
  std::uint64_t bytes = 0;

  static void Log(void* context, std::int32_t, const char* text) {
    auto& host = *static_cast<Host*>(context);
    ++host.lines;
    while (*text++ != '\0') {
      ++host.bytes;
    }
  }
};

std::string Message() {
  return "Reading item /plant/line/machine0000001/values#/measurements/tag0000001";
}

void LogLine(benchmark::State& state) {
  Host host;
  const ZoIO::Logger logger(&host, &Host::Log);
  const std::string message = Message();
  for (auto _ : state) {
    ZoIO::WriteLog(logger, message, 2, function);
  }
  if (host.lines != static_cast<std::uint64_t>(state.iterations())) {
    state.SkipWithError("not a line for each call");
  }
}
BENCHMARK(LogLine);

void PrintedLine(benchmark::State& state) {
  Host host;
  const std::string message = Message();
  auto* volatile callback = &Host::Log;
  for (auto _ : state) {
    char line[256];
    std::snprintf(line, sizeof line, "[%s](%llu)%s\n", function,
                  static_cast<unsigned long long>(qThread_CurrentId()), message.c_str());
    callback(&host, 2, line);
  }
  if (host.lines != static_cast<std::uint64_t>(state.iterations())) {
    state.SkipWithError("not a line for each call");
  }
}
BENCHMARK(PrintedLine);

}  // namespace
