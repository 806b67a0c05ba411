// Faults of an instance's own lock and thread.
#include <gmock/gmock.h>

#include <functional>

#include "qapi/thread.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/faulttest.h"
#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ZoIO::ZoVyrnClient;

constexpr const char* clientSource = "hmi/zoiohandler/zoiohandler/vyrnclient/zovyrnclient";
constexpr const char* monitorThread = "ZoVyrnClient::Monitor::Thread";

class InstanceFaults : public FaultTest {
 protected:
  // Makes an instance whose own call of operation fails: those of its registry and its cache come before.
  std::optional<Zo::Exception> FailConstruction(qOperation operation) {
    qTest_FailOperation(operation, 3, qStatus_System);
    return Raised([this] { ZoVyrnClient client("simulator", 0, recorder.Param()); });
  }

  // A sensor that streams every resource, and whose items have a value.
  std::shared_ptr<FakeSensorManager> FakeSensor() {
    auto sensor =
        std::make_shared<FakeSensorManager>(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
    for (const char* uri : {"/r", "/s", "/t"}) {
      sensor->SetResource(uri, R"({"a":1,"b":2,"c":3})");
    }
    sensor->SetScript("Stream", [](const auto&) { return ZoJson(R"({"status":1,"payload":{"a":1}})"); });
    return sensor;
  }

  // From the next failure with this text on, has the monitor thread's nth operation after each such line fail; the first
  // failure of all is for the test to make. Notes how many operations there were from line to line.
  void FailAfterEachLine(const std::string& text, std::uint64_t nth) {
    recorder.OnLog([this, text, nth](const Entry& entry) {
      if (entry.message == text) {  // on the monitor thread, which goes on when this is done
        operations.push_back(qTest_CallCount());
        lines.push_back(entry.time);
        qTest_FailOperationIn(monitorThread, qOperation::Any, nth, qStatus_System);
      }
    });
  }

  Recorder recorder;
  // The monitor thread's, until it was joined.
  std::vector<std::uint64_t> operations;
  std::vector<Clock::time_point> lines;
  const std::string sleepText = FailureText(569, clientSource, qStatus_System, "ZoIO::ZoVyrnClient::Monitor");
  const std::string lockerText =
      FailureText(36, "zoapi/zoapi/threads/locker", qStatus_System, "Zo::Locker::Locker");
};

struct Step {
  qOperation operation;
  int line;
};

TEST_F(InstanceFaults, StepsOfConstructionAreReportedWithTheirLines) {
  for (const Step& step : {Step{qOperation::LockConstruct, 47}, Step{qOperation::ThreadConstruct, 49},
                           Step{qOperation::ThreadSetName, 50}, Step{qOperation::ThreadStart, 50}}) {
    SCOPED_TRACE(step.line);
    const auto raised = FailConstruction(step.operation);
    ASSERT_TRUE(raised);
    EXPECT_EQ(raised->Line(), step.line);
    EXPECT_EQ(raised->Source(), clientSource);
    EXPECT_EQ(raised->Status(), qStatus_System);
    EXPECT_EQ(raised->Function(), "ZoIO::ZoVyrnClient::ZoVyrnClient");
    EXPECT_EQ(raised->Message(), "");
    EXPECT_TRUE(NothingIsLeft());
  }
}

TEST_F(InstanceFaults, ConstructionThatFailedEndsWhatItMadeWithoutTheDestructorsLines) {
  FailConstruction(qOperation::ThreadStart);
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("2 ZoIO::ZoVyrnClient::ZoVyrnClient: Creating ZoIoHandler instance.",
                          "2 ZoIO::ZoVyrnClient::ZoVyrnClient: Creating simulator.",
                          "2 ZoIO::ZoVyrnClient::ZoVyrnClient: Simulator created.",
                          "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
                          "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."));
}

