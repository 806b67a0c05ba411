#include "tools/zohost/logreport.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

#include "tools/zohost/text.h"
#include "tools/zohost/times.h"

namespace zohost {
namespace {

constexpr std::size_t keptReasons = 3;
constexpr std::array<std::string_view, 7> names = {"0",       "1",     "info",    "notice",
                                                   "warning", "error", "critical"};

std::string LevelName(int level) {
  const auto index = static_cast<std::size_t>(level);
  return level >= 0 && index < names.size() ? std::string(names[index]) : fmt::format("{}", level);
}

std::string_view WithoutNewline(std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
    text.remove_suffix(1);
  }
  return text;
}

// "[function](thread id)message" without its first two parts, which help a developer alone.
std::string_view Message(std::string_view text) {
  text = WithoutNewline(text);
  if (text.starts_with('[')) {
    const auto function = text.find("](");
    const auto thread = function == std::string_view::npos ? function : text.find(')', function);
    if (thread != std::string_view::npos) {
      text.remove_prefix(thread + 1);
    }
  }
  return text;
}

void Keep(std::deque<std::string>& reasons, std::string text) {
  if (!reasons.empty() && reasons.back() == text) {
    return;
  }
  reasons.push_back(std::move(text));
  if (reasons.size() > keptReasons) {
    reasons.pop_front();
  }
}

}  // namespace

std::optional<LogLevel> LogLevelFromName(const std::string& name) {
  for (int level = 2; level <= 6; ++level) {
    if (name == names[static_cast<std::size_t>(level)]) {
      return static_cast<LogLevel>(level);
    }
  }
  return std::nullopt;
}

std::string LogReport::Add(const std::vector<LogLine>& lines) {
  std::string shown;
  for (const LogLine& line : lines) {
    if (threshold_ && line.level >= static_cast<int>(*threshold_)) {
      shown += fmt::format("{} {:<8} {}\n", IsoTime(line.time), LevelName(line.level),
                           Printable(WithoutNewline(line.text)));
    } else if (line.level >= static_cast<int>(LogLevel::error)) {
      Keep(errors_, Printable(Message(line.text)));
    } else if (line.level == static_cast<int>(LogLevel::warning)) {
      Keep(warnings_, Printable(Message(line.text)));
    }
  }
  return shown;
}

std::vector<std::string> LogReport::TakeReasons() {
  const std::deque<std::string>& chosen = errors_.empty() ? warnings_ : errors_;
  std::vector<std::string> reasons(chosen.begin(), chosen.end());
  errors_.clear();
  warnings_.clear();
  return reasons;
}

}  // namespace zohost
