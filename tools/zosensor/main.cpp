#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <variant>

#include "tools/zosensor/commandline.h"
#include "tools/zosensor/demo.h"
#include "tools/zosensor/resourcefile.h"
#include "tools/zosensor/server.h"

namespace {

bool Print(std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

int Serve(const ZoSensor::CommandLine& line) {
  using namespace ZoSensor;
  SensorDescription description = line.resourceFile.empty() ? ParseResources(DemoResources(), "the demo")
                                                            : LoadResources(line.resourceFile);
  Log log(line.logLevel);
  Server server(line.server, std::move(description), log);
  server.Listen();
  server.StopOnSignals();
  if (!Print("listening on " + server.Endpoint() + "\n")) {
    log.Warning("nobody reads stdout; listening on {}", server.Endpoint());
  }
  server.Run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // A client or a reader of our output that goes away is told by a result, not by a signal.
  std::signal(SIGPIPE, SIG_IGN);
  const auto parsed = ZoSensor::ParseCommandLine(argc, argv, std::cout, std::cerr);
  if (const int* status = std::get_if<int>(&parsed)) {
    return *status;
  }
  const auto& line = std::get<ZoSensor::CommandLine>(parsed);
  if (line.printResources) {
    if (!Print(ZoSensor::DemoResources())) {
      std::perror("zosensor: the resources could not be written");
      return 1;
    }
    return 0;
  }
  try {
    return Serve(line);
  } catch (const std::exception& error) {
    std::cerr << "zosensor: " << error.what() << "\n";
    return 1;
  }
}
