// The sensor manager over the SDK by itself: what it says when it cannot act, letter by letter.
#include "tests/wire/sensormanagertest.h"

#include <cstring>

#include "qapi/testing.h"
#include "tests/qapi/failingnew.h"
#include "tests/sdk/fakesensor.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "zoiohandler/vyrnclient/cachemanager.h"

namespace ZoTest {
namespace {

using testing::StartsWith;
using ZoIO::ISensorManager;

TEST_F(SensorManagerTest, EachVerbIsRefusedWithOneWarningWhileTheSensorIsOffline) {
  sensor.StopListening();
  const auto manager = Make(sensor.Port());
  EXPECT_FALSE(manager->IsConnected());
  for (const Verb& verb : verbs) {
    recorder.Clear();
    EXPECT_TRUE(verb.call(*manager, "/res", true).Empty()) << verb.name;
    EXPECT_THAT(Lines(), testing::ElementsAre(std::string("4 ZoIO::SensorManager::") + verb.name + ": `" +
                                              verb.name + "` failed.Sensor is offline."));
    recorder.Clear();
    EXPECT_TRUE(verb.call(*manager, "/res", false).Empty()) << verb.name;
    EXPECT_THAT(Lines(), testing::IsEmpty()) << verb.name;
  }
}

TEST_F(SensorManagerTest, StartAndStopWarnWhileTheSensorIsOffline) {
  sensor.StopListening();
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  manager->Start();
  manager->Stop();
  EXPECT_FALSE(manager->IsRunning());
  EXPECT_THAT(Lines(), testing::ElementsAre("4 ZoIO::SensorManager::Start: Sensor is offline.",
                                            "4 ZoIO::SensorManager::Stop: Sensor is offline."));
}

TEST_F(SensorManagerTest, RequestWithoutAResponseIsLoggedWithItsUriAndMethod) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest&) { peer.Drop(); });
  const auto manager = Make(sensor.Port());
  ASSERT_TRUE(manager->IsConnected());
  for (const Verb& verb : verbs) {
    recorder.Clear();
    EXPECT_TRUE(verb.call(*manager, "/fatal", true).Empty()) << verb.name;
    EXPECT_THAT(Lines(), testing::ElementsAre(StartsWith("5 ZoIO::SensorManager::ResponseToZoJson: /fatal[" +
                                                         std::to_string(verb.method) + "]: The link")));
  }
}

TEST_F(SensorManagerTest, WhatStartStopAndIsRunningRaiseIsLoggedAtError) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    peer.Send(FakeSensor::Answer(request, "\"status\":-500,\"payload\":null,\"error\":\"broken\""));
  });
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  manager->Start();
  manager->Stop();
  EXPECT_FALSE(manager->IsRunning());
  EXPECT_THAT(Lines(), testing::ElementsAre(StartsWith("5 ZoIO::SensorManager::Start: "),
                                            StartsWith("5 ZoIO::SensorManager::Stop: "),
                                            StartsWith("5 ZoIO::SensorManager::IsRunning: ")));
}

TEST_F(SensorManagerTest, PushHandlersStoreThePayloadUnderThePathAndNothingForNoResponse) {
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  ZoIO::SensorManagerAccess::Stream(*manager, nullptr);
  ZoIO::SensorManagerAccess::Notify(*manager, nullptr);
  EXPECT_EQ(manager->Cache()->Size(), 0u);
  ZoIO::SensorManagerAccess::Stream(
      *manager, std::make_shared<ZoStreamResponse>(ZoJson(R"({"event":"stream","uri":"/s","payload":1})")));
  ZoIO::SensorManagerAccess::Notify(
      *manager,
      std::make_shared<ZoNotificationResponse>(ZoJson(R"({"event":"notification","uri":"/n","payload":2})")));
  EXPECT_EQ(manager->Cache()->Get("/s", 0).Get<int>(), 1);
  EXPECT_EQ(manager->Cache()->Get("/n", 0).Get<int>(), 2);
  EXPECT_THAT(Lines(), testing::IsEmpty());
}

