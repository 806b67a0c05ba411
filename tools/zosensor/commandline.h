// What the command line asks for. A plain value, made once at the start.
#pragma once

#include <iosfwd>
#include <string>
#include <variant>

#include "tools/zosensor/log.h"
#include "tools/zosensor/server.h"

namespace ZoSensor {

struct CommandLine {
  ServerOptions server;
  std::string resourceFile;  // empty: the demo
  bool printResources = false;
  LogLevel logLevel = LogLevel::Info;
};

// Or the exit status, when everything has been said (help, version, or what is wrong with the command line).
std::variant<CommandLine, int> ParseCommandLine(int argc, const char* const* argv, std::ostream& out,
                                                std::ostream& err);

}  // namespace ZoSensor
