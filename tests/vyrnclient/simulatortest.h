// The fixture of tests with a simulator whose worker has ended, so that a test makes the passes. What is
// cached is seen after each one, as passes are more than a millisecond apart.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/recorder.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

namespace ZoTest {

class SimulatorTest : public ::testing::Test {
 protected:
  SimulatorTest() {
    simulator.Shutdown();
    recorder.Clear();
  }

  void Register(const std::string& name) { simulator.PLC()->Item(name); }

  void Pass() {
    const long long before = ZoIO::CacheManager::TimeInMills();
    while (ZoIO::CacheManager::TimeInMills() == before) {
    }
    simulator.Pass();
  }

  ZoJson Cached(const std::string& uri) { return simulator.Cache()->Get(uri, 0); }

  Recorder recorder;
  std::shared_ptr<ZoIO::Logger> logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  ZoIO::SensorManagerSimulator simulator{logger};
};

}  // namespace ZoTest
