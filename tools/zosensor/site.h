// What all connections of one server share, and the face that they show to it.
//
// Threads: the I/O thread alone. Owner: the server.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_set>

#include <boost/asio/io_context.hpp>

#include "tools/zosensor/faults.h"
#include "tools/zosensor/gatedsocket.h"
#include "tools/zosensor/limits.h"
#include "tools/zosensor/log.h"
#include "tools/zosensor/sensor.h"

namespace ZoSensor {

class Connection {
 public:
  virtual ~Connection() = default;
  // Ends in good order, soon.
  virtual void Shutdown() = 0;
  // Ends at once, without a word.
  virtual void Cut(std::string_view reason) = 0;
};

struct Site {
  boost::asio::io_context& io;
  Sensor& sensor;
  FaultController& faults;
  const Limits& limits;
  Log& log;
  StallGate gate{io};
  std::unordered_set<std::shared_ptr<Connection>> connections{};
  std::size_t sessions = 0;
  bool onLoopback = true;  // where it listens: no other machine gets there
  bool closing = false;
  // To be called whenever the sensor was asked for something: its next due time may have moved.
  std::function<void()> attend{};
  std::function<void()> connectionEnded{};
};

}  // namespace ZoSensor
