// The plug-in's log as the user sees it: lines from a chosen level up go to standard error as they come, and
// the last serious ones are kept, because they hold the reason when something is refused.
//
// Threads: main thread only.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "tools/zohost/inbox.h"

namespace zohost {

enum class LogLevel : int { info = 2, notice = 3, warning = 4, error = 5, critical = 6 };

std::optional<LogLevel> LogLevelFromName(const std::string& name);

class LogReport {
 public:
  // Without a level nothing is shown, only kept.
  explicit LogReport(std::optional<LogLevel> threshold) : threshold_(threshold) {}

  // Takes lines in and returns the text to show for them: nothing, or whole lines.
  std::string Add(const std::vector<LogLine>& lines);
  // The reasons since the last call, worst kind first chosen: errors if there are any, else warnings. Empty
  // when the user has seen them already.
  std::vector<std::string> TakeReasons();

 private:
  std::optional<LogLevel> threshold_;
  std::deque<std::string> errors_;
  std::deque<std::string> warnings_;
};

}  // namespace zohost
