// The state that the sensor manager keeps of its sensor: what each status means, and how one follows the other.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/qapi/failingnew.h"
#include "tests/wire/sensormanagertest.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoTest {
namespace {

using testing::ElementsAre;
using testing::StartsWith;
using ZoIO::SensorManager;
using Access = ZoIO::SensorManagerAccess;
using State = ZoIO::SensorManager::SensorState;

const std::string update = " ZoIO::SensorManager::UpdateSensorState: ";

// Status and the one before it.
using States = std::pair<State::Status, State::Status>;

class SensorStatus : public SensorManagerTest {
 protected:
  static States StatesOf(SensorManager& manager) {
    return {Access::StatusNow(manager), Access::PreviousStatus(manager)};
  }

  // A manager that found no sensor, and the sensor there now.
  std::unique_ptr<SensorManager> MakeTooEarly() {
    sensor.StopListening();
    auto manager = Make(sensor.Port());
    sensor.Listen();
    recorder.Clear();
    return manager;
  }

  // Recreating the subscriptions of a manager with such an item raises this.
  void AddItemThatRaises(SensorManager& manager) {
    other->SetScript("Stream", [](const auto&) -> ZoJson { throw std::runtime_error("no stream today"); });
    manager.PLC()->Item("/r#/value").subscribed = true;
    recorder.Clear();
  }

  // Says what a test wants it to.
  struct Claiming : SensorManager {
    using SensorManager::SensorManager;
    bool IsConnected() override { return claimed; }
    bool claimed = false;
  };

  struct Clueless : SensorManager {
    using SensorManager::SensorManager;
    bool IsConnected() override { throw std::runtime_error("nobody knows"); }
  };
};

TEST_F(SensorStatus, HasFourValuesOf32BitsWithTheirNumbers) {
  static_assert(std::is_same_v<std::underlying_type_t<State::Status>, std::int32_t>);
  EXPECT_EQ(State::Unknown, 0);
  EXPECT_EQ(State::Online, 1);
  EXPECT_EQ(State::Offline, 2);
  EXPECT_EQ(State::Reconnected, 3);
}

TEST_F(SensorStatus, IsUnknownBeforeTheFirstConnectionAndOnlineAfterIt) {
  const auto manager = MakeTooEarly();
  EXPECT_EQ(StatesOf(*manager), States(State::Unknown, State::Unknown));
  Access::UpdateSensorState(*manager);
  EXPECT_EQ(StatesOf(*manager), States(State::Online, State::Unknown));
}

TEST_F(SensorStatus, IsOnlineRightBehindAConstructionThatConnected) {
  const auto manager = Make(sensor.Port());
  EXPECT_EQ(StatesOf(*manager), States(State::Online, State::Unknown));
}

TEST_F(SensorStatus, EachChangeKeepsTheOneBefore) {
  const auto manager = MakeTooEarly();
  State::Status before = State::Unknown;
  for (const State::Status status : {State::Online, State::Offline, State::Reconnected, State::Reconnected,
                                     State::Unknown, State::Offline, State::Online}) {
    Access::SetStatus(*manager, status);
    EXPECT_EQ(StatesOf(*manager), States(status, before));
    before = status;
  }
}

TEST_F(SensorStatus, OnlineAndReconnectedCountAsOnlineAndTheOthersDoNot) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    peer.Send(FakeSensor::Answer(request, R"("status":1,"payload":{"state":1})"));
  });
  const auto manager = Make(sensor.Port());
  for (const auto& [status, online] : {std::pair(State::Reconnected, true), std::pair(State::Unknown, false),
                                       std::pair(State::Online, true), std::pair(State::Offline, false)}) {
    SCOPED_TRACE(status);
    Access::SetStatus(*manager, status);
    recorder.Clear();
    const std::size_t requests = sensor.Requests().size();
    for (const Verb& verb : verbs) {
      EXPECT_EQ(verb.call(*manager, "/res", true).Empty(), !online) << verb.name;
    }
    manager->Start();
    manager->Stop();
    EXPECT_EQ(manager->IsRunning(), online);
    EXPECT_EQ(sensor.Requests().size() - requests, online ? verbs.size() + 3 : 0);
    EXPECT_EQ(Lines().size(), online ? 0 : verbs.size() + 2);
  }
}