TEST_F(InstanceFaults, FaultOfItsRegistryOrItsCacheLeavesTheConstructor) {
  const char* const functions[] = {"ZoIO::ItemManager::ItemManager", "ZoIO::CacheManager::CacheManager"};
  for (std::uint64_t nth = 1; nth <= 2; ++nth) {
    for (const qOperation operation : {qOperation::LockConstruct, qOperation::ThreadConstruct,
                                       qOperation::ThreadSetName, qOperation::ThreadStart}) {
      qTest_FailOperation(operation, nth, qStatus_System);
      const auto raised = Raised([this] { ZoVyrnClient client("simulator", 0, recorder.Param()); });
      ASSERT_TRUE(raised);
      EXPECT_EQ(raised->Function(), functions[nth - 1]);
      EXPECT_TRUE(NothingIsLeft());
    }
  }
}

TEST_F(InstanceFaults, FaultInARealSensorManagersPartsLeavesTheConstructor) {
  for (std::uint64_t nth = 1; nth <= 3; ++nth) {
    qTest_FailOperation(qOperation::LockConstruct, nth, qStatus_System);
    EXPECT_TRUE(Raised([this] { ZoVyrnClient client("no address", 0, recorder.Param()); })) << nth;
    qTest_Reset();
    EXPECT_TRUE(NothingIsLeft());
  }
}

TEST_F(InstanceFaults, JoinThatFailsIsLoggedAtCriticalAndDestructionGoesOn) {
  auto client = std::make_unique<ZoVyrnClient>("simulator", 0, recorder.Param());
  recorder.Clear();
  qTest_FailOperation(qOperation::ThreadJoin, 1, qStatus_Deadlock);
  client.reset();
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Destroying ZoIoHandler instance.",
                          "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Joining ZoVyrnClient::Monitor thread.",
                          LogLine(6, "ZoIO::ZoVyrnClient::~ZoVyrnClient",
                                  FailureText(65, clientSource, qStatus_Deadlock,
                                              "ZoIO::ZoVyrnClient::~ZoVyrnClient")),
                          "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
                          "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."));
}

TEST_F(InstanceFaults, SensorIsGivenUpAlthoughTheJoinFails) {
  const auto sensor = FakeSensor();
  auto client = std::make_unique<ZoVyrnClient>(sensor, sensor, recorder.Param());
  qTest_FailOperation(qOperation::ThreadJoin, 1, qStatus_Deadlock);
  client.reset();
  EXPECT_EQ(sensor->GiveUps(), 1);
  EXPECT_EQ(sensor->Shutdowns(), 1);
}

TEST_F(InstanceFaults, SensorOfAnInstanceThatCannotBeMadeIsShutDown) {
  const auto sensor = FakeSensor();
  qTest_FailOperation(qOperation::ThreadStart, 1, qStatus_System);
  EXPECT_TRUE(Raised([&] { ZoVyrnClient client(sensor, sensor, recorder.Param()); }));
  EXPECT_EQ(sensor->Shutdowns(), 1);
}

TEST_F(InstanceFaults, SleepThatFailsIsLoggedAtErrorAndTheLoopGoesOn) {
  ZoVyrnClient client("simulator", 0, recorder.Param());
  Subscribe(client, {"/int#/a"}, nullptr, 0ms);
  qTest_FailOperationIn(monitorThread, qOperation::ThreadSleep, 1, qStatus_System, 2);
  ASSERT_TRUE(recorder.WaitForMessage(sleepText, 2));
  EXPECT_THAT(recorder.LogLines(), Contains("5 ZoIO::ZoVyrnClient::Monitor: " + sleepText));
  recorder.Clear();
  EXPECT_TRUE(recorder.WaitForValue("/int#/a"));
}

