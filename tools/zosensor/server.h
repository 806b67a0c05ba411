// The emulator as a whole: a sensor, its faults, a port, and the thread that serves them.
//
// Threads: Listen, then Run on the thread that shall be the I/O thread; Stop from any thread, any number of
// times. Owns everything below it but the log.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "tools/zosensor/faults.h"
#include "tools/zosensor/limits.h"
#include "tools/zosensor/log.h"
#include "tools/zosensor/sensor.h"

namespace ZoSensor {

struct ServerOptions {
  std::string address = "127.0.0.1";
  std::uint16_t port = 3600;
  std::uint64_t seed = 1;
  Limits limits;
  FaultSettings faults;
};

// what(): a sentence with the address, the port and the cause.
class ListenError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Server {
 public:
  Server(ServerOptions options, SensorDescription description, Log& log);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Raises ListenError.
  void Listen();
  // "127.0.0.1:3600", with the port that was found. After Listen.
  std::string Endpoint() const;
  std::uint16_t Port() const;

  // Ends Run on SIGINT and SIGTERM.
  void StopOnSignals();
  // Serves until stopped; returns when the last session has been closed (or after a moment, without those
  // that hang).
  void Run();
  void Stop();

 private:
  class Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace ZoSensor
