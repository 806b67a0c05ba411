// How an instance begins and ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "qapi/testing.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/vyrnclient/instancetest.h"
#include "zoiohandler/vyrnclient/sensormanager.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using ZoIO::ZoVyrnClient;

TEST(InstanceLifecycle, SimulatedOneTellsItsCreationLetterByLetter) {
  Recorder recorder;
  const ZoVyrnClient client("simulator", 4711, recorder.Param());
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("2 ZoIO::ZoVyrnClient::ZoVyrnClient: Creating ZoIoHandler instance.",
                          "2 ZoIO::ZoVyrnClient::ZoVyrnClient: Creating simulator.",
                          "2 ZoIO::ZoVyrnClient::ZoVyrnClient: Simulator created.",
                          "3 ZoIO::ZoVyrnClient::ZoVyrnClient: ZoIoHandler instance created.",
                          "3 ZoIO::ZoVyrnClient::ZoVyrnClient: Sensor  IP address: simulator",
                          "3 ZoIO::ZoVyrnClient::ZoVyrnClient: Sensor  control port: 4711"));
}

TEST(InstanceLifecycle, DestructionTellsItsStepsInOrder) {
  Recorder recorder;
  auto client = std::make_unique<ZoVyrnClient>("simulator", 0, recorder.Param());
  recorder.Clear();
  client.reset();
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Destroying ZoIoHandler instance.",
                          "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Joining ZoVyrnClient::Monitor thread.",
                          "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoVyrnClient::Monitor thread joined.",
                          "2 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoIoHandler instance destroyed successfully.",
                          "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
                          "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."));
}

TEST(InstanceLifecycle, AddressSimulatorMakesTheSimulator) {
  Recorder recorder;
  const ZoVyrnClient client("simulator", 0, recorder.Param());
  EXPECT_NE(dynamic_cast<ZoIO::SensorManagerSimulator*>(client.Sensor().get()), nullptr);
}

TEST(InstanceLifecycle, EveryOtherAddressMakesARealSensorManager) {
  for (const char* address :
       {"Simulator", "SIMULATOR", "simulator ", " simulator", "simulato", "simulators", ""}) {
    SCOPED_TRACE(address);
    Recorder recorder;
    const ZoVyrnClient client(address, 1, recorder.Param());
    EXPECT_NE(dynamic_cast<ZoIO::SensorManager*>(client.Sensor().get()), nullptr);
    EXPECT_EQ(recorder.CountMessages("Creating sensor manager."), 1u);
    EXPECT_EQ(recorder.CountMessages("Sensor manager created."), 1u);
    EXPECT_EQ(recorder.CountMessages("Creating simulator."), 0u);
    EXPECT_EQ(recorder.CountMessages("Sensor  IP address: " + std::string(address)), 1u);
  }
}

TEST(InstanceLifecycle, RunsUntilItsDestructionBegins) {
  Recorder recorder;
  auto client = std::make_unique<ZoVyrnClient>("simulator", 0, recorder.Param());
  EXPECT_TRUE(client->IsRunning());
  const ZoVyrnClient* const seen = client.get();
  bool atFirstLine = false;
  bool beforeJoin = false;
  bool afterJoin = true;
  recorder.OnLog([&](const Entry& entry) {
    if (entry.message == "Destroying ZoIoHandler instance.") {
      atFirstLine = seen->IsRunning();
    } else if (entry.message == "Joining ZoVyrnClient::Monitor thread.") {
      beforeJoin = seen->IsRunning();
    } else if (entry.message == "ZoVyrnClient::Monitor thread joined.") {
      afterJoin = seen->IsRunning();
    }
  });
  client.reset();
  EXPECT_TRUE(atFirstLine);
  EXPECT_TRUE(beforeJoin) << "what the line says is yet to come";
  EXPECT_FALSE(afterJoin);
}

// A sensor manager asks while the instance that makes it is being made.
TEST(InstanceLifecycle, RunsFromBeforeItsSensorIsMade) {
  for (const char* address : {"simulator", ""}) {
    SCOPED_TRACE(address);
    Recorder recorder;
    alignas(ZoVyrnClient) std::array<std::byte, sizeof(ZoVyrnClient)> place{};
    ZoVyrnClient* const making = reinterpret_cast<ZoVyrnClient*>(place.data());
    std::vector<std::string> running;
    recorder.OnLog([&](const Entry& entry) {
      if (entry.index > 0 && making->IsRunning()) {
        running.push_back(entry.message);
      }
    });
    ZoVyrnClient* const client = new (place.data()) ZoVyrnClient(address, 1, recorder.Param());
    recorder.OnLog({});
    const Recorder::Entries lines = recorder.Logs();
    std::destroy_at(client);
    ASSERT_GT(lines.size(), 5u);
    ASSERT_EQ(running.size(), lines.size() - 1);
    EXPECT_THAT(running.front(), StartsWith("Creating s"));
  }
}

TEST(InstanceLifecycle, HasItsOwnCopyOfTheRecord) {
  Recorder recorder;
  ioHandlerParam param = recorder.Param();
  ZoVyrnClient client("simulator", 0, param);
  param = {};
  EXPECT_EQ(client.Read("/r#/a"), 0);
  EXPECT_EQ(recorder.CountValues("/r#/a"), 1u);
}

