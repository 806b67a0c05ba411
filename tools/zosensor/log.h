// What the emulator tells its user: who connected, what was asked, what went wrong. One line each, to stderr
// unless told otherwise. A line that cannot be written is dropped: a closed or full stderr stops nothing.
//
// Threads: the I/O thread alone.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace ZoSensor {

enum class LogLevel : std::uint8_t { Off, Error, Warning, Info, Debug };

std::optional<LogLevel> LogLevelByName(std::string_view name);

class Log {
 public:
  using Sink = std::function<void(std::string_view line)>;

  explicit Log(LogLevel highest, Sink lineSink = WriteToStderr) : level(highest), sink(std::move(lineSink)) {}

  template <typename... Args>
  void Error(fmt::format_string<Args...> text, Args&&... args) {
    Write(LogLevel::Error, text, std::forward<Args>(args)...);
  }
  template <typename... Args>
  void Warning(fmt::format_string<Args...> text, Args&&... args) {
    Write(LogLevel::Warning, text, std::forward<Args>(args)...);
  }
  template <typename... Args>
  void Info(fmt::format_string<Args...> text, Args&&... args) {
    Write(LogLevel::Info, text, std::forward<Args>(args)...);
  }
  template <typename... Args>
  void Debug(fmt::format_string<Args...> text, Args&&... args) {
    Write(LogLevel::Debug, text, std::forward<Args>(args)...);
  }

  static void WriteToStderr(std::string_view line);

 private:
  template <typename... Args>
  void Write(LogLevel lineLevel, fmt::format_string<Args...> text, Args&&... args) {
    if (lineLevel <= level) {
      Emit(lineLevel, fmt::format(text, std::forward<Args>(args)...));
    }
  }
  void Emit(LogLevel lineLevel, std::string_view text);

  LogLevel level;
  Sink sink;
};

}  // namespace ZoSensor
