// Subscribing a batch: streams, the fall-back, counts and result codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class SubscribeItems : public FakeInstanceTest {
 protected:
  SubscribeItems() {
    sensor->SetResource("/r/x", R"({"a":1,"b":2})");
    sensor->SetResource("/r/y", R"({"a":1,"b":2})");
    for (const char* name : {"/r/x#/a", "/r/x#/b", "/r/y#/a", "/r/y#/b"}) {
      Item(name);
    }
    Answer("Stream", R"({"status":1,"payload":{"a":1}})");
    recorder.Clear();
    sensor->ClearCalls();
  }

  void Answer(const std::string& verb, const std::string& json) {
    sensor->SetScript(verb, [json](const auto&) { return json.empty() ? ZoJson() : ZoJson(json); });
  }

  std::vector<std::string> Lines() { return LinesOf(recorder, "ZoVyrnClient::Subscribe"); }
};

TEST_F(SubscribeItems, StreamThatIsGrantedTellsItsSteps) {
  std::vector<int> results;
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a"}, &results), 0);
  EXPECT_THAT(results, ElementsAre(2));
  EXPECT_THAT(Lines(), ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Subscribing items.",
                                   "2 ZoIO::ZoVyrnClient::Subscribe: Starting stream /r/x",
                                   "2 ZoIO::ZoVyrnClient::Subscribe: Attempting to stream resource /r/x",
                                   "2 ZoIO::ZoVyrnClient::Subscribe: Resource streamed successfully."));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stream /r/x"));
  EXPECT_TRUE(sensor->Calls()[0].logFailure);
  EXPECT_TRUE(Item("/r/x#/a").subscribed);
}

TEST_F(SubscribeItems, AttemptIsToldAfterTheStreamWasAskedFor) {
  std::vector<std::string> before;
  sensor->SetScript("Stream", [&](const auto&) {
    before = Lines();
    return ZoJson(R"({"status":1,"payload":{"a":1}})");
  });
  Subscribe(*client, {"/r/x#/a"});
  EXPECT_THAT(before, ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Subscribing items.",
                                  "2 ZoIO::ZoVyrnClient::Subscribe: Starting stream /r/x"));
}

TEST_F(SubscribeItems, StreamThatIsRefusedFallsBackToTheSubscription) {
  Answer("Stream", R"({"status":-1,"payload":null})");
  std::vector<int> results;
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a"}, &results), 0);
  EXPECT_THAT(Lines(),
              ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Subscribing items.",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Starting stream /r/x",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Attempting to stream resource /r/x",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Stream attempt failed.Attempting to subscribe.",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Resource subscribed successfully."));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stream /r/x", "Subscribe /r/*"));
  EXPECT_TRUE(sensor->Calls()[1].logFailure);
  EXPECT_TRUE(Item("/r/x#/a").subscribed);
}

