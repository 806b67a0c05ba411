// When an instance is ready, and what it does when it is not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/vyrnclient/feedtest.h"
#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Readiness : public FakeInstanceTest {
 protected:
  // That every operation is refused with 1, without a line, a callback or a request.
  void ExpectRefusals() {
    const int token = 0;
    std::vector<int> results;
    EXPECT_EQ(client->Read("/r#/a"), 1);
    EXPECT_EQ(client->Write("/r#/a", 0, IntegerValue(1)), 1);
    EXPECT_EQ(Subscribe(*client, {"/r#/a"}, &results), 1);
    EXPECT_THAT(results, ElementsAre(untouched));
    EXPECT_EQ(Unsubscribe(*client, {"/r#/a"}), 1);
    EXPECT_EQ(client->Call(&token, "RunSensor", "{}"), 1);
    EXPECT_EQ(recorder.Size(), 0u);
    EXPECT_THAT(sensor->CallTexts(), IsEmpty());
  }
};

TEST_F(Readiness, WithoutConnectionEverythingIsRefused) {
  sensor->SetConnected(false);
  ExpectRefusals();
}

TEST_F(Readiness, WithoutRegistryEverythingIsRefused) {
  sensor->HidePLC();
  ExpectRefusals();
}

TEST_F(Readiness, WithoutCacheEverythingIsRefused) {
  sensor->HideCache();
  ExpectRefusals();
}

TEST_F(Readiness, ComesBackWithTheConnection) {
  sensor->SetConnected(false);
  EXPECT_EQ(client->Call(nullptr, "RunSensor", "{}"), 1);
  sensor->SetConnected(true);
  EXPECT_EQ(client->Call(nullptr, "RunSensor", "{}"), 0);
}

TEST_F(Readiness, CallTellsTheMethodsNameAndHandsTheResponseOn) {
  const int token = 0;
  EXPECT_EQ(client->Call(&token, "RunSensor", R"({"id":1})"), 0);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Call: Calling method RunSensor"));
  const Recorder::Entries results = recorder.Results();
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].token, &token);
  EXPECT_EQ(results[0].response, R"({"id":1,"errcode":0,"data":"{\"result\":\"OK\"}"})");
}

TEST_F(Readiness, CallThatTheDispatcherRefusesReturns1AfterItsLine) {
  EXPECT_EQ(client->Call(nullptr, "no such method", "{}"), 1);
  EXPECT_EQ(client->Call(nullptr, "RunSensor", "[]"), 1);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Call: Calling method no such method",
                                               "2 ZoIO::ZoVyrnClient::Call: Calling method RunSensor"));
  EXPECT_THAT(recorder.Results(), IsEmpty());
}

TEST_F(Readiness, FeedWithoutASensorIsNotReady) {
  const auto parameters = std::make_shared<const ioHandlerParam>(recorder.Param());
  ZoIO::ItemFeed feed(parameters, nullptr, sensor->GetLogger());
  EXPECT_FALSE(feed.IsSensorManagerReady());
  EXPECT_EQ(feed.Sensor(), nullptr);
  feed.SetSensor(sensor);
  EXPECT_TRUE(feed.IsSensorManagerReady());
}

// The answer that settles it is the last one that is asked for.
TEST_F(Readiness, AsksForConnectionThenRegistryThenCacheAndNoFurtherThanNeeded) {
  const auto parameters = std::make_shared<const ioHandlerParam>(recorder.Param());
  ZoIO::ItemFeed feed(parameters, nullptr, sensor->GetLogger());
  feed.SetSensor(sensor);
  const auto ask = [&] {
    sensor->ClearCalls();
    return feed.IsSensorManagerReady();
  };
  EXPECT_TRUE(ask());
  EXPECT_THAT(sensor->Questions(), ElementsAre("IsConnected", "PLC", "Cache"));
  sensor->HideCache();
  EXPECT_FALSE(ask());
  EXPECT_THAT(sensor->Questions(), ElementsAre("IsConnected", "PLC", "Cache"));
  sensor->HidePLC();
  EXPECT_FALSE(ask());
  EXPECT_THAT(sensor->Questions(), ElementsAre("IsConnected", "PLC"));
  sensor->SetConnected(false);
  EXPECT_FALSE(ask());
  EXPECT_THAT(sensor->Questions(), ElementsAre("IsConnected"));
}