TEST_F(SensorStatus, OnlineAfterOfflineBecomesReconnected) {
  const auto manager = Make(sensor.Port());
  Access::SetStatus(*manager, State::Offline);
  Access::UpdateSensorState(*manager);
  EXPECT_EQ(StatesOf(*manager), States(State::Reconnected, State::Online));
}

TEST_F(SensorStatus, OnlineAfterAnyOtherStaysOnline) {
  const auto manager = Make(sensor.Port());
  for (const State::Status before : {State::Unknown, State::Online, State::Reconnected}) {
    Access::SetStatus(*manager, before);
    Access::UpdateSensorState(*manager);
    EXPECT_EQ(StatesOf(*manager), States(State::Online, before));
  }
}

TEST_F(SensorStatus, OnlineAfterOfflineBecomesReconnectedEvenWhenTheUpdateFailed) {
  const auto manager = Make(sensor.Port());
  AddItemThatRaises(*manager);
  Access::SetStatus(*manager, State::Offline);
  Access::UpdateSensorState(*manager);
  EXPECT_THAT(Lines(), testing::Contains("5" + update + "no stream today"));
  EXPECT_EQ(StatesOf(*manager), States(State::Reconnected, State::Online));
}

TEST_F(SensorStatus, ConnectionThatFailsLeavesItAsItWas) {
  sensor.StopListening();
  const auto manager = Make(sensor.Port());
  for (const State::Status status : {State::Unknown, State::Offline}) {
    Access::SetStatus(*manager, status);
    const States before = StatesOf(*manager);
    recorder.Clear();
    Access::UpdateSensorState(*manager);
    EXPECT_THAT(Lines(), ElementsAre("2" + update + "System is not connected. Connecting...",
                                     StartsWith("5" + update + "Cannot connect to the sensor at 127.0.0.1")));
    EXPECT_EQ(StatesOf(*manager), before);
  }
}

TEST_F(SensorStatus, UpdateOfAConnectedSystemConnectsNothingAndDoesNotSaySo) {
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  Access::UpdateSensorState(*manager);
  EXPECT_THAT(Lines(), ElementsAre("2" + update + "Updating sensor status.",
                                   "2" + update + "Sensor status updated successfully",
                                   "2" + update + "Recreating subscriptions.",
                                   "2" + update + "Subscriptions recreated."));
  EXPECT_EQ(sensor.ConnectionCount(), 1u);
}

// A log callback that asks, which runs where the line is written.
TEST_F(SensorStatus, IsTheOldOneAtTheLineBeforeTheChangeAndOnlineAtTheLineBehindIt) {
  const auto manager = Make(sensor.Port());
  using Seen = std::pair<std::string, State::Status>;
  for (const State::Status before : {State::Unknown, State::Offline, State::Reconnected}) {
    Access::SetStatus(*manager, before);
    std::vector<Seen> seen;
    recorder.OnLog(
        [&](const Entry& entry) { seen.emplace_back(entry.message, Access::StatusNow(*manager)); });
    Access::UpdateSensorState(*manager);
    recorder.OnLog({});
    // It becomes Reconnected behind all lines.
    EXPECT_THAT(seen, ElementsAre(Seen("Updating sensor status.", before),
                                  Seen("Sensor status updated successfully", State::Online),
                                  Seen("Recreating subscriptions.", State::Online),
                                  Seen("Subscriptions recreated.", State::Online)));
  }
}

