// Faults of the cache's and the registry's threads and locks.
#include <gmock/gmock.h>

#include <functional>

#include "qapi/thread.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "tests/vyrnclient/faulttest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ZoIO::CacheManager;
using ZoIO::ItemManager;

constexpr const char* cacheThread = "CacheManager::ManageCache::Thread";
constexpr const char* registryThread = "ItemManager::ManageInvalidItems::Thread";

constexpr qOperation constructionSteps[] = {qOperation::LockConstruct, qOperation::ThreadConstruct,
                                            qOperation::ThreadSetName, qOperation::ThreadStart};
constexpr qStatus constructionStatuses[] = {qStatus_Failure, qStatus_OutOfMemory, qStatus{17}};

class CacheFaults : public FaultTest {};

TEST_F(CacheFaults, EveryStepOfConstructionIsReported) {
  for (const qOperation step : constructionSteps) {
    for (const qStatus status : constructionStatuses) {
      qTest_FailOperation(step, 1, status);
      const auto raised = Raised([] { CacheManager cache(5000); });
      ASSERT_TRUE(raised);
      EXPECT_EQ(raised->Status(), status);
      EXPECT_EQ(raised->Source(), "hmi/zoiohandler/zoiohandler/vyrnclient/cachemanager");
      EXPECT_EQ(raised->Function(), "ZoIO::CacheManager::CacheManager");
      EXPECT_TRUE(NothingIsLeft());
    }
  }
}

TEST_F(CacheFaults, JoinThatFailsIsDroppedAndTheWorkerEndsByItself) {
  {
    CacheManager cache(5000);
    cache.Add("/k", ZoJson::Of(1));
    qTest_FailOperation(qOperation::ThreadJoin, 1, qStatus_TimeOut);
  }
  EXPECT_EQ(qTest_FailureCount(), 1u);
  EXPECT_TRUE(NothingIsLeft());
  EXPECT_TRUE(DebugLines().empty());
}

TEST_F(CacheFaults, JoinThatFailsIsNotTriedAgain) {
  CacheManager cache(5000);
  qTest_FailOperation(qOperation::ThreadJoin, 1, qStatus_TimeOut);
  cache.Shutdown();
  cache.Shutdown();
  EXPECT_EQ(qTest_CallCount(), 1u);
}

TEST_F(CacheFaults, WorkerGoesOnAfterASleepThatFailed) {
  CacheManager cache(5000);
  qTest_FailOperationIn(cacheThread, qOperation::ThreadSleep, 1, qStatus_System, 3);
  ASSERT_TRUE(Eventually([] { return qTest_FailureCount() == 3; }));
  const long long now = CacheManager::TimeInMills();
  cache.AddAt("/k", ZoJson::Of(1), now - 7000);
  cache.AddAt("/k", ZoJson::Of(2), now - 6000);
  EXPECT_TRUE(Eventually([&] { return cache.SizeAt("/k") == 1; }));
}

TEST_F(CacheFaults, WorkerGoesOnAfterALockThatFailed) {
  CacheManager cache(5000);
  const long long now = CacheManager::TimeInMills();
  cache.AddAt("/k", ZoJson::Of(1), now - 7000);
  cache.AddAt("/k", ZoJson::Of(2), now - 6000);
  qTest_FailOperationIn(cacheThread, qOperation::LockEnter, 1, qStatus_System);
  EXPECT_TRUE(Eventually([&] { return cache.SizeAt("/k") == 1; }));
  EXPECT_EQ(qTest_FailureCount(), 1u);
}

TEST_F(CacheFaults, OperationWhoseLockFailsRaisesAndChangesNothing) {
  CacheManager cache(5000);
  cache.Add("/k", ZoJson::Of(1));
  const std::function<void()> operations[] = {[&] { cache.Add("/l", ZoJson::Of(1)); },
                                              [&] { cache.Get("/k", 0); }, [&] { cache.Exists("/k"); },
                                              [&] { cache.Size(); }, [&] { cache.SizeAt("/k"); }};
  for (const auto& operation : operations) {
    // Meant for this thread's operation; the worker's own passes are seconds apart and take what they get.
    qTest_FailOperation(qOperation::LockEnter, 1, qStatus_System);
    EXPECT_TRUE(Raised(operation));
    qTest_Reset();
  }
  EXPECT_EQ(cache.Size(), 1u);
}

class RegistryFaults : public FaultTest {
 protected:
  Recorder recorder;
  std::shared_ptr<ZoIO::Logger> logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
};

TEST_F(RegistryFaults, EveryStepOfConstructionIsReportedWithoutALine) {
  for (const qOperation step : constructionSteps) {
    for (const qStatus status : constructionStatuses) {
      FakeSensorManager sensor(logger);
      recorder.Clear();
      const std::uint64_t before = qTest_LiveObjects();
      qTest_FailOperation(step, 1, status);
      const auto raised = Raised([&] { ItemManager registry(sensor, false); });
      ASSERT_TRUE(raised);
      EXPECT_EQ(raised->Status(), status);
      EXPECT_EQ(raised->Source(), "hmi/zoiohandler/zoiohandler/vyrnclient/itemmanager");
      EXPECT_EQ(raised->Function(), "ZoIO::ItemManager::ItemManager");
      EXPECT_EQ(recorder.Size(), 0u);
      EXPECT_EQ(qTest_LiveObjects(), before);
    }
  }
}

