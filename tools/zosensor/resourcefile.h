// Reads the JSON description of a sensor's resources. docs/zosensor.md tells users its members.
// Functions without state.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/zosensor/sensor.h"

namespace ZoSensor {

// what(): "FILE:LINE:COLUMN: reason", or "FILE: reason" when the file itself cannot be read.
class ResourceFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// fileName is for the error's text alone.
SensorDescription ParseResources(std::string_view text, const std::string& fileName);
SensorDescription LoadResources(const std::string& fileName);

}  // namespace ZoSensor