TEST_F(SensorStatus, UpdateBelievesTheInterfacesWordAboutTheConnection) {
  sensor.StopListening();
  Claiming manager(client, "127.0.0.1", sensor.Port(), logger);
  sensor.Listen();
  manager.claimed = true;
  recorder.Clear();
  Access::UpdateSensorState(manager);
  EXPECT_THAT(Lines(), testing::Not(testing::Contains(testing::HasSubstr("onnect"))));
  EXPECT_EQ(Access::StatusNow(manager), State::Online);
  EXPECT_EQ(sensor.ConnectionCount(), 0u);
  manager.claimed = false;
  for (int i = 0; i < 2; ++i) {
    recorder.Clear();
    Access::UpdateSensorState(manager);
    EXPECT_THAT(Lines(), testing::Contains("2" + update + "System is not connected. Connecting..."));
    EXPECT_EQ(sensor.ConnectionCount(), 1u);
  }
}

TEST_F(SensorStatus, UpdateThatCannotLearnOfTheConnectionIsLoggedAtErrorAndChangesAndConnectsNothing) {
  sensor.StopListening();
  Clueless manager(client, "127.0.0.1", sensor.Port(), logger);
  sensor.Listen();
  for (const State::Status status : {State::Unknown, State::Online, State::Offline, State::Reconnected}) {
    SCOPED_TRACE(status);
    Access::SetStatus(manager, State::Unknown);
    Access::SetStatus(manager, status);
    recorder.Clear();
    Access::UpdateSensorState(manager);
    EXPECT_THAT(Lines(), ElementsAre("5" + update + "nobody knows"));
    EXPECT_EQ(StatesOf(manager), States(status, State::Unknown));
  }
  EXPECT_EQ(sensor.ConnectionCount(), 0u);
}

TEST_F(SensorStatus, WhatRaisesAfterConnectingEndsTheUpdateAndIsLoggedAtError) {
  const auto manager = MakeTooEarly();
  AddItemThatRaises(*manager);
  Access::UpdateSensorState(*manager);
  EXPECT_THAT(
      Lines(),
      ElementsAre("2" + update + "System is not connected. Connecting...",
                  "2" + update + "System connected successfully.", "2" + update + "Updating sensor status.",
                  "2" + update + "Sensor status updated successfully",
                  "2" + update + "Recreating subscriptions.", "5" + update + "no stream today"));
  EXPECT_EQ(StatesOf(*manager), States(State::Online, State::Unknown));
}

// Before it connects, making the link and setting its handlers can fail for want of memory alone.
TEST_F(SensorStatus, SystemThatCannotBeMadeIsLoggedAtErrorAndLeavesTheManagerOffline) {
  int failures = 0;
  for (int nth = 1; nth < 1000; ++nth) {
    SCOPED_TRACE(nth);
    std::unique_ptr<SensorManager> manager;
    recorder.Clear();
    try {
      const FailingNew failing(nth);
      manager = Make(sensor.Port());
    } catch (const std::exception&) {
      EXPECT_EQ(failures, 0) << "only what is made before the system may raise";
      continue;
    }
    if (manager->IsConnected()) {
      break;
    }
    ++failures;
    EXPECT_THAT(Lines(), ElementsAre("5 ZoIO::SensorManager::InitializeSystem: std::bad_alloc"));
    EXPECT_EQ(StatesOf(*manager), States(State::Unknown, State::Unknown));
    recorder.Clear();
    EXPECT_TRUE(manager->Read("/r", true).Empty());
    EXPECT_THAT(Lines(), ElementsAre("4 ZoIO::SensorManager::Read: `Read` failed.Sensor is offline."));
    EXPECT_NE(manager->PLC(), nullptr);
    EXPECT_NE(manager->Cache(), nullptr);
  }
  EXPECT_GT(failures, 2);
  EXPECT_EQ(sensor.ConnectionCount(), 1u);
}

}  // namespace
}  // namespace ZoTest