TEST(InstanceLifecycle, RecordWithoutCallbacksIsFine) {
  ::testing::internal::CaptureStdout();
  {
    ZoVyrnClient client("simulator", 0, ioHandlerParam{});
    EXPECT_EQ(client.Read("/r#/a"), 0);
    EXPECT_EQ(client.Call(nullptr, "RunSensor", "{}"), 0);
    EXPECT_EQ(Subscribe(client, {"/r#/a"}), 0);
  }
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              StartsWith("Creating ZoIoHandler instance.\nCreating simulator.\nSimulator created.\n"));
}

TEST(InstanceLifecycle, DestructionTakesMilliseconds) {
  const Stopwatch watch;
  for (int i = 0; i < 20; ++i) {
    Recorder recorder;
    ZoVyrnClient client("simulator", 0, recorder.Param());
    Subscribe(client, {"/int#/a"}, nullptr, 0ms);
  }
  // Each of its four threads waited for in turn would take seconds each time.
  EXPECT_LT(watch.Milliseconds().count(), 20'000);
}

TEST(InstanceLifecycle, NothingLeaks) {
  const std::uint64_t objects = qTest_LiveObjects();
  {
    Recorder recorder;
    ZoVyrnClient client("simulator", 0, recorder.Param());
    EXPECT_GT(qTest_LiveObjects(), objects);
    client.Read("/int#/a");
    Subscribe(client, {"/int#/a"});
  }
  EXPECT_EQ(qTest_LiveObjects(), objects);
}

TEST(InstanceLifecycle, InstancesDoNotDisturbEachOther) {
  Recorder first;
  Recorder second;
  auto a = std::make_unique<ZoVyrnClient>("simulator", 0, first.Param());
  ZoVyrnClient b("simulator", 0, second.Param());
  EXPECT_EQ(a->Read("/r#/a"), 0);
  a.reset();
  EXPECT_EQ(b.Read("/r#/b"), 0);
  EXPECT_EQ(second.CountValues("/r#/a"), 0u);
  EXPECT_EQ(second.CountValues("/r#/b"), 1u);
  EXPECT_EQ(first.CountValues("/r#/b"), 0u);
}

TEST(InstanceLifecycle, BlockedMonitorIsLoggedAtCriticalAndDestructionGoesOn) {
  const std::uint64_t objects = qTest_LiveObjects();
  Recorder recorder;
  Gate gate;
  auto client = std::make_unique<ZoVyrnClient>("simulator", 0, recorder.Param());
  recorder.OnValue([&](const Entry&) { gate.Wait(); });
  Subscribe(*client, {"/int#/a", "/int#/b"}, nullptr, 0ms);
  ASSERT_TRUE(gate.WaitForArrivals());
  recorder.Clear();
  const Stopwatch watch;
  client.reset();
  EXPECT_GE(watch.Milliseconds().count(), 990);
  EXPECT_LT(watch.Milliseconds().count(), 10'000);
  const std::vector<std::string> lines = recorder.LogLines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Destroying ZoIoHandler instance.");
  EXPECT_EQ(lines[1], "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Joining ZoVyrnClient::Monitor thread.");
  EXPECT_EQ(lines[2],
            "6 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoIO::ZoVyrnClient::~ZoVyrnClient failed with status -1 "
            "(time-out) at "
            "hmi/zoiohandler/zoiohandler/vyrnclient/zovyrnclient:65");
  EXPECT_EQ(lines[3], "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.");
  EXPECT_EQ(lines[4], "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed.");
  // The pass goes on over what it co-owns, and begins no callback any more: neither the second item's nor a
  // line.
  recorder.Clear();
  gate.Open();
  EXPECT_TRUE(Eventually([&] { return qTest_LiveObjects() == objects; }));
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST(InstanceLifecycle, GivesItsSensorUpBeforeItJoinsAndShutsItDownOnce) {
  Recorder recorder;
  const auto sensor =
      std::make_shared<FakeSensorManager>(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
  auto client = std::make_unique<ZoVyrnClient>(sensor, sensor, recorder.Param());
  int giveUpsAtJoin = 0;
  recorder.OnLog([&](const Entry& entry) {
    if (entry.message == "ZoVyrnClient::Monitor thread joined.") {
      giveUpsAtJoin = sensor->GiveUps();
      EXPECT_EQ(sensor->Shutdowns(), 0);
    }
  });
  client.reset();
  EXPECT_EQ(giveUpsAtJoin, 1);
  EXPECT_EQ(sensor->Shutdowns(), 1);
}

TEST(InstanceLifecycle, NoCallbackBeginsAfterDestruction) {
  Recorder recorder;
  for (int i = 0; i < 5; ++i) {
    auto client = std::make_unique<ZoVyrnClient>("simulator", 0, recorder.Param());
    Subscribe(*client, {"/int#/a", "/float#/a"}, nullptr, 0ms);
    client.reset();
    const std::size_t size = recorder.Size();
    // Another instance's whole life later, nothing of the first has come.
    Recorder other;
    { ZoVyrnClient later("simulator", 0, other.Param()); }
    EXPECT_EQ(recorder.Size(), size);
  }
}

}  // namespace
}  // namespace ZoTest
