// The sensor manager over the SDK by itself: what it says when it cannot act, letter by letter, and how it ends.
#include "tests/wire/sensormanagertest.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "qapi/testing.h"
#include "tests/plugin/processstate.h"
#include "tests/qapi/failingnew.h"
#include "tests/sdk/fakesensor.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "zoiohandler/vyrnclient/cachemanager.h"

namespace ZoTest {
namespace {

using testing::StartsWith;
using ZoIO::ISensorManager;
using ZoIO::SensorManager;

TEST_F(SensorManagerTest, EachVerbIsRefusedWithOneWarningWhileTheSensorIsOffline) {
  sensor.StopListening();
  const auto manager = Make(sensor.Port());
  EXPECT_FALSE(manager->IsConnected());
  for (const Verb& verb : verbs) {
    recorder.Clear();
    EXPECT_TRUE(verb.call(*manager, "/res", true).Empty()) << verb.name;
    EXPECT_THAT(Lines(), testing::ElementsAre(std::string("4 ZoIO::SensorManager::") + verb.name + ": `" +
                                              verb.name + "` failed.Sensor is offline."));
  }
}

TEST_F(SensorManagerTest, EachVerbThatLogsNoFailureGivesAnEmptyDocumentAndNoLineWhileTheSensorIsOffline) {
  sensor.StopListening();
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  for (const Verb& verb : verbs) {
    EXPECT_TRUE(verb.call(*manager, "/res", false).Empty()) << verb.name;
    EXPECT_THAT(Lines(), testing::IsEmpty()) << verb.name;
  }
}

void RefuseEverything(FakeSensor& sensor) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    peer.Send(FakeSensor::Answer(request, R"("status":-403,"payload":null,"error":"not for you")"));
  });
}

// What it says, and not what an answer that never came gives.
TEST_F(SensorManagerTest, EachVerbThatTheSensorRefusesGivesItsErrorDocumentWithoutALine) {
  RefuseEverything(sensor);
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  for (const Verb& verb : verbs) {
    const ZoJson answer = verb.call(*manager, "/res", true);
    ASSERT_FALSE(answer.Empty()) << verb.name;
    EXPECT_EQ(answer.At("status").Get<int>(), -403) << verb.name;
    EXPECT_EQ(answer.At("error").Get<std::string>(), "not for you") << verb.name;
    EXPECT_TRUE(answer.At("payload").IsNull()) << verb.name;
    EXPECT_THAT(Lines(), testing::IsEmpty()) << verb.name;
  }
}

// Only a sensor that is offline is kept quiet about.
TEST_F(SensorManagerTest, EachVerbThatTheSensorRefusesGivesTheSameWhetherFailuresAreLoggedOrNot) {
  RefuseEverything(sensor);
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  for (const Verb& verb : verbs) {
    for (const bool logFailure : {true, false}) {
      EXPECT_EQ(verb.call(*manager, "/res", logFailure).ToString(),
                R"({"status":-403,"payload":null,"error":"not for you"})")
          << verb.name << " " << logFailure;
      EXPECT_THAT(Lines(), testing::IsEmpty()) << verb.name << " " << logFailure;
    }
  }
}

