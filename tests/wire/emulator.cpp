#include "tests/wire/emulator.h"

#include <gtest/gtest.h>

#include <utility>

#include "tools/zosensor/resourcefile.h"

namespace ZoTest {

Emulator::Emulator(std::string resources) : resources(std::move(resources)) {
  options.port = 0;
  options.limits.maxClients = 256;
  Start();
}

Emulator::~Emulator() {
  End();
}

void Emulator::Stop() {
  End();
  held.emplace(options.port);
}

void Emulator::End() {
  if (thread.joinable()) {
    server->Stop();
    thread.join();
  }
  server.reset();
}

void Emulator::Start() {
  server = std::make_unique<ZoSensor::Server>(options, ZoSensor::ParseResources(resources, "test"), log);
  server->Listen();
  held.reset();
  options.port = server->Port();
  thread = std::thread([this] { server->Run(); });
}

std::string Emulator::Content(const std::string& uri) const {
  return Ask("GET", uri, "").At("payload").ToString();
}

ZoJson Emulator::Ask(const std::string& method, const std::string& uri, const std::string& body) const {
  const Deadline deadline;
  ZoSensor::HttpAnswer answer;
  do {
    answer = ZoSensor::AskHttp(options.port, method, "/vyrn/v1/resources" + uri, body);
  } while (answer.status == 0 && !deadline.Expired());
  EXPECT_EQ(answer.status, 200u) << method << " " << uri << ": " << answer.body;
  return ZoJson::ParseString(answer.body.empty() ? "{}" : answer.body);
}

}  // namespace ZoTest
