#include "tools/zosensor/commandline.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace ZoSensor {
namespace {

constexpr int UsageError = 2;

// Refuses signs, other bases and what does not fit, all of which the option's own reading would bend into some number.
CLI::Validator WholeNumber(std::uint64_t most) {
  return {[most](const std::string& text) {
            std::uint64_t number = 0;
            const char* const end = text.data() + text.size();
            const auto [at, error] = std::from_chars(text.data(), end, number);
            return error == std::errc() && at == end && number <= most
                       ? std::string()
                       : "\"" + text + "\" is no whole number from 0 to " + std::to_string(most);
          },
          ""};
}

void AddLimits(CLI::App& app, Limits& limits) {
  const std::string group = "Limits";
  app.add_option("--max-message", limits.maxMessage, "Bytes of one request")
      ->check(CLI::Range(std::size_t{64}, std::size_t{1} << 30))
      ->capture_default_str()
      ->group(group);
  app.add_option("--max-depth", limits.maxDepth, "Nesting of one request")
      ->check(CLI::Range(std::size_t{2}, std::size_t{256}))
      ->capture_default_str()
      ->group(group);
  app.add_option("--max-values", limits.maxValues, "Values of one request, and of one content")
      ->check(CLI::Range(std::size_t{16}, std::size_t{100000000}))
      ->capture_default_str()
      ->group(group);
  app.add_option("--max-clients", limits.maxClients, "Sessions at once")
      ->check(CLI::Range(std::size_t{1}, std::size_t{10000}))
      ->capture_default_str()
      ->group(group);
  app.add_option("--max-queue", limits.maxQueue, "Bytes that may wait for one slow client")
      ->check(CLI::Range(std::size_t{4096}, std::size_t{4} << 30))
      ->capture_default_str()
      ->group(group);
  app.add_option("--max-resources", limits.maxResources, "Resources that may exist")
      ->check(CLI::Range(std::size_t{1}, std::size_t{10000000}))
      ->capture_default_str()
      ->group(group);
  app.add_option("--max-watches", limits.maxWatches, "Streams and subscriptions of one session")
      ->check(CLI::Range(std::size_t{1}, std::size_t{10000000}))
      ->capture_default_str()
      ->group(group);
  app.add_option(
         "--allow-origin", limits.allowedOrigins,
         "Origin of web pages that may connect, such as http://example.com; its host may be asked for, "
         "too; * for all; may be repeated. Hosts that may be asked for anyway: localhost, and IP "
         "addresses (on the loopback those of the loopback)")
      ->group(group);
}

}  // namespace

std::variant<CommandLine, int> ParseCommandLine(int argc, const char* const* argv, std::ostream& out,
                                                std::ostream& err) {
  CommandLine line;
  std::string level = "info";
  std::vector<std::string> faults;
  CLI::App app("zosensor: a sensor for the desk, which can also misbehave on purpose", "zosensor");
  app.set_version_flag("--version", "zosensor " ZOSENSOR_VERSION);
  app.add_option("--address", line.server.address, "IP address to listen on")->capture_default_str();
  app.add_option("--port", line.server.port, "TCP port; 0 picks a free one")
      ->check(WholeNumber(std::numeric_limits<std::uint16_t>::max()))
      ->capture_default_str();
  app.add_option("--resources", line.resourceFile,
                 "JSON file with the resources to serve, instead of the demo");
  app.add_flag("--print-resources", line.printResources, "Print the demo's resource file and exit");
  app.add_option("--seed", line.server.seed, "Makes random values and faults repeatable")
      ->check(WholeNumber(std::numeric_limits<std::uint64_t>::max()))
      ->capture_default_str();
  app.add_option("--log", level, "What is said on stderr: off, error, warning, info or debug")
      ->check(CLI::IsMember({"off", "error", "warning", "info", "debug"}))
      ->capture_default_str();
  app.add_option(
         "--fault", faults,
         "A fault on purpose, as name=value, such as lose=0.1; may be repeated; the names are the members of "
         "the resource /faults")
      ->allow_extra_args(false);
  AddLimits(app, line.server.limits);
  app.footer("Full description: docs/zosensor.md");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, out, err) == 0 ? 0 : UsageError;
  }
  for (const std::string& fault : faults) {
    std::string objection;
    const auto next = line.server.faults.With(fault, objection);
    if (!next) {
      err << "zosensor: --fault " << fault << ": " << objection << "\n";
      return UsageError;
    }
    line.server.faults = *next;
  }
  if (line.server.address == "localhost") {
    line.server.address = "127.0.0.1";
  }
  line.logLevel = *LogLevelByName(level);
  return line;
}

}  // namespace ZoSensor
