// A whole emulator in this process, on a port that it found, with its I/O thread.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "tests/zosensor/rawclient.h"
#include "tools/zosensor/resourcefile.h"
#include "tools/zosensor/server.h"

namespace ZoSensor {

class ServerFixture : public ::testing::Test {
 protected:
  static constexpr const char* DefaultResources = R"({"resources": {
    "/res": {"content": {"v": 1}, "writable": true},
    "/wave": {"rate_hz": 100, "content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
    "/silent": {"stream": false, "content": {"v": 1}},
    "/a b/\u00e4": {"content": {"odd": true}, "writable": true},
    "/echo": {"call": {"echo": true}}}})";

  ~ServerFixture() override { Stop(); }

  void Start(std::initializer_list<const char*> faults = {}, std::string_view resources = DefaultResources) {
    options.port = 0;
    for (const char* fault : faults) {
      std::string objection;
      const auto next = options.faults.With(fault, objection);
      ASSERT_TRUE(next) << objection;
      options.faults = *next;
    }
    server = std::make_unique<Server>(options, ParseResources(resources, "test"), log);
    server->Listen();
    port = server->Port();
    thread = std::thread([this] { server->Run(); });
  }

  void Stop() {
    if (thread.joinable()) {
      server->Stop();
      thread.join();
    }
    server.reset();
  }

  HttpAnswer Rest(const std::string& method, const std::string& path, const std::string& body = "",
                  const std::map<std::string, std::string>& headers = {}) const {
    return AskHttp(port, method, "/vyrn/v1/resources" + path, body, headers);
  }

  static int StatusOf(const ZoJson& answer) { return answer.At("status").Get<int>(); }

  ServerOptions options;
  Log log{LogLevel::Off};
  std::unique_ptr<Server> server;
  std::thread thread;
  std::uint16_t port = 0;
};

}  // namespace ZoSensor
