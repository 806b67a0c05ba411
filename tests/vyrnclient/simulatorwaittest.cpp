// Who waits for a pass of the simulator. The pass stands in the host's log callback, with the warning of an item that
// fails, until the test lets it go.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "tests/support/asleep.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

namespace ZoTest {
namespace {

class SimulatorWait : public ::testing::Test {
 protected:
  using Operation = std::function<void()>;

  void SetUp() override {
    recorder.OnLog([this](const Entry& entry) {
      if (entry.function == "ZoIO::SensorManagerSimulator::Simulate") {
        gate.Wait();
      }
    });
    simulator->Update("/list", ZoJson("[1,2]"), true);
    simulator->PLC()->Item("/list#/x");
    ASSERT_TRUE(gate.WaitForArrivals());
  }

  void TearDown() override {
    recorder.OnLog({});
    gate.Open();
  }

  void ExpectWaits(const Operation& operation) {
    std::atomic<pid_t> id = 0;
    std::atomic<bool> done = false;
    std::thread thread([&] {
      id = ::gettid();
      operation();
      done = true;
    });
    // What it may sleep in for long is the operation alone; a moment's sleep elsewhere does not last.
    int asleep = 0;
    EXPECT_TRUE(Eventually([&] {
      asleep = id != 0 && IsAsleep(id) ? asleep + 1 : 0;
      return done || asleep == 50;
    }));
    EXPECT_FALSE(done);
    recorder.OnLog({});
    gate.Open();
    thread.join();
    EXPECT_TRUE(done);
  }

  Gate gate;
  Recorder recorder;
  std::shared_ptr<ZoIO::Logger> logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  std::unique_ptr<ZoIO::SensorManagerSimulator> simulator =
      std::make_unique<ZoIO::SensorManagerSimulator>(logger);
};

TEST_F(SimulatorWait, ReadWaitsForThePass) {
  ExpectWaits([this] { simulator->Read("/other", true); });
}

TEST_F(SimulatorWait, CreateWaitsForThePass) {
  ExpectWaits([this] { simulator->Create("/other", {}, true); });
}

TEST_F(SimulatorWait, DeleteWaitsForThePass) {
  ExpectWaits([this] { simulator->Delete("/other", true); });
}

TEST_F(SimulatorWait, NoOtherVerbWaits) {
  simulator->Update("/other", ZoJson::Of(1), true);
  simulator->Call("/other", {}, true);
  simulator->Subscribe("/other", true);
  simulator->Unsubscribe("/other", true);
  simulator->Stream("/other", true);
  simulator->StopStream("/other", true);
  simulator->Start();
  simulator->Stop();
  EXPECT_TRUE(gate.WaitForArrivals(1));
  EXPECT_FALSE(gate.IsOpen());
}

}  // namespace
}  // namespace ZoTest