TEST_F(InstanceFaults, LockThatFailsAbandonsThePassIsLoggedAndTheLoopGoesOn) {
  ZoVyrnClient client("simulator", 0, recorder.Param());
  Subscribe(client, {"/int#/a"}, nullptr, 0ms);
  ASSERT_TRUE(recorder.WaitForValue("/int#/a"));
  // In a pass that has an item the instance lock is the first of several; each failing one of them ends the
  // turn of the item or the pass, and never the thread.
  qTest_FailOperationIn(monitorThread, qOperation::LockEnter, 1, qStatus_System, 20);
  const std::string text =
      FailureText(36, "zoapi/zoapi/threads/locker", qStatus_System, "Zo::Locker::Locker");
  ASSERT_TRUE(recorder.WaitForMessage(text));
  EXPECT_THAT(recorder.LogLines(), Contains("5 ZoIO::ZoVyrnClient::Monitor: " + text));
  qTest_Reset();
  recorder.Clear();
  EXPECT_TRUE(recorder.WaitForValue("/int#/a"));
}

// Without a group, all that a pass asks of the base library is a sleep and then the lock, which fails each time.
TEST_F(InstanceFaults, PassThatFailsIsFollowedByAWholeSleepBeforeTheNext) {
  auto client = std::make_unique<ZoVyrnClient>("simulator", 0, recorder.Param());
  recorder.Clear();
  FailAfterEachLine(lockerText, 2);
  qTest_FailOperationIn(monitorThread, qOperation::LockEnter, 1, qStatus_System);
  constexpr std::size_t passes = 4;
  ASSERT_TRUE(recorder.WaitForMessage(lockerText, passes));
  const std::vector<std::string> failures = recorder.LogLines();
  client.reset();
  EXPECT_THAT(failures, Each("5 ZoIO::ZoVyrnClient::Monitor: " + lockerText));
  ASSERT_GE(lines.size(), passes);
  for (std::size_t i = 1; i < passes; ++i) {
    EXPECT_EQ(operations[i], 2u) << "a sleep, and the lock";
    EXPECT_GE(lines[i] - lines[i - 1], 100ms);
  }
}

// From one sleep that fails to the next, with one whole pass between them.
TEST_F(InstanceFaults, PassWithoutAGroupThatIsDueIsASleepAndTheInstanceLockEnteredOnceAndLeft) {
  const auto sensor = FakeSensor();
  auto client = std::make_unique<ZoVyrnClient>(sensor, sensor, recorder.Param());
  Subscribe(*client, {"/r#/a"}, nullptr, 24h);
  ASSERT_TRUE(recorder.WaitForValue("/r#/a"));
  FailAfterEachLine(sleepText, 4);
  qTest_FailOperationIn(monitorThread, qOperation::ThreadSleep, 1, qStatus_System);
  constexpr std::size_t sleeps = 4;
  ASSERT_TRUE(recorder.WaitForMessage(sleepText, sleeps));
  client.reset();
  ASSERT_GE(operations.size(), sleeps);
  for (std::size_t i = 1; i < sleeps; ++i) {
    EXPECT_EQ(operations[i], 4u) << "sleep, enter, leave, and the sleep that fails";
  }
  EXPECT_EQ(recorder.CountValues("/r#/a"), 1u);
}

TEST_F(InstanceFaults, OperationsWhoseLockFailsRaiseTheLockersException) {
  const auto sensor =
      std::make_shared<FakeSensorManager>(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
  // Without groups the monitor would take the failures meant for this thread; so they are counted by thread
  // name.
  qThread_NameCurrent("InstanceFaults::Host");
  ZoVyrnClient client(sensor, sensor, recorder.Param());
  recorder.Clear();
  const std::function<void()> operations[] = {
      [&] { client.Read("/r#/a"); }, [&] { client.Write("/r#/a", 0, IntegerValue(1)); },
      [&] { Subscribe(client, {"/r#/a"}); }, [&] { Unsubscribe(client, {"/r#/a"}); },
      [&] { client.Call(nullptr, "RunSensor", "{}"); }};
  for (const auto& operation : operations) {
    qTest_FailOperationIn("InstanceFaults::Host", qOperation::LockEnter, 1, qStatus_System);
    const auto raised = Raised(operation);
    qTest_Reset();
    ASSERT_TRUE(raised);
    EXPECT_EQ(raised->Line(), 36);
    EXPECT_EQ(raised->Function(), "Zo::Locker::Locker");
    EXPECT_EQ(recorder.Size(), 0u);
  }
}

TEST_F(InstanceFaults, LockThatFailsInsideARegistryLookUpIsLoggedAndReturns1) {
  qThread_NameCurrent("InstanceFaults::Host");
  ZoVyrnClient client("simulator", 0, recorder.Param());
  recorder.Clear();
  // The first lock is the instance's, the second the registry's.
  qTest_FailOperationIn("InstanceFaults::Host", qOperation::LockEnter, 2, qStatus_System);
  EXPECT_EQ(client.Read("/r#/a"), 1);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item /r#/a",
                                               "5 ZoIO::ZoVyrnClient::Read: " +
                                                   FailureText(36, "zoapi/zoapi/threads/locker",
                                                               qStatus_System, "Zo::Locker::Locker")));
}

