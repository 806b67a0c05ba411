// The REST door without its sockets: one HTTP request in, one status and JSON document out.
//
// Threads: the I/O thread alone. Owner: the HTTP connection; each has one, because faults are rolled for
// each.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/zosensor/clock.h"
#include "tools/zosensor/faults.h"
#include "tools/zosensor/limits.h"
#include "tools/zosensor/log.h"
#include "tools/zosensor/sensor.h"

namespace ZoSensor {

struct RestRequest {
  std::string method;
  std::string target;
  std::string body;
};

struct RestAnswer {
  unsigned status = 200;
  std::string body;
  std::string allow;  // the methods that there are, for a 405 of the door itself
  FaultPlan plan;
  Disturbance disturbance = Disturbance::None;
};

class RestDoor {
 public:
  RestDoor(Sensor& doorSensor, FaultController& faultController, const Limits& doorLimits, Log& doorLog);

  RestAnswer Handle(const RestRequest& request, const std::string& peer, Time now);

  // An answer of the door itself: the response document of a failure.
  static RestAnswer Refuse(unsigned status, std::string_view uri, std::string reason);

  // The path of a target in origin form or absolute form, without its query and percent-decoded. Nothing for one that
  // cannot be decoded.
  static std::optional<std::string> TargetPath(std::string_view target);

  // The resource that a target names, percent-decoding done. Nothing for one outside the door; an empty text
  // for one that cannot be decoded.
  static std::optional<std::string> ResourcePath(std::string_view target);

  static constexpr const char* Methods = "GET, HEAD, PUT, PATCH, DELETE, POST, OPTIONS";

 private:
  Answer DispatchSafely(const RestRequest& request, const std::string& path, Time now);
  Answer Dispatch(const RestRequest& request, const std::string& path, Time now);

  Sensor& sensor;
  FaultController& faults;
  const Limits& limits;
  Log& log;
  FaultDice dice;
  std::uint64_t requests = 0;
};

}  // namespace ZoSensor
