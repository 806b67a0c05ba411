// How long the end of an instance waits for threads that do not come. Where time stands still, no test has to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/model/stoppedtime.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoModel {
namespace {

TEST(Join, OfEachThreadOfAnInstanceWaitsASecondAtMost) {
  constexpr std::uint64_t second = 1'000'000;  // µs
  StoppedTime time(1'700'000'000 * second);
  ZoTest::Recorder host;
  const auto sensor = std::make_shared<ZoTest::FakeSensorManager>(
      std::make_shared<ZoIO::Logger>(&host, &ZoTest::Recorder::HandleLog));
  auto client = std::make_unique<ZoIO::ZoVyrnClient>(sensor, sensor, host.Param());
  EXPECT_TRUE(time.WaitForMonitor());
  client.reset();
  // The monitor's, the cache's and the registry's.
  EXPECT_THAT(time.Joins(), testing::ElementsAre(second, second, second));
}

}  // namespace
}  // namespace ZoModel