TEST_F(SensorManagerTest, WhatAPushHandlerRaisesIsLoggedAtErrorUnderItsOwnName) {
  const auto manager = Make(sensor.Port());
  EXPECT_FALSE(manager->Stream("/s", true).Empty());
  EXPECT_FALSE(manager->Subscribe("/n", true).Empty());
  const auto push = [this](const std::string& event, const std::string& uri) {
    recorder.Clear();
    // The one lock of this kind that the link's thread enters is the cache's.
    qTest_FailOperationIn("ZoLink::Thread", qOperation::LockEnter, 1, qStatus_System);
    EXPECT_TRUE(sensor.Push(R"({"event":")" + event + R"(","uri":")" + uri + R"(","payload":1})"));
    EXPECT_TRUE(Eventually([this] { return !Lines().empty(); }));
    qTest_Reset();
    return Lines();
  };
  EXPECT_THAT(
      push("stream", "/s"),
      testing::ElementsAre(StartsWith("5 ZoIO::SensorManager::StreamHandler: Zo::Locker::Locker failed")));
  EXPECT_THAT(push("notification", "/n"),
              testing::ElementsAre(
                  StartsWith("5 ZoIO::SensorManager::NotificationHandler: Zo::Locker::Locker failed")));
}

// The next push of the resource may be far away.
TEST_F(SensorManagerTest, APushIsStoredWhicheverAllocationFails) {
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  bool failed = true;
  int nth = 0;
  while (failed && nth < 100) {
    ++nth;
    const std::string uri = "/a/name/that/needs/memory/for/itself/" + std::to_string(nth);
    const auto response = std::make_shared<ZoStreamResponse>(
        ZoJson(R"({"event":"stream","uri":")" + uri + R"(","payload":)" + std::to_string(nth) + "}"));
    const FailingNew failing(nth);
    ZoIO::SensorManagerAccess::Stream(*manager, response);
    failed = failing.HasFailed();
    EXPECT_TRUE(manager->Cache()->Size() != 0 && manager->Cache()->Get(uri, 0).Get<int>() == nth) << nth;
  }
  EXPECT_GT(nth, 2);
  EXPECT_FALSE(failed);
  EXPECT_THAT(Lines(), testing::IsEmpty());
}

// Hosts of the interface call by place. A pointer to a virtual member holds its place in the table, in bytes and one
// more; the destructor has the first two.
template <typename Member>
std::size_t PlaceOf(Member member) {
  std::size_t word = 0;
  std::memcpy(&word, &member, sizeof word);
  return (word - 1) / sizeof(void*);
}

TEST(SensorManagerInterface, HasItsOperationsInTheirOrder) {
  const std::vector<std::size_t> places = {
      PlaceOf(&ISensorManager::PLC),         PlaceOf(&ISensorManager::Cache),
      PlaceOf(&ISensorManager::Start),       PlaceOf(&ISensorManager::Stop),
      PlaceOf(&ISensorManager::IsRunning),   PlaceOf(&ISensorManager::IsConnected),
      PlaceOf(&ISensorManager::Read),        PlaceOf(&ISensorManager::Create),
      PlaceOf(&ISensorManager::Update),      PlaceOf(&ISensorManager::Call),
      PlaceOf(&ISensorManager::Delete),      PlaceOf(&ISensorManager::Subscribe),
      PlaceOf(&ISensorManager::Unsubscribe), PlaceOf(&ISensorManager::Stream),
      PlaceOf(&ISensorManager::StopStream),  PlaceOf(&ISensorManager::GetLogger),
      PlaceOf(&ISensorManager::Keep)};
  for (std::size_t i = 0; i < places.size(); ++i) {
    EXPECT_EQ(places[i], i + 2);
  }
}

}  // namespace
}  // namespace ZoTest
