// The registry's passes over a real sensor manager: what the sensor is asked meanwhile, and what ends a pass.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "qapi/testing.h"
#include "tests/sdk/fakesensor.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/sensormanager.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* missing = R"("status":-404,"payload":null)";
constexpr const char* found = R"("status":1,"payload":{"v":1})";
constexpr const char* bare = R"("status":1)";

class RetryPass : public testing::Test {
 protected:
  RetryPass() {
    sensor.SetResponder([this](FakePeer& peer, const FakeRequest& request) {
      peer.Send(FakeSensor::Answer(request, AnswerOf(request.uri)));
    });
    other->PLC()->Shutdown();  // from here on the worker's name is that of the one under test
    qTest_FailOperationIn("ItemManager::ManageInvalidItems::Thread", qOperation::ThreadSleep, 0,
                          qStatus_Success);
    manager = std::make_unique<ZoIO::SensorManager>(client, "127.0.0.1", sensor.Port(), logger);
  }
  ~RetryPass() override {
    manager.reset();
    sensor.End();
    qTest_Reset();
  }

  // What reads of a resource are answered from now on; nothing else is there.
  void Give(const std::string& uri, const std::string& members) {
    const std::lock_guard lock(mutex);
    answers[uri] = members;
  }

  ZoIO::ItemInfo& Item(const std::string& name) { return manager->PLC()->Item(name); }
  std::size_t Reads(const std::string& uri) const { return sensor.CountRequests("read", uri); }
  bool WaitForReads(const std::string& uri, std::size_t count) const {
    return sensor.WaitForRequest("read", uri, count);
  }
  // All that was sent before has reached the sensor then: a connection keeps the order.
  void Flush() { EXPECT_FALSE(manager->Read("/flush", true).Empty()); }

  // How often the worker has fallen asleep: before each of its passes.
  static std::uint64_t Sleeps() { return qTest_CallCount(); }
  // True once a whole pass has come and gone.
  static bool WaitForPass() {
    const std::uint64_t sleeps = Sleeps();
    return Eventually([=] { return Sleeps() >= sleeps + 2; });
  }

  std::mutex mutex;
  std::map<std::string, std::string> answers;  // guarded by mutex
  FakeSensor sensor;
  Recorder recorder;
  const std::shared_ptr<ZoIO::Logger> logger =
      std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  // The manager asks an instance to bring its items back.
  const std::shared_ptr<FakeSensorManager> other = std::make_shared<FakeSensorManager>(logger);
  ZoIO::ZoVyrnClient client{other, other, recorder.Param()};
  std::unique_ptr<ZoIO::SensorManager> manager;

 private:
  std::string AnswerOf(const std::string& uri) {
    const std::lock_guard lock(mutex);
    const auto known = answers.find(uri);
    return known == answers.end() ? missing : known->second;
  }
};

TEST_F(RetryPass, AnswerWithoutAPayloadLeavesItsItemToTheNextPassAndTheOthersTheirTurn) {
  Give("/bare", bare);
  Give("/there", found);
  const ZoIO::ItemInfo& first = Item("/bare#/v");
  const ZoIO::ItemInfo& second = Item("/late#/v");
  EXPECT_FALSE(first.valid);
  EXPECT_FALSE(second.valid);
  // The item without a payload comes first in every pass.
  ASSERT_TRUE(WaitForReads("/late", 4));
  EXPECT_GE(Reads("/bare"), 4u);
  EXPECT_LE(Reads("/bare"), 1 + Sleeps()) << "it is asked for more than once in a pass";
  EXPECT_TRUE(Item("/there#/v").valid) << "a host's call meanwhile";

  Give("/late", found);
  ASSERT_TRUE(Eventually([&] { return bool(second.valid); }));
  EXPECT_FALSE(first.valid);
  EXPECT_THAT(manager->PLC()->InvalidItems(), ElementsAre("/bare#/v"));
  EXPECT_FALSE(manager->Cache()->Exists("/bare"));

  Give("/bare", found);
  EXPECT_TRUE(Eventually([&] { return bool(first.valid); }));
  EXPECT_THAT(manager->PLC()->InvalidItems(), IsEmpty());
}