TEST_F(SubscribeItems, NewNameMakesThreeRequestsAtMost) {
  sensor->SetResource("/new/x", R"({"a":5})");
  Answer("Stream", R"({"status":-1,"payload":null})");
  sensor->ClearCalls();
  Subscribe(*client, {"/new/x#/a"});
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /new/x", "Stream /new/x", "Subscribe /new/*"));
}

TEST_F(SubscribeItems, EveryEmptyPayloadFallsBack) {
  const char* const answers[] = {"", R"({"status":1})", R"({"status":1,"payload":null})",
                                 R"({"status":1,"payload":{}})", R"({"status":1,"payload":[]})"};
  for (const char* answer : answers) {
    SCOPED_TRACE(answer);
    recorder.Clear();
    Answer("Stream", answer);
    Subscribe(*client, {"/r/x#/a"});
    EXPECT_EQ(recorder.CountMessages("Stream attempt failed.Attempting to subscribe."), 1u);
    Unsubscribe(*client, {"/r/x#/a"});
  }
}

TEST_F(SubscribeItems, EveryOtherPayloadCountsAsStreamedWhateverTheStatus) {
  const char* const answers[] = {R"({"status":1,"payload":0})", R"({"status":1,"payload":false})",
                                 R"({"status":1,"payload":""})", R"({"status":-1,"payload":[0]})",
                                 R"({"payload":{"a":1}})"};
  for (const char* answer : answers) {
    SCOPED_TRACE(answer);
    recorder.Clear();
    Answer("Stream", answer);
    Subscribe(*client, {"/r/x#/a"});
    EXPECT_EQ(recorder.CountMessages("Resource streamed successfully."), 1u);
    Unsubscribe(*client, {"/r/x#/a"});
  }
}

TEST_F(SubscribeItems, PatternThatIsSubscribedAlreadyIsSkipped) {
  Answer("Stream", "");
  Subscribe(*client, {"/r/x#/a", "/r/y#/a"});
  EXPECT_EQ(recorder.CountMessages("Resource subscribed successfully."), 1u);
  EXPECT_THAT(Lines(),
              Contains("2 ZoIO::ZoVyrnClient::Subscribe: Resource already subscribed.Skipping.").Times(1));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stream /r/x", "Subscribe /r/*", "Stream /r/y"));
  EXPECT_TRUE(Item("/r/y#/a").subscribed);
}

// An interval begins with its first batch, whatever becomes of that, and keeps its times.
TEST_F(SubscribeItems, ItemOfAnIntervalThatBeganWithoutOneWaitsForItsNextTick) {
  const char* const name = "/r/y#/a";
  int result = untouched;
  EXPECT_EQ(client->Subscribe(24h, &name, &result, 0), 0);
  Subscribe(*client, {"/r/x#/a"}, nullptr, 25h);  // ticks behind it in each pass
  ASSERT_TRUE(recorder.WaitForValue("/r/x#/a"));
  Subscribe(*client, {"/r/y#/a"}, nullptr, 24h);
  Subscribe(*client, {"/r/x#/b"}, nullptr, 26h);
  ASSERT_TRUE(recorder.WaitForValue("/r/x#/b"));
  EXPECT_EQ(recorder.CountValues("/r/y#/a"), 0u);
}

TEST_F(SubscribeItems, ItemWhoseStreamAndSubscriptionAreRefusedGetsItsValuesFromReads) {
  Answer("Stream", "");
  Answer("Subscribe", "");
  Subscribe(*client, {"/r/x#/a"}, nullptr, 0ms);
  ASSERT_TRUE(recorder.WaitForValue("/r/x#/a"));
  sensor->SetResource("/r/x", R"({"a":5})");
  Subscribe(*client, {"/r/y#/a"}, nullptr, 0ms);  // counts passes
  ASSERT_TRUE(recorder.WaitForValue("/r/y#/a", 2));
  EXPECT_THAT(DescribeValues(recorder, "/r/x#/a"), Not(Contains("2:5")));
  EXPECT_EQ(client->Read("/r/x#/a"), 0);
  recorder.Clear();
  ASSERT_TRUE(recorder.WaitForValue("/r/x#/a"));
  EXPECT_THAT(DescribeValues(recorder, "/r/x#/a"), Contains("2:5"));
}

TEST_F(SubscribeItems, SubscriptionThatIsRefusedIsAWarningAndTheItemStays) {
  Answer("Stream", "");
  for (const char* answer : {"", R"({"status":0})", R"({"status":-1})", R"({"status":2})", R"({"payload":1})",
                             R"({"status":"1"})"}) {
    SCOPED_TRACE(answer);
    Answer("Subscribe", answer);
    recorder.Clear();
    std::vector<int> results;
    EXPECT_EQ(Subscribe(*client, {"/r/x#/a"}, &results), 0);
    EXPECT_THAT(results, ElementsAre(2));
    EXPECT_EQ(Lines().back(), "4 ZoIO::ZoVyrnClient::Subscribe: Could not subscribe resource.");
    EXPECT_TRUE(Item("/r/x#/a").subscribed);
    EXPECT_TRUE(recorder.WaitForValue("/r/x#/a"));
    Unsubscribe(*client, {"/r/x#/a"});
    client->ClearSubscriptionsList();
  }
}

TEST_F(SubscribeItems, RefusedSubscriptionIsTriedAgainByTheNextItemOfItsPattern) {
  Answer("Stream", "");
  Answer("Subscribe", "");
  Subscribe(*client, {"/r/x#/a"});
  Answer("Subscribe", R"({"status":1})");
  Subscribe(*client, {"/r/y#/a"});
  EXPECT_EQ(sensor->CallCount("Subscribe"), 2u);
  EXPECT_EQ(recorder.CountMessages("Resource subscribed successfully."), 1u);
}

TEST_F(SubscribeItems, ItemsOfOneResourceShareItsStream) {
  std::vector<int> results;
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a", "/r/x#/b"}, &results), 0);
  EXPECT_THAT(results, ElementsAre(2, 2));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stream /r/x"));
  EXPECT_EQ(recorder.CountMessages("Starting stream /r/x"), 1u);
  // Only the item that started the stream is marked.
  EXPECT_TRUE(Item("/r/x#/a").subscribed);
  EXPECT_FALSE(Item("/r/x#/b").subscribed);
}

TEST_F(SubscribeItems, ResultIsTheKindOfTheVariantNotTheType) {
  Item("/r/x#/a").value = xhmi::variant_value("text");
  Item("/r/x#/b").type = enumtype_double;
  Item("/r/y#/a").value = xhmi::variant_value(0.5);
  Item("/r/y#/b").value = xhmi::variant_value();
  std::vector<int> results;
  Subscribe(*client, {"/r/x#/a", "/r/x#/b", "/r/y#/a", "/r/y#/b"}, &results);
  EXPECT_THAT(results, ElementsAre(0, 2, 3, 5));
}

TEST_F(SubscribeItems, ItemThatTheSensorDoesNotKnowIsSubscribedAllTheSame) {
  std::vector<int> results;
  EXPECT_EQ(Subscribe(*client, {"/unknown#/a"}, &results), 0);
  EXPECT_THAT(results, ElementsAre(2));
  EXPECT_TRUE(recorder.WaitForValue("/unknown#/a"));
  EXPECT_THAT(DescribeValues(recorder, "/unknown#/a"), ElementsAre("5:INVALID"));
}

TEST_F(SubscribeItems, NullNameEndsTheBatch) {
  std::vector<int> results;
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a", "/r/x#/b", nullptr, "/r/y#/a"}, &results), 1);
  EXPECT_THAT(results, ElementsAre(2, 2, untouched, untouched));
  EXPECT_EQ(Lines().back(), "4 ZoIO::ZoVyrnClient::Subscribe: Invalid item name. Skipping.");
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stream /r/x"));
  EXPECT_TRUE(recorder.WaitForValue("/r/x#/b"));
  EXPECT_EQ(recorder.CountValues("/r/y#/a"), 0u);
}

TEST_F(SubscribeItems, NameThatRaisesGetsCode6AndTheOthersGoOn) {
  sensor->SetScript("Stream", [](const FakeSensorManager::Request& request) -> ZoJson {
    if (request.uri == "/r/x") {
      throw std::runtime_error("broken");
    }
    return ZoJson(R"({"status":1,"payload":1})");
  });
  std::vector<int> results;
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a", "/r/y#/a"}, &results), 1);
  EXPECT_THAT(results, ElementsAre(6, 2));
  EXPECT_THAT(Lines(), ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Subscribing items.",
                                   "2 ZoIO::ZoVyrnClient::Subscribe: Starting stream /r/x",
                                   "5 ZoIO::ZoVyrnClient::Subscribe: broken",
                                   "2 ZoIO::ZoVyrnClient::Subscribe: Starting stream /r/y",
                                   "2 ZoIO::ZoVyrnClient::Subscribe: Attempting to stream resource /r/y",
                                   "2 ZoIO::ZoVyrnClient::Subscribe: Resource streamed successfully."));
  EXPECT_TRUE(recorder.WaitForValue("/r/y#/a"));
  EXPECT_EQ(recorder.CountValues("/r/x#/a"), 0u);
  EXPECT_FALSE(Item("/r/x#/a").subscribed);
}

TEST_F(SubscribeItems, NameThatRaisedIsStartedAnewByTheNextSubscribe) {
  sensor->SetScript("Stream", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  Subscribe(*client, {"/r/x#/a"});
  Answer("Stream", R"({"status":1,"payload":1})");
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a"}), 0);
  EXPECT_EQ(recorder.CountMessages("Starting stream /r/x"), 2u);
}

TEST_F(SubscribeItems, SensorThatIsNotConnectedIsRefusedWithoutALine) {
  sensor->SetConnected(false);
  std::vector<int> results;
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a"}, &results), 1);
  EXPECT_THAT(results, ElementsAre(untouched));
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(SubscribeItems, NullArraysAreRefusedWithoutALine) {
  const char* const names[] = {"/r/x#/a"};
  int result = untouched;
  EXPECT_EQ(client->Subscribe(100ms, nullptr, &result, 1), 1);
  EXPECT_EQ(client->Subscribe(100ms, names, nullptr, 1), 1);
  EXPECT_EQ(result, untouched);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(SubscribeItems, EmptyBatchSucceeds) {
  for (const int count : {0, -1}) {
    const char* const names[] = {"/r/x#/a"};
    int result = untouched;
    EXPECT_EQ(client->Subscribe(100ms, names, &result, count), 0);
    EXPECT_EQ(result, untouched);
  }
  EXPECT_EQ(recorder.CountMessages("Subscribing items."), 2u);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(SubscribeItems, ItemArrivesAtEachOfItsIntervals) {
  // Two groups, each pushing once on the monitor's next pass and not again today.
  Subscribe(*client, {"/r/x#/a"}, nullptr, 24h);
  Subscribe(*client, {"/r/x#/a"}, nullptr, 25h);
  EXPECT_TRUE(recorder.WaitForValue("/r/x#/a", 2));
}

TEST_F(SubscribeItems, SameItemTwiceIsOneEntryOfItsGroup) {
  Subscribe(*client, {"/r/x#/a", "/r/x#/a"});
  Subscribe(*client, {"/r/y#/a"}, nullptr, 25h);
  // The later group's push shows that the first one has ticked.
  EXPECT_TRUE(recorder.WaitForValue("/r/y#/a"));
  EXPECT_EQ(recorder.CountValues("/r/x#/a"), 1u);
  EXPECT_EQ(recorder.CountMessages("Starting stream /r/x"), 1u);
}

TEST_F(SubscribeItems, SingleItemIsStreamedOrSubscribedWithoutTheBatch) {
  ZoIO::ItemInfo& item = Item("/r/x#/a");
  client->Subscribe(item);
  EXPECT_TRUE(item.subscribed);
  EXPECT_THAT(Lines(), ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Attempting to stream resource /r/x",
                                   "2 ZoIO::ZoVyrnClient::Subscribe: Resource streamed successfully."));
  EXPECT_EQ(recorder.CountValues("/r/x#/a"), 0u);
}

TEST_F(SubscribeItems, ClearedListForgetsTheSubscriptionsButNotTheStreams) {
  Answer("Stream", "");
  Subscribe(*client, {"/r/x#/a"});
  client->ClearSubscriptionsList();
  Subscribe(*client, {"/r/y#/a", "/r/x#/b"});
  // The pattern is subscribed anew for /r/y, while /r/x counts as streamed.
  EXPECT_EQ(sensor->CallCount("Subscribe"), 2u);
  EXPECT_EQ(recorder.CountMessages("Starting stream /r/x"), 1u);
}

}  // namespace
}  // namespace ZoTest
