// A whole emulated sensor in this process, which a test can take away and bring back on the same port.
//
// Threads: the operations belong to the test's thread; the sensor is served on one of its own. Owner: the test.
// The destructor stops the sensor, whoever is still connected.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "tests/support/heldport.h"
#include "tests/zosensor/rawclient.h"
#include "tools/zosensor/server.h"

namespace ZoTest {

class Emulator {
 public:
  // resources: the text of a resource file. Starts.
  explicit Emulator(std::string resources);
  ~Emulator();
  Emulator(const Emulator&) = delete;
  Emulator& operator=(const Emulator&) = delete;

  std::uint16_t Port() const { return options.port; }

  // Closes all sessions and listens no more; Start does so again on the same port, with the resources as new.
  void Stop();
  void Start();

  // Over the REST door: the content of a resource as JSON text, and requests that must be granted. One that a fault cuts
  // is made again.
  std::string Content(const std::string& uri) const;
  void Put(const std::string& uri, const std::string& body) const { Ask("PUT", uri, body); }
  void Patch(const std::string& uri, const std::string& body) const { Ask("PATCH", uri, body); }
  void Post(const std::string& uri, const std::string& body = "null") const { Ask("POST", uri, body); }

 private:
  void End();
  ZoJson Ask(const std::string& method, const std::string& uri, const std::string& body) const;

  const std::string resources;
  ZoSensor::ServerOptions options;
  std::optional<HeldPort> held;  // while nobody listens
  ZoSensor::Log log{ZoSensor::LogLevel::Off};
  std::unique_ptr<ZoSensor::Server> server;
  std::thread thread;
};

}  // namespace ZoTest
