// What was typed, understood: one command with its options.
//
// Threads: main thread only.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/zohost/logreport.h"
#include "tools/zohost/value.h"
#include "tools/zohost/watch.h"

namespace zohost {

struct InfoCommand {};
struct ReadCommand {
  std::vector<std::string> items;
};
struct WriteCommand {
  std::string item;
  Value value;
};
struct WatchCommand {
  WatchOptions options;
};
struct CallCommand {
  std::string method;
  std::string arguments;
};
struct BrowseCommand {
  std::string uri;
};
struct CommandLine {
  std::string plugin;  // empty: look for it
  std::string address;
  std::uint16_t port = 3600;
  std::optional<LogLevel> log;
  std::variant<InfoCommand, ReadCommand, WriteCommand, WatchCommand, CallCommand, BrowseCommand> command;
};

// The text that was asked for instead of a command: help or version.
struct HelpText {
  std::string text;
};

// Raises UsageError.
std::variant<CommandLine, HelpText> ParseCommandLine(int argc, const char* const* argv);

}  // namespace zohost
