#include <algorithm>
#include <csignal>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/commandline.h"
#include "bench/zobench/host.h"
#include "bench/zobench/pinning.h"
#include "bench/zobench/report.h"

namespace {

using namespace ZoBench;

std::vector<std::string> CaseNames() {
  std::vector<std::string> names;
  for (const Case& one : Cases()) {
    names.emplace_back(one.name);
  }
  return names;
}

bool IsWanted(const Options& options, const char* name) {
  return options.cases.empty() ||
         std::find(options.cases.begin(), options.cases.end(), name) != options.cases.end();
}

int Run(const Options& options) {
  const ZoTest::PluginLibrary plugin(options.plugin.empty() ? ZoTest::PluginLibrary::BuiltPath()
                                                            : options.plugin);
  std::vector<Subject> subjects{{"", &plugin}};
  std::unique_ptr<ZoTest::PluginLibrary> other;
  if (!options.against.empty()) {
    other = std::make_unique<ZoTest::PluginLibrary>(options.against);
    subjects = {{"this", &plugin}, {"other", other.get()}};
  }
  std::cout << EnvironmentJson() << "\n" << plugin.Path() << "\n";
  Report report(std::cout);
  report.PrintHead();
  Bench bench{options, subjects, report};
  for (const Case& one : Cases()) {
    if (IsWanted(options, one.name)) {
      one.run(bench);
    }
  }
  if (!options.jsonFile.empty()) {
    std::ofstream file(options.jsonFile);
    file << report.Json();
    if (!file.flush()) {
      throw std::runtime_error(options.jsonFile + " could not be written");
    }
  }
  return report.HasRefusals() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  const auto parsed = ParseCommandLine(argc, argv, CaseNames(), std::cout, std::cerr);
  if (const int* status = std::get_if<int>(&parsed)) {
    return *status;
  }
  const auto& options = std::get<Options>(parsed);
  if (options.list) {
    for (const Case& one : Cases()) {
      std::cout << one.name << "\t" << one.about << "\n";
    }
    return 0;
  }
  try {
    Cores();
    return Run(options);
  } catch (const std::exception& error) {
    std::cerr << "zobench: " << error.what() << "\n";
    return 1;
  }
}