TEST_F(RegistryFaults, JoinThatFailsIsLoggedAtErrorInsteadOfTheEnd) {
  FakeSensorManager sensor(logger);
  {
    ItemManager registry(sensor, true);
    recorder.Clear();
    qTest_FailOperation(qOperation::ThreadJoin, 1, qStatus_TimeOut);
  }
  const Recorder::Entries lines = recorder.Logs();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(LogLine(lines[0].level, lines[0].function, lines[0].message),
            "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.");
  EXPECT_EQ(lines[1].level, 5);
  EXPECT_EQ(lines[1].function, "ZoIO::ItemManager::~ItemManager");
  // All of it but the line, which follows the source.
  EXPECT_THAT(lines[1].message,
              MatchesRegex("ZoIO::ItemManager::~ItemManager failed with status -1 \\(time-out\\) at "
                           "hmi/zoiohandler/zoiohandler/vyrnclient/itemmanager:[0-9]+"));
}

TEST_F(RegistryFaults, WorkerGoesOnAfterASleepThatFailedWithoutALine) {
  FakeSensorManager sensor(logger, FakeSensorManager::Worker::Reads);
  ZoIO::ItemInfo& item = sensor.PLC()->Item("/r#/a");
  recorder.Clear();
  qTest_FailOperationIn(registryThread, qOperation::ThreadSleep, 1, qStatus_System, 3);
  ASSERT_TRUE(Eventually([] { return qTest_FailureCount() == 3; }));
  sensor.SetResource("/r", R"({"a":1})");
  EXPECT_TRUE(Eventually([&] { return bool(item.valid); }));
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(RegistryFaults, WorkerGoesOnAfterALockThatFailedWithoutALine) {
  FakeSensorManager sensor(logger, FakeSensorManager::Worker::Reads);
  ZoIO::ItemInfo& item = sensor.PLC()->Item("/r#/a");
  recorder.Clear();
  sensor.SetResource("/r", R"({"a":1})");
  qTest_FailOperationIn(registryThread, qOperation::LockEnter, 1, qStatus_System);
  EXPECT_TRUE(Eventually([&] { return bool(item.valid); }));
  EXPECT_EQ(qTest_FailureCount(), 1u);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(RegistryFaults, ItemWhoseLockFailsRaisesTheLockersException) {
  FakeSensorManager sensor(logger);
  recorder.Clear();
  qTest_FailOperation(qOperation::LockEnter, 1, qStatus_System);
  const auto raised = Raised([&] { sensor.PLC()->Item("/r#/a"); });
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->Line(), 36);
  EXPECT_EQ(raised->Function(), "Zo::Locker::Locker");
  EXPECT_TRUE(sensor.PLC()->Items().empty());
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(RegistryFaults, CacheThatFailsDuringValidationLeavesTheItemInvalid) {
  FakeSensorManager sensor(logger);
  sensor.SetResource("/r", R"({"a":1})");
  // The first lock is the registry's own, the second the cache's.
  qTest_FailOperation(qOperation::LockEnter, 2, qStatus_System);
  EXPECT_FALSE(sensor.PLC()->Item("/r#/a").valid);
  EXPECT_THAT(sensor.PLC()->InvalidItems(), ElementsAre("/r#/a"));
}

TEST_F(RegistryFaults, CacheThatFailsToStoreWhatWasReadLeavesTheItemWaitingWithoutALineOfItsOwn) {
  FakeSensorManager sensor(logger);
  sensor.SetResource("/r", R"({"a":1})");
  qThread_NameCurrent("RegistryFaults::Host");
  // The first lock is the registry's own, the second that of the look whether the cache has the resource.
  qTest_FailOperationIn("RegistryFaults::Host", qOperation::LockEnter, 3, qStatus_System);
  const ZoIO::ItemInfo& item = sensor.PLC()->Item("/r#/a");
  EXPECT_EQ(qTest_FailureCount(), 1u);
  qTest_Reset();
  EXPECT_FALSE(item.valid);
  EXPECT_THAT(sensor.Kept(), ElementsAre(R"(/r {"a":1})"));
  EXPECT_FALSE(sensor.Cache()->Exists("/r"));
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ItemManager::Item: /r#/a does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: /r#/a created.",
                                               "2 ZoIO::ItemManager::Item: Retrieving /r#/a value.",
                                               "4 ZoIO::ItemManager::Item: /r#/a does not exists."));
  EXPECT_THAT(sensor.PLC()->InvalidItems(), ElementsAre("/r#/a"));
  sensor.PLC()->RetryInvalidItems();
  EXPECT_TRUE(item.valid);
  EXPECT_THAT(sensor.PLC()->InvalidItems(), IsEmpty());
}

}  // namespace
}  // namespace ZoTest
