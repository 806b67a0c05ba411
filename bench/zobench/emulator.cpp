#include "bench/zobench/emulator.h"

#include <fmt/format.h>

#include <csignal>

#include "bench/zobench/sockets.h"
#include "tools/zosensor/log.h"
#include "tools/zosensor/resourcefile.h"
#include "tools/zosensor/server.h"

namespace ZoBench {
namespace {

void Serve(const std::string& resources, int channel) {
  std::signal(SIGPIPE, SIG_IGN);
  ZoSensor::Log log(ZoSensor::LogLevel::Error);
  ZoSensor::ServerOptions options;
  options.address = "127.0.0.1";
  options.port = 0;
  ZoSensor::Server server(options, ZoSensor::ParseResources(resources, "the benchmark's resources"), log);
  server.Listen();
  const std::uint16_t port = server.Port();
  WriteAll(channel, &port, sizeof port);
  server.Run();
}

}  // namespace

Emulator::Emulator(const std::string& resources)
    : child([&resources](int channel) { Serve(resources, channel); }) {
  ReadExactly(child.Channel(), &port, sizeof port);
}

std::string MovingResources(int resources, int items, double rate) {
  std::string content;
  std::string waves;
  for (int i = 0; i < items; ++i) {
    content += fmt::format("{}\"v{:03}\": 0", i == 0 ? "" : ", ", i);
    waves += fmt::format("{}\"/v{:03}\": {{\"wave\": \"counter\", \"start\": {}}}", i == 0 ? "" : ", ", i, i);
  }
  return fmt::format(
      "{{\"rate_hz\": {}, \"resources\": {{\"/r{{000..{:03}}}\": {{\"content\": {{{}}}, \"waves\": "
      "{{{}}}}}}}}}",
      rate, resources - 1, content, waves);
}

}  // namespace ZoBench