TEST_F(RetryPass, EndsWhereTheLinkIsDownAndGoesOnOnceItIsBack) {
  const ZoIO::ItemInfo& before = Item("/before#/v");
  const ZoIO::ItemInfo& away = Item("/away#/v");
  const ZoIO::ItemInfo& behind = Item("/behind#/v");
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(Eventually([&] { return !manager->IsConnected(); }));
  const std::size_t reads = Reads("/behind");
  manager->Cache()->Add("/before", ZoJson(R"({"v":1})"));
  manager->Cache()->Add("/behind", ZoJson(R"({"v":1})"));
  ASSERT_TRUE(WaitForPass());
  EXPECT_TRUE(before.valid) << "what is cached needs no link";
  EXPECT_FALSE(away.valid);
  EXPECT_FALSE(behind.valid) << "the pass has not ended where the sensor was needed";
  EXPECT_THAT(manager->PLC()->InvalidItems(), ElementsAre("/away#/v", "/behind#/v"));
  EXPECT_FALSE(Item("/new#/v").valid);

  Give("/away", found);
  Give("/new", found);
  sensor.Listen();
  EXPECT_TRUE(Eventually([&] { return manager->PLC()->InvalidItems().empty(); }));
  EXPECT_TRUE(away.valid);
  EXPECT_TRUE(behind.valid);
  EXPECT_EQ(Reads("/behind"), reads) << "it was cached when its turn came";
}

TEST_F(RetryPass, LooksForNothingOnceTheManagerWasGivenUp) {
  const ZoIO::ItemInfo& late = Item("/late#/v");
  ASSERT_TRUE(WaitForReads("/late", 3));
  manager->GiveUp();
  ASSERT_TRUE(WaitForPass());  // what was under way has reached the sensor
  Flush();
  const std::size_t reads = Reads("/late");
  Give("/late", found);
  ASSERT_TRUE(WaitForPass());
  Flush();
  EXPECT_EQ(Reads("/late"), reads);
  EXPECT_FALSE(late.valid);
}

// The pass of such a manager asks again and again about what nothing is known of, with the registry's lock held.
TEST_F(RetryPass, OfAManagerThatWasNeverConnectedEndsOnceThatWasGivenUp) {
  manager.reset();
  sensor.StopListening();
  manager = std::make_unique<ZoIO::SensorManager>(client, "127.0.0.1", sensor.Port(), logger);
  EXPECT_FALSE(Item("/r#/v").valid);
  manager->GiveUp();
  EXPECT_TRUE(WaitForPass());
}

TEST_F(RetryPass, CachedResourceIsNotReadForAnItemThatItLacks) {
  Give("/cached", found);
  EXPECT_TRUE(Item("/cached#/v").valid);
  const ZoIO::ItemInfo& lacking = Item("/cached#/w");
  EXPECT_FALSE(lacking.valid);
  EXPECT_FALSE(Item("/missing#/v").valid);
  ASSERT_TRUE(WaitForReads("/missing", 4));
  EXPECT_THAT(manager->PLC()->InvalidItems(), ElementsAre("/cached#/w", "/missing#/v"));
  manager->Cache()->Add("/cached", ZoJson(R"({"v":1,"w":2})"));
  EXPECT_TRUE(Eventually([&] { return bool(lacking.valid); }));
  ASSERT_TRUE(WaitForReads("/missing", Reads("/missing") + 2));
  EXPECT_EQ(Reads("/cached"), 1u);
}

TEST_F(RetryPass, ResourceThatItFoundIsNotReadAgain) {
  const ZoIO::ItemInfo& late = Item("/late#/v");
  EXPECT_FALSE(Item("/missing#/v").valid);
  ASSERT_TRUE(WaitForReads("/late", 3));
  Give("/late", found);
  ASSERT_TRUE(Eventually([&] { return bool(late.valid); }));
  Flush();
  const std::size_t reads = Reads("/late");
  ASSERT_TRUE(WaitForReads("/missing", Reads("/missing") + 3));
  EXPECT_EQ(Reads("/late"), reads);
}

TEST_F(RetryPass, ResourceThatACallFoundMeanwhileIsNotReadAgain) {
  const ZoIO::ItemInfo& late = Item("/late#/v");
  EXPECT_FALSE(Item("/missing#/v").valid);
  ASSERT_TRUE(WaitForPass());
  Give("/late", found);
  EXPECT_FALSE(Item("/late#/w").valid);  // which reads all of the resource
  Flush();
  const std::size_t reads = Reads("/late");
  EXPECT_TRUE(Eventually([&] { return bool(late.valid); }));
  ASSERT_TRUE(WaitForReads("/missing", Reads("/missing") + 3));
  EXPECT_EQ(Reads("/late"), reads);
}

}  // namespace
}  // namespace ZoTest
