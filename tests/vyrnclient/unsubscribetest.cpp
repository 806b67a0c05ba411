// Unsubscribing a batch.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class UnsubscribeItems : public FakeInstanceTest {
 protected:
  UnsubscribeItems() {
    sensor->SetResource("/r/x", R"({"a":1,"b":2})");
    sensor->SetResource("/r/y", R"({"a":1,"b":2})");
    Answer("Stream", R"({"status":1,"payload":{"a":1}})");
  }

  void Answer(const std::string& verb, const std::string& json) {
    sensor->SetScript(verb, [json](const auto&) { return json.empty() ? ZoJson() : ZoJson(json); });
  }
  // From here on resources are not streamed, so their patterns are subscribed.
  void RefuseStreams() {
    Answer("Stream", "");
    Answer("StopStream", "");
  }
  void Forget() {
    recorder.Clear();
    sensor->ClearCalls();
  }
  // What a count of 0 comes to: the first of two items starts their stream, the second one's end stops it.
  void ExpectThatTwoItemsShareOneStream() {
    Forget();
    EXPECT_EQ(Subscribe(*client, {"/r/x#/a"}), 0);
    EXPECT_EQ(Subscribe(*client, {"/r/x#/b"}), 0);
    EXPECT_EQ(Unsubscribe(*client, {"/r/x#/a"}), 0);
    EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stream /r/x"));
    EXPECT_EQ(Unsubscribe(*client, {"/r/x#/b"}), 0);
    EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stream /r/x", "StopStream /r/x"));
  }
};

TEST_F(UnsubscribeItems, LastItemOfAResourceStopsItsStream) {
  Subscribe(*client, {"/r/x#/a"});
  Forget();
  EXPECT_EQ(Unsubscribe(*client, {"/r/x#/a"}), 0);
  EXPECT_THAT(LinesOf(recorder, "Unsubscribe"),
              ElementsAre("2 ZoIO::ZoVyrnClient::Unsubscribe: Unsubscribing items.",
                          "2 ZoIO::ZoVyrnClient::Unsubscribe: Stopping stream /r/x"));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("StopStream /r/x"));
  EXPECT_TRUE(sensor->Calls()[0].logFailure);
  EXPECT_FALSE(Item("/r/x#/a").subscribed);
}

TEST_F(UnsubscribeItems, StreamOfTwoItemsStopsWithTheSecond) {
  Subscribe(*client, {"/r/x#/a", "/r/x#/b"});
  Forget();
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
  Unsubscribe(*client, {"/r/x#/b"});
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("StopStream /r/x"));
  EXPECT_EQ(recorder.CountMessages("Stopping stream /r/x"), 1u);
}

TEST_F(UnsubscribeItems, ItemSubscribedTwiceNeedsTwoUnsubscribes) {
  Subscribe(*client, {"/r/x#/a"});
  Subscribe(*client, {"/r/x#/a"});
  Forget();
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_EQ(recorder.CountMessages("Stopping stream /r/x"), 0u);
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_EQ(recorder.CountMessages("Stopping stream /r/x"), 1u);
}

TEST_F(UnsubscribeItems, ItemLeavesAllItsIntervalsAtOnce) {
  Subscribe(*client, {"/r/x#/a"}, nullptr, 0ms);
  Subscribe(*client, {"/r/x#/a"}, nullptr, 1ms);
  ASSERT_TRUE(recorder.WaitForValue("/r/x#/a", 4));
  Unsubscribe(*client, {"/r/x#/a"});
  Forget();
  // Two passes later, seen by another item, nothing of it has come.
  Subscribe(*client, {"/r/y#/a"}, nullptr, 0ms);
  ASSERT_TRUE(recorder.WaitForValue("/r/y#/a", 2));
  EXPECT_EQ(recorder.CountValues("/r/x#/a"), 0u);
}

TEST_F(UnsubscribeItems, ItemOfTwoIntervalsLeavesBothWithTheFirstAndItsStreamEndsWithTheSecond) {
  Subscribe(*client, {"/r/x#/a"}, nullptr, 0ms);
  Subscribe(*client, {"/r/x#/a"}, nullptr, 1ms);
  ASSERT_TRUE(recorder.WaitForValue("/r/x#/a", 4));
  sensor->ClearCalls();
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
  Forget();
  Subscribe(*client, {"/r/y#/a"}, nullptr, 0ms);
  ASSERT_TRUE(recorder.WaitForValue("/r/y#/a", 2));
  EXPECT_EQ(recorder.CountValues("/r/x#/a"), 0u);
  Forget();
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("StopStream /r/x"));
}