TEST_F(Readiness, OperationThatIsRefusedAsksNothingElse) {
  sensor->SetConnected(false);
  sensor->ClearCalls();
  ExpectRefusals();
  EXPECT_THAT(sensor->Questions(), ElementsAre("IsConnected", "IsConnected", "IsConnected", "IsConnected",
                                               "IsConnected"));  // each of the five once
}

// On the simulator, from end to end.
TEST(InstanceOnTheSimulator, ReadDeliversTheValueOfTheLastPassOrInvalid) {
  Recorder recorder;
  ZoIO::ZoVyrnClient client("simulator", 0, recorder.Param());
  // A simulated read answers the URI's text, in which nothing lies at /int.
  EXPECT_EQ(client.Read("/r#/int"), 0);
  EXPECT_THAT(DescribeValues(recorder, "/r#/int"), ElementsAre("5:INVALID"));
  EXPECT_EQ(client.Read("/r#"), 0);
  EXPECT_THAT(DescribeValues(recorder, "/r#"), ElementsAre("0:/r"));
}

TEST(InstanceOnTheSimulator, WriteIsSentAndCountsAsRefused) {
  Recorder recorder;
  ZoIO::ZoVyrnClient client("simulator", 0, recorder.Param());
  EXPECT_EQ(client.Write("/r#/int", 0, IntegerValue(50)), 0);
  EXPECT_EQ(client.Sensor()->PLC()->Item("/r#/int").value, xhmi::variant_value(0LL));
}

TEST(InstanceOnTheSimulator, ItemIsSubscribedNotStreamed) {
  Recorder recorder;
  ZoIO::ZoVyrnClient client("simulator", 0, recorder.Param());
  Subscribe(client, {"/r#/int"});
  EXPECT_EQ(recorder.CountMessages("Stream attempt failed.Attempting to subscribe."), 1u);
  EXPECT_EQ(recorder.CountMessages("Resource subscribed successfully."), 1u);
  // The end of a stream is answered like its beginning, so the subscription's count stays.
  Unsubscribe(client, {"/r#/int"});
  Subscribe(client, {"/r#/int"});
  EXPECT_EQ(recorder.CountMessages("Resource already subscribed.Skipping."), 1u);
}

TEST(InstanceOnTheSimulator, SubscribedValuesArriveAndChange) {
  Recorder recorder;
  ZoIO::ZoVyrnClient client("simulator", 0, recorder.Param());
  Subscribe(client, {"/r#/int"}, nullptr, std::chrono::milliseconds(100));
  EXPECT_TRUE(recorder.WaitForEntry([](const Entry& entry) {
    return entry.IsValue("/r#/int") && entry.value.type == enumtype_int64 && entry.value.value.int64 == 2;
  }));
  EXPECT_EQ(DescribeValues(recorder, "/r#/int").front(), "5:INVALID");
}

TEST(InstanceOnTheSimulator, ReadMethodAnswersTheUri) {
  Recorder recorder;
  ZoIO::ZoVyrnClient client("simulator", 0, recorder.Param());
  EXPECT_EQ(client.Call(nullptr, "Read", R"({"uri":"/r"})"), 0);
  ASSERT_EQ(recorder.Results().size(), 1u);
  EXPECT_EQ(recorder.Results()[0].response, R"({"id":null,"errcode":0,"data":"{\"payload\":\"/r\"}"})");
}

TEST(InstanceOnTheSimulator, SensorIsStartedOnceAndStoppedOnce) {
  Recorder recorder;
  ZoIO::ZoVyrnClient client("simulator", 0, recorder.Param());
  for (const char* name : {"RunSensor", "RunSensor", "StopSensor", "StopSensor"}) {
    EXPECT_EQ(client.Call(nullptr, name, "{}"), 0);
  }
  std::vector<std::string> data;
  for (const Entry& entry : recorder.Results()) {
    data.push_back(ZoJson::ParseString(entry.response).At("/data").Get<std::string>());
  }
  EXPECT_THAT(data, ElementsAre(R"({"result":"OK"})", R"({"result":"Already running."})",
                                R"({"result":"OK"})", R"({"result":"Not running"})"));
}

}  // namespace
}  // namespace ZoTest
