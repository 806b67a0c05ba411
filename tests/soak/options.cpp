#include "tests/soak/options.h"

#include <CLI/CLI.hpp>

#include <random>
#include <stdexcept>

#include "tests/soak/duration.h"

namespace ZoSoak {
namespace {

constexpr int UsageError = 2;

std::string Objection(const std::string& text) {
  try {
    ParseDuration(text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return {};
}

}  // namespace

std::variant<Options, int> ParseCommandLine(int argc, const char* const* argv, std::ostream& out,
                                            std::ostream& err) {
  Options options;
  options.seed = std::random_device()();
  std::string duration;
  CLI::App app("zosoak: everything at once, for as long as you like, with every promise watched", "zosoak");
  app.add_option("DURATION", duration, "How long, such as 90s, 10m or 1h")
      ->required()
      ->check(CLI::Validator(&Objection, ""));
  app.add_option("--seed", options.seed,
                 "Chooses what is done and which faults come; by default another each time");
  app.add_option("--sensors", options.sensors, "Emulated sensors (3)")->check(CLI::Range(1, 8));
  app.add_option("--instances", options.instances, "Instances of sensors (6)")->check(CLI::Range(1, 64));
  app.add_option("--simulators", options.simulators, "Instances of the simulator (2)")
      ->check(CLI::Range(0, 16));
  app.add_option("--threads", options.threads, "Threads of the host (4)")->check(CLI::Range(1, 8));
  app.add_option("--plant", options.plant)
      ->group("")
      ->check(CLI::IsMember({"value", "order", "record", "silence", "late", "stuck", "growth"}));
  app.footer("Full description: docs/soak.md");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, out, err) == 0 ? 0 : UsageError;
  }
  options.duration = ParseDuration(duration);
  return options;
}

}  // namespace ZoSoak