TEST_F(UnsubscribeItems, OtherItemsOfTheGroupStay) {
  Subscribe(*client, {"/r/x#/a", "/r/x#/b"}, nullptr, 0ms);
  Unsubscribe(*client, {"/r/x#/a"});
  Forget();
  ASSERT_TRUE(recorder.WaitForValue("/r/x#/b", 2));
  EXPECT_EQ(recorder.CountValues("/r/x#/a"), 0u);
}

TEST_F(UnsubscribeItems, LastItemOfAnIntervalSubscribedAgainArrivesAtOnce) {
  for (std::size_t round = 1; round <= 3; ++round) {
    EXPECT_EQ(Subscribe(*client, {"/r/x#/a"}, nullptr, 24h), 0);
    ASSERT_TRUE(recorder.WaitForValue("/r/x#/a", round)) << "the interval of a day goes on";
    EXPECT_EQ(Unsubscribe(*client, {"/r/x#/a"}), 0);
  }
}

TEST_F(UnsubscribeItems, ItemSubscribedAgainToAnIntervalThatOthersUseWaitsForTheirNextTick) {
  Subscribe(*client, {"/r/x#/a", "/r/x#/b"}, nullptr, 24h);
  ASSERT_TRUE(recorder.WaitForValue("/r/x#/b"));
  Unsubscribe(*client, {"/r/x#/a"});
  Forget();
  Subscribe(*client, {"/r/x#/a"}, nullptr, 24h);
  // A longer interval ticks behind it in each pass.
  Subscribe(*client, {"/r/y#/a"}, nullptr, 25h);
  ASSERT_TRUE(recorder.WaitForValue("/r/y#/a"));
  EXPECT_EQ(recorder.CountValues("/r/x#/a"), 0u);
}

TEST_F(UnsubscribeItems, ResourceThatWasNotStreamedReleasesItsPattern) {
  RefuseStreams();
  Subscribe(*client, {"/r/x#/a"});
  Forget();
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("StopStream /r/x", "Unsubscribe /r/*"));
  EXPECT_TRUE(sensor->Calls()[1].logFailure);
}

TEST_F(UnsubscribeItems, PatternOfTwoResourcesIsReleasedByTheSecond) {
  RefuseStreams();
  Subscribe(*client, {"/r/x#/a", "/r/y#/a"});
  Forget();
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("StopStream /r/x"));
  Unsubscribe(*client, {"/r/y#/a"});
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("StopStream /r/x", "StopStream /r/y", "Unsubscribe /r/*"));
}

TEST_F(UnsubscribeItems, AnswerThatIsNotEmptyLeavesThePatternAlone) {
  Answer("Stream", "");
  Subscribe(*client, {"/r/x#/a"});
  Forget();
  Answer("StopStream", R"({"status":-1,"payload":null})");
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_EQ(sensor->CallCount("Unsubscribe"), 0u);
  EXPECT_FALSE(Item("/r/x#/a").subscribed);
}

TEST_F(UnsubscribeItems, ItemThatWasNeverSubscribedStopsItsStreamEachTime) {
  Forget();
  EXPECT_EQ(Unsubscribe(*client, {"/r/x#/a"}), 0);
  EXPECT_EQ(Unsubscribe(*client, {"/r/x#/a"}), 0);
  EXPECT_EQ(sensor->CallCount("StopStream"), 2u);
  ExpectThatTwoItemsShareOneStream();
}

TEST_F(UnsubscribeItems, CountOfAPatternGoesBelow0) {
  RefuseStreams();
  Unsubscribe(*client, {"/r/x#/a"});
  Forget();
  // The count of the pattern is -1 now: not 0, so it counts as subscribed and goes back to 0.
  Subscribe(*client, {"/r/x#/a"});
  EXPECT_EQ(recorder.CountMessages("Resource already subscribed.Skipping."), 1u);
  EXPECT_EQ(sensor->CallCount("Subscribe"), 0u);
  // From 0 the next resource of the pattern subscribes.
  Subscribe(*client, {"/r/y#/a"});
  EXPECT_EQ(sensor->CallCount("Subscribe"), 1u);
}

