// What the command line asks for. A plain value, made once at the start.
#pragma once

#include <iosfwd>
#include <string>
#include <variant>
#include <vector>

namespace ZoBench {

struct Options {
  std::vector<std::string> cases;  // empty: all
  bool list = false;
  bool quick = false;
  int repetitions = 0;  // 0: each case's own
  std::string jsonFile;
  std::string plugin;   // empty: the one of this build
  std::string against;  // another build, or empty

  // How often to repeat what a case repeats so often by itself; a quick run repeats a third.
  int Repetitions(int usual) const;
};

// Or the exit status, when everything has been said (help, or what is wrong with the command line).
std::variant<Options, int> ParseCommandLine(int argc, const char* const* argv,
                                            const std::vector<std::string>& caseNames, std::ostream& out,
                                            std::ostream& err);

}  // namespace ZoBench
