#include "tools/zosensor/log.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <string>

#include <fmt/chrono.h>

namespace ZoSensor {
namespace {

constexpr std::array<std::string_view, 5> LevelNames = {"off", "error", "warning", "info", "debug"};

// What clients send ends up in lines; control characters must not forge lines or steer a terminal.
std::string Printable(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      line += fmt::format("\\x{:02x}", byte);
    } else {
      line += c;
    }
  }
  return line;
}

}  // namespace

std::optional<LogLevel> LogLevelByName(std::string_view name) {
  for (std::size_t i = 0; i < LevelNames.size(); ++i) {
    if (LevelNames[i] == name) {
      return static_cast<LogLevel>(i);
    }
  }
  return std::nullopt;
}

void Log::WriteToStderr(std::string_view line) {
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void Log::Emit(LogLevel lineLevel, std::string_view text) {
  const auto now = std::chrono::system_clock::now();
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  sink(fmt::format("{:%H:%M:%S}.{:03} {:<7} {}\n", fmt::localtime(std::chrono::system_clock::to_time_t(now)),
                   millis, LevelNames[static_cast<std::size_t>(lineLevel)], Printable(text)));
}

}  // namespace ZoSensor
