// Faults on the way of values from the cache to the host.
#include "qapi/thread.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "tests/vyrnclient/faulttest.h"
#include "zoiohandler/vyrnclient/itemfeed.h"

namespace ZoTest {
namespace {

constexpr const char* hostThread = "FeedFaults::Host";

class FeedFaults : public FaultTest {
 protected:
  FeedFaults() {
    // The cache's and the registry's workers must not take the failures that are meant for this thread.
    qThread_NameCurrent(hostThread);
    feed.SetSensor(sensor);
    Cached(R"({"a":7})");
    feed.UpdateItemFromCache(item);
    recorder.Clear();
  }

  void Cached(const std::string& json) { sensor->Cache()->AddAt("/r", ZoJson::ParseString(json), ++stamp); }

  void ExpectSeven() {
    EXPECT_EQ(item.type, enumtype_int64);
    EXPECT_EQ(item.value, xhmi::variant_value(7LL));
  }

  Recorder recorder;
  const std::shared_ptr<const ioHandlerParam> parameters =
      std::make_shared<const ioHandlerParam>(recorder.Param());
  const std::shared_ptr<ZoIO::Logger> logger =
      std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  const std::shared_ptr<FakeSensorManager> sensor = std::make_shared<FakeSensorManager>(logger);
  ZoIO::ItemFeed feed{parameters, nullptr, logger};
  ZoIO::ItemInfo item = ZoIO::ItemManager::CreateItem("/r#/a");
  long long stamp = ZoIO::CacheManager::TimeInMills() - 2000;
};

TEST_F(FeedFaults, FaultThatSaysNothingAboutTheValueLeavesValueAndType) {
  ExpectSeven();
  for (const char* json : {R"({"a":8})", R"({"a":"text"})", R"({"a":null})", R"({"b":1})"}) {
    SCOPED_TRACE(json);
    Cached(json);
    qTest_FailOperationIn(hostThread, qOperation::LockEnter, 1, qStatus_System);
    EXPECT_EQ(feed.UpdateItemFromCache(item), xhmi::variant_value(7LL));
    EXPECT_EQ(qTest_FailureCount(), 1u);
    qTest_Reset();
    ExpectSeven();
  }
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(FeedFaults, UpdateAfterAFaultTakesTheValue) {
  Cached(R"({"a":"text"})");
  qTest_FailOperationIn(hostThread, qOperation::LockEnter, 1, qStatus_System);
  feed.UpdateItemFromCache(item);
  qTest_Reset();
  EXPECT_EQ(feed.UpdateItemFromCache(item), xhmi::variant_value("text"));
  EXPECT_EQ(item.type, enumtype_string);
}

TEST_F(FeedFaults, PayloadThatCouldNotBeCachedIsLoggedAndDropped) {
  sensor->SetResource("/r", R"({"a":8})");
  qTest_FailOperationIn(hostThread, qOperation::LockEnter, 1, qStatus_System);
  feed.UpdateResource("/r");
  EXPECT_EQ(qTest_FailureCount(), 1u);
  qTest_Reset();
  EXPECT_EQ(recorder.LogLines(),
            std::vector<std::string>{LogLine(
                5, "ZoIO::ZoVyrnClient::UpdateResource",
                FailureText(36, "zoapi/zoapi/threads/locker", qStatus_System, "Zo::Locker::Locker"))});
  feed.UpdateItemFromCache(item);
  ExpectSeven();
}

}  // namespace
}  // namespace ZoTest
