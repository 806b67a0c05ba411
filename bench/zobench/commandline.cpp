#include "bench/zobench/commandline.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <ostream>

namespace ZoBench {
namespace {

constexpr int UsageError = 2;
constexpr int FewestRounds = 3;  // quartiles of fewer say nothing

}  // namespace

int Options::Repetitions(int usual) const {
  if (repetitions > 0) {
    return repetitions;
  }
  return quick ? std::max(FewestRounds, usual / 3) : usual;
}

std::variant<Options, int> ParseCommandLine(int argc, const char* const* argv,
                                            const std::vector<std::string>& caseNames, std::ostream& out,
                                            std::ostream& err) {
  Options options;
  CLI::App app("zobench: what the plug-in costs, beside what it could cost", "zobench");
  app.add_option("CASE", options.cases, "What to measure; everything by default")
      ->check(CLI::IsMember(caseNames));
  app.add_flag("--list", options.list, "List the cases and exit");
  app.add_flag("--quick", options.quick, "Smaller sizes and a third of the repetitions");
  app.add_option("--json", options.jsonFile, "Also write the table to this file, as JSON");
  app.add_option("--plugin", options.plugin, "The plug-in to measure, instead of this build's")
      ->check(CLI::ExistingFile);
  app.add_option("--against", options.against, "Another build of it, to compare with in the same run")
      ->check(CLI::ExistingFile);
  app.add_option("--repetitions", options.repetitions,
                 "Rounds of each measurement; by default the case's own")
      ->check(CLI::Range(FewestRounds, 100000));
  app.footer("Full description: docs/benchmarks.md");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, out, err) == 0 ? 0 : UsageError;
  }
  return options;
}

}  // namespace ZoBench