TEST_F(SensorManagerTest, AnswerThatIsLostIsTheSameErrorLineWhetherFailuresAreLoggedOrNot) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest&) { peer.Drop(); });
  for (const Verb& verb : verbs) {
    for (const bool logFailure : {true, false}) {
      // A link that breaks again and again is restored ever later; a new one is there at once.
      const auto manager = Make(sensor.Port());
      ASSERT_TRUE(manager->IsConnected());
      recorder.Clear();
      EXPECT_TRUE(verb.call(*manager, "/lost", logFailure).Empty()) << verb.name << " " << logFailure;
      EXPECT_THAT(Lines(),
                  testing::ElementsAre(StartsWith("5 ZoIO::SensorManager::ResponseToZoJson: /lost[" +
                                                  std::to_string(verb.method) +
                                                  "]: The link to the sensor broke before the answer came")))
          << verb.name << " " << logFailure;
    }
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

TEST_F(SensorManagerTest, OnlyTheState1CountsAsRunningAndOneThatIsNoNumberIsAnError) {
  const auto setSystem = [this](const std::string& payload) {
    sensor.SetResponder([payload](FakePeer& peer, const FakeRequest& request) {
      peer.Send(FakeSensor::Answer(request, R"("status":1,"payload":)" + payload));
    });
  };
  const auto manager = Make(sensor.Port());
  recorder.Clear();
  for (const int state : {1, 2, -1, 0, 1}) {
    setSystem(R"({"state":)" + std::to_string(state) + "}");
    EXPECT_EQ(manager->IsRunning(), state == 1) << state;
    EXPECT_THAT(Lines(), testing::IsEmpty()) << state;
  }
  for (const char* const stateless : {R"({"state":"1"})", R"({"state":"running"})", R"({"run":1})", "{}"}) {
    setSystem(stateless);
    recorder.Clear();
    EXPECT_FALSE(manager->IsRunning()) << stateless;
    EXPECT_THAT(Lines(), testing::ElementsAre(StartsWith("5 ZoIO::SensorManager::IsRunning: JSON value: ")))
        << stateless;
  }
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

// An answer that comes while an older push is being handed on may meet that one's millisecond, and there may never be a
// newer one.
TEST_F(SensorManagerTest, AnswerThatComesWhileAnOlderPushIsHandedOnIsKept) {
  Gate gate;
  const auto manager = Make(sensor.Port());
  EXPECT_FALSE(manager->Subscribe("/r", true).Empty());
  // A push that cannot be stored is held up where that is told.
  recorder.OnLog([&gate](const Entry&) { gate.Wait(); });
  qTest_FailOperationIn("ZoLink::Thread", qOperation::LockEnter, 1, qStatus_System);
  EXPECT_TRUE(sensor.Push(R"({"event":"notification","uri":"/r","payload":{"value":0}})"));
  EXPECT_TRUE(gate.WaitForArrivals());
  EXPECT_FALSE(manager->Read("/r", true).Empty());
  manager->Keep("/r", ZoJson(R"({"value":1})"));
  gate.Open();
  ASSERT_TRUE(manager->Cache()->Exists("/r"));
  EXPECT_EQ(manager->Cache()->Get("/r", 0), ZoJson(R"({"value":1})"));
}

TEST_F(SensorManagerTest, PushThatComesOnceItWasGivenUpOrShutDownIsNotStored) {
  for (const auto& end : {std::function([](SensorManager& manager) { manager.GiveUp(); }),
                          std::function([](SensorManager& manager) { manager.Shutdown(); })}) {
    const auto manager = Make(sensor.Port());
    end(*manager);
    ZoIO::SensorManagerAccess::Stream(
        *manager, std::make_shared<ZoStreamResponse>(ZoJson(R"({"event":"stream","uri":"/s","payload":1})")));
    EXPECT_EQ(manager->Cache()->Size(), 0u);
  }
}

// Its threads, as the system names them. The instance of the fixture has a cache and a registry, too, but no link.
constexpr const char* linkThread = "ZoLink::Thread";
constexpr const char* cacheThread = "CacheManager::M";
constexpr const char* registryThread = "ItemManager::Ma";

std::size_t CountThreads(const std::string& name) {
  const std::vector<std::string> names = ThreadNames();
  return static_cast<std::size_t>(std::count(names.begin(), names.end(), name));
}

// A thread takes its name when it begins to run, and stays in the system's list for a moment when it has ended.
bool WaitForThreads(const std::string& name, std::size_t count) {
  return Eventually([&] { return CountThreads(name) == count; });
}

const std::vector<std::string> linesOfTheRegistrysEnd = {
    "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
    "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."};
const std::vector<std::string> linesOfTheEnd = {
    "2 ZoIO::SensorManager::~SensorManager: Disconnecting system...",
    "2 ZoIO::SensorManager::~SensorManager: System disconnected.", linesOfTheRegistrysEnd[0],
    linesOfTheRegistrysEnd[1]};

// Somebody may hold the manager for longer.
TEST_F(SensorManagerTest, ShutdownEndsTheLinkThenTheCacheThenTheRegistryAndTellsEachWhenItIsSo) {
  const auto manager = Make(sensor.Port());
  ASSERT_TRUE(WaitForThreads(linkThread, 1));
  ASSERT_TRUE(WaitForThreads(cacheThread, 2));
  ASSERT_TRUE(WaitForThreads(registryThread, 2));
  recorder.OnLog([](const Entry& entry) {
    if (entry.message == "Disconnecting system...") {
      EXPECT_EQ(CountThreads(linkThread), 1u);
    } else if (entry.message == "System disconnected.") {
      EXPECT_TRUE(WaitForThreads(linkThread, 0));
      EXPECT_EQ(CountThreads(cacheThread), 2u);
    } else if (entry.message == "Destroying item manager.") {
      EXPECT_TRUE(WaitForThreads(cacheThread, 1));
      EXPECT_EQ(CountThreads(registryThread), 2u);
    }
  });
  recorder.Clear();
  manager->Shutdown();
  EXPECT_EQ(Lines(), linesOfTheEnd);
  EXPECT_TRUE(WaitForThreads(registryThread, 1));
}

TEST_F(SensorManagerTest, ShutdownWhileTheLinkIsDownEndsItsRestoringBeforeTheRegistry) {
  const auto manager = Make(sensor.Port());
  ASSERT_TRUE(WaitForThreads(linkThread, 1));
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(Eventually([&] { return !manager->IsConnected(); }));
  recorder.OnLog([](const Entry& entry) {
    if (entry.message == "Destroying item manager.") {
      EXPECT_TRUE(WaitForThreads(linkThread, 0));
    }
  });
  recorder.Clear();
  manager->Shutdown();
  EXPECT_EQ(Lines(), linesOfTheRegistrysEnd);
}

TEST_F(SensorManagerTest, DestructionTellsWhatAShutdownTellsAndNothingAfterOne) {
  for (const bool isShutDown : {false, true}) {
    auto manager = Make(sensor.Port());
    recorder.Clear();
    if (isShutDown) {
      manager->Shutdown();
    }
    manager.reset();
    EXPECT_EQ(Lines(), linesOfTheEnd);
  }
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