TEST_F(UnsubscribeItems, ExceptionIsTheCallersAndTheLockIsFreeAfterwards) {
  Subscribe(*client, {"/r/x#/a", "/r/y#/a"});
  Forget();
  sensor->SetScript("StopStream", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  EXPECT_THROW(Unsubscribe(*client, {"/r/x#/a", "/r/y#/a"}), std::runtime_error);
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("StopStream /r/x"));
  EXPECT_EQ(recorder.CountMessages("broken"), 0u);
  Answer("StopStream", R"({"status":1})");
  EXPECT_EQ(Unsubscribe(*client, {"/r/y#/a"}), 0);
}

TEST_F(UnsubscribeItems, ItemThatRaisesHasLeftItsIntervalsAndThoseBehindItHaveNot) {
  Subscribe(*client, {"/r/x#/a", "/r/x#/b", "/r/y#/a", "/r/y#/b"}, nullptr, 0ms);
  ASSERT_TRUE(recorder.WaitForValue("/r/y#/b", 2));
  sensor->SetScript("StopStream", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  Unsubscribe(*client, {"/r/x#/b"});  // the resource has another item
  EXPECT_THROW(Unsubscribe(*client, {"/r/x#/a", "/r/y#/a"}), std::runtime_error);
  Forget();
  ASSERT_TRUE(recorder.WaitForValue("/r/y#/b", 2));
  EXPECT_EQ(recorder.CountValues("/r/x#/a"), 0u);
  EXPECT_GE(recorder.CountValues("/r/y#/a"), 1u);
}

TEST_F(UnsubscribeItems, CountStartsFrom0AfterUnsubscribesThatRaised) {
  sensor->SetScript("StopStream", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  for (int i = 0; i < 3; ++i) {
    EXPECT_THROW(Unsubscribe(*client, {"/r/x#/a"}), std::runtime_error);
  }
  Answer("StopStream", R"({"status":1})");
  ExpectThatTwoItemsShareOneStream();
}

TEST_F(UnsubscribeItems, ItemWhoseStreamCouldNotBeStoppedKeepsItsMarkAndStartsItAnew) {
  Subscribe(*client, {"/r/x#/a"});
  sensor->SetScript("StopStream", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  EXPECT_THROW(Unsubscribe(*client, {"/r/x#/a"}), std::runtime_error);
  EXPECT_TRUE(Item("/r/x#/a").subscribed);
  Answer("StopStream", R"({"status":1})");
  ExpectThatTwoItemsShareOneStream();
}

TEST_F(UnsubscribeItems, OnlyTheLastItemOfAResourceLosesItsMark) {
  Subscribe(*client, {"/r/x#/a", "/r/x#/b"});
  // As after a reconnect that has found both of them marked.
  Item("/r/x#/b").subscribed = true;
  Unsubscribe(*client, {"/r/x#/a"});
  EXPECT_TRUE(Item("/r/x#/a").subscribed);
  EXPECT_TRUE(Item("/r/x#/b").subscribed);
  Unsubscribe(*client, {"/r/x#/b"});
  EXPECT_TRUE(Item("/r/x#/a").subscribed);
  EXPECT_FALSE(Item("/r/x#/b").subscribed);
}

TEST_F(UnsubscribeItems, SensorThatIsNotConnectedIsRefusedWithoutALine) {
  Subscribe(*client, {"/r/x#/a"});
  Forget();
  sensor->SetConnected(false);
  EXPECT_EQ(Unsubscribe(*client, {"/r/x#/a"}), 1);
  EXPECT_THAT(LinesOf(recorder, "Unsubscribe"), IsEmpty());
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(UnsubscribeItems, UnknownNameBecomesAnItemFirst) {
  EXPECT_EQ(Unsubscribe(*client, {"/new#/a"}), 0);
  EXPECT_EQ(recorder.CountMessages("/new#/a created."), 1u);
}

TEST_F(UnsubscribeItems, EmptyBatchTellsOneLine) {
  EXPECT_EQ(client->Unsubscribe(nullptr, 0), 0);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Unsubscribe: Unsubscribing items."));
}

TEST_F(UnsubscribeItems, SingleItemEndsItsStreamWithoutTheBatch) {
  ZoIO::ItemInfo& item = Item("/r/x#/a");
  item.subscribed = true;
  Forget();
  client->Unsubscribe(item);
  EXPECT_FALSE(item.subscribed);
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("StopStream /r/x"));
  EXPECT_EQ(recorder.Size(), 0u);
}

}  // namespace
}  // namespace ZoTest
