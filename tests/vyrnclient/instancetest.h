// The fixtures of tests with a whole instance: on the simulator, or over a fake sensor.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/hostvalue.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoTest {

// Subscribes names with results that the test can look at; the results start as untouched.
inline constexpr int untouched = -77;
int Subscribe(ZoIO::ZoVyrnClient& client, const std::vector<const char*>& names,
              std::vector<int>* results = nullptr,
              std::chrono::milliseconds interval = std::chrono::hours(24));
int Unsubscribe(ZoIO::ZoVyrnClient& client, const std::vector<const char*>& names);

// "type:value" of every value that the host got for an item, in order.
std::vector<std::string> DescribeValues(const Recorder& recorder, const std::string& item);

// The log lines of functions whose name contains part.
std::vector<std::string> LinesOf(const Recorder& recorder, const std::string& part);

// An instance over a fake sensor, whose registry's worker never reads.
class FakeInstanceTest : public ::testing::Test {
 protected:
  FakeInstanceTest();
  ~FakeInstanceTest() override;

  ZoIO::ItemInfo& Item(const std::string& name) { return sensor->PLC()->Item(name); }

  Recorder recorder;
  const std::shared_ptr<FakeSensorManager> sensor;
  std::unique_ptr<ZoIO::ZoVyrnClient> client;
};

}  // namespace ZoTest