TEST_F(InstanceFaults, WriteWhoseRegistryLookUpRaisesIsLoggedReturns1AndSendsNothing) {
  const auto sensor = FakeSensor();
  qThread_NameCurrent("InstanceFaults::Host");
  ZoVyrnClient client(sensor, sensor, recorder.Param());
  const ZoIO::ItemInfo& item = sensor->PLC()->Item("/r#/a");
  const xhmi::variant_value before = item.value;
  recorder.Clear();
  sensor->ClearCalls();
  qTest_FailOperationIn("InstanceFaults::Host", qOperation::LockEnter, 2, qStatus_System);
  EXPECT_EQ(client.Write("/r#/a", 0, IntegerValue(5)), 1);
  EXPECT_EQ(qTest_FailureCount(), 1u);
  qTest_Reset();
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Write: Writing to item /r#/a",
                                               "5 ZoIO::ZoVyrnClient::Write: " + lockerText));
  EXPECT_EQ(sensor->CallCount("Update"), 0u);
  EXPECT_EQ(item.value, before);
  EXPECT_EQ(client.Write("/r#/a", 0, IntegerValue(5)), 0);
  EXPECT_EQ(sensor->CallCount("Update"), 1u);
}

TEST_F(InstanceFaults, NameOfABatchWhoseRegistryLookUpRaisesGetsCode6AndTheOthersGoOn) {
  const auto sensor = FakeSensor();
  qThread_NameCurrent("InstanceFaults::Host");
  ZoVyrnClient client(sensor, sensor, recorder.Param());
  for (const char* name : {"/r#/a", "/s#/b", "/t#/c"}) {
    sensor->PLC()->Item(name);
  }
  recorder.Clear();
  sensor->ClearCalls();
  // The first lock is the instance's, the second the first name's.
  qTest_FailOperationIn("InstanceFaults::Host", qOperation::LockEnter, 3, qStatus_System);
  std::vector<int> results;
  EXPECT_EQ(Subscribe(client, {"/r#/a", "/s#/b", "/t#/c"}, &results), 1);
  EXPECT_EQ(qTest_FailureCount(), 1u);
  qTest_Reset();
  EXPECT_THAT(results, ElementsAre(2, 6, 2));
  EXPECT_THAT(recorder.LogLines(), Contains("5 ZoIO::ZoVyrnClient::Subscribe: " + lockerText));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stream /r", "Stream /t"));
  // The items of a group are pushed in the order of their names.
  ASSERT_TRUE(recorder.WaitForValue("/t#/c"));
  EXPECT_EQ(recorder.CountValues("/r#/a"), 1u);
  EXPECT_EQ(recorder.CountValues("/s#/b"), 0u);
  // The name that failed is as new.
  EXPECT_EQ(Subscribe(client, {"/s#/b"}, &results, 25h), 0);
  EXPECT_THAT(results, ElementsAre(2));
  EXPECT_TRUE(recorder.WaitForValue("/s#/b"));
}

}  // namespace
}  // namespace ZoTest
