// Reading an item.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Read = FakeInstanceTest;

TEST_F(Read, DeliversTheValueWithStatus0AndReturns0) {
  sensor->SetResource("/r", R"({"a":5})");
  EXPECT_EQ(client->Read("/r#/a"), 0);
  const Recorder::Entries values = recorder.Values("/r#/a");
  ASSERT_EQ(values.size(), 1u);
  EXPECT_EQ(values[0].value.type, 2u);
  EXPECT_EQ(values[0].value.value.int64, 5);
  EXPECT_EQ(values[0].value.status, 0);
  EXPECT_EQ(values[0].value.reserved, 0u);
}

TEST_F(Read, FirstOneTellsItsSteps) {
  sensor->SetResource("/r", R"({"a":5})");
  client->Read("/r#/a");
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item /r#/a",
                                               "2 ZoIO::ItemManager::Item: /r#/a does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: /r#/a created.",
                                               "2 ZoIO::ItemManager::Item: Retrieving /r#/a value.",
                                               "2 ZoIO::ItemManager::Item: /r#/a value updated.",
                                               "2 ZoIO::ItemManager::Item: Adding item /r#/a"));
}

TEST_F(Read, LaterOneTellsOnlyThatItReads) {
  sensor->SetResource("/r", R"({"a":5})");
  client->Read("/r#/a");
  recorder.Clear();
  client->Read("/r#/a");
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item /r#/a"));
}

TEST_F(Read, AsksTheSensorForItsResourceEveryTime) {
  sensor->SetResource("/r", R"({"a":5})");
  client->Read("/r#/a");
  sensor->ClearCalls();
  client->Read("/r#/a");
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /r"));
}

TEST_F(Read, OfANewItemMakesTwoRequests) {
  sensor->SetResource("/r", R"({"a":5})");
  client->Read("/r#/a");
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /r", "Read /r"));
}

TEST_F(Read, ItemThatIsNotValidIsRefusedSilently) {
  EXPECT_EQ(client->Read("/unknown#/a"), 1);
  EXPECT_EQ(recorder.CountValues("/unknown#/a"), 0u);
  recorder.Clear();
  EXPECT_EQ(client->Read("/unknown#/a"), 1);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item /unknown#/a"));
}

TEST_F(Read, SensorThatIsNotConnectedIsRefusedWithoutALine) {
  sensor->SetConnected(false);
  EXPECT_EQ(client->Read("/r#/a"), 1);
  EXPECT_EQ(recorder.Size(), 0u);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(Read, ElementThatIsGoneArrivesAsInvalid) {
  sensor->SetResource("/r", R"({"a":5})");
  ASSERT_EQ(client->Read("/r#/a"), 0);
  recorder.Clear();
  // A value of the same millisecond would be dropped.
  const long long before = ZoIO::CacheManager::TimeInMills();
  while (ZoIO::CacheManager::TimeInMills() == before) {
  }
  sensor->SetResource("/r", R"({"b":5})");
  EXPECT_EQ(client->Read("/r#/a"), 0);
  EXPECT_THAT(DescribeValues(recorder, "/r#/a"), ElementsAre("5:INVALID"));
  EXPECT_EQ(recorder.Values("/r#/a")[0].value.status, 0);
}

TEST_F(Read, ResourceThatIsGoneArrivesAsInvalid) {
  sensor->SetResource("/r", R"({"a":5})");
  ASSERT_EQ(client->Read("/r#/a"), 0);
  recorder.Clear();
  const long long before = ZoIO::CacheManager::TimeInMills();
  while (ZoIO::CacheManager::TimeInMills() == before) {
  }
  sensor->RemoveResource("/r");
  EXPECT_EQ(client->Read("/r#/a"), 0);
  EXPECT_THAT(DescribeValues(recorder, "/r#/a"), ElementsAre("5:INVALID"));
}

TEST_F(Read, ResourceThatIsNotCachedArrivesAsInvalid) {
  // Valid by registration, yet nothing was ever cached.
  sensor->SetScript("Read", [](const auto&) { return ZoJson(); });
  Item("/r#/a").valid = true;
  recorder.Clear();
  EXPECT_EQ(client->Read("/r#/a"), 0);
  ASSERT_THAT(DescribeValues(recorder, "/r#/a"), ElementsAre("5:INVALID"));
  EXPECT_EQ(recorder.Values("/r#/a")[0].value.status, 0);
  EXPECT_EQ(LinesOf(recorder, "UpdateResource").size(), 1u);
}

TEST_F(Read, WhatTheHostsCallbackRaisesIsLoggedWithItsTextAndReturns1) {
  sensor->SetResource("/r", R"({"a":5})");
  ASSERT_EQ(client->Read("/r#/a"), 0);
  recorder.Clear();
  recorder.OnValue([](const Entry&) { throw std::runtime_error("a host's fault"); });
  EXPECT_EQ(client->Read("/r#/a"), 1);
  recorder.OnValue({});
  EXPECT_THAT(DescribeValues(recorder, "/r#/a"), ElementsAre("2:5"));
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item /r#/a",
                                               "5 ZoIO::ZoVyrnClient::Read: a host's fault"));
}

TEST_F(Read, FailingUpdateIsLoggedAndThenDeliversWhatTheCacheHolds) {
  sensor->SetResource("/r", R"({"a":5})");
  ASSERT_EQ(client->Read("/r#/a"), 0);
  recorder.Clear();
  sensor->SetScript("Read", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  EXPECT_EQ(client->Read("/r#/a"), 0);
  std::vector<std::string> steps;
  for (const Entry& entry : recorder.All()) {
    steps.push_back(entry.kind == Entry::Kind::Value ? entry.item + " " + Describe(entry)
                                                     : LogLine(entry.level, entry.function, entry.message));
  }
  EXPECT_THAT(steps, ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item /r#/a",
                                 "5 ZoIO::ZoVyrnClient::UpdateResource: broken", "/r#/a 2:5"));
}

TEST_F(Read, ObjectOrArrayDeliversThePreviousValueWithStatus0) {
  sensor->SetResource("/r", R"({"a":5})");
  ASSERT_EQ(client->Read("/r#/a"), 0);
  for (const char* json : {R"({"a":{"b":1}})", R"({"a":{}})", R"({"a":[1,2]})", R"({"a":[]})"}) {
    SCOPED_TRACE(json);
    recorder.Clear();
    const long long before = ZoIO::CacheManager::TimeInMills();
    while (ZoIO::CacheManager::TimeInMills() == before) {
    }
    sensor->SetResource("/r", json);
    EXPECT_EQ(client->Read("/r#/a"), 0);
    ASSERT_THAT(DescribeValues(recorder, "/r#/a"), ElementsAre("2:5"));
    EXPECT_EQ(recorder.Values("/r#/a")[0].value.status, 0);
    EXPECT_EQ(sensor->Cache()->Get("/r", 0).ToString(), json);
  }
}

TEST_F(Read, ObjectInANewItemArrivesAsInvalid) {
  sensor->SetResource("/r", R"({"a":{"b":1}})");
  EXPECT_EQ(client->Read("/r#/a"), 0);
  EXPECT_THAT(DescribeValues(recorder, "/r#/a"), ElementsAre("5:INVALID"));
}

TEST_F(Read, EveryKindArrives) {
  sensor->SetResource("/r", R"({"s":"text","b":true,"i":-5,"f":0.1,"u":18446744073709551615,"n":null})");
  for (const char* name : {"/r#/s", "/r#/b", "/r#/i", "/r#/f", "/r#/u"}) {
    EXPECT_EQ(client->Read(name), 0) << name;
  }
  EXPECT_EQ(client->Read("/r#/n"), 1);
  EXPECT_THAT(DescribeValues(recorder, "/r#/s"), ElementsAre("0:text"));
  EXPECT_THAT(DescribeValues(recorder, "/r#/b"), ElementsAre("1:1"));
  EXPECT_THAT(DescribeValues(recorder, "/r#/i"), ElementsAre("2:-5"));
  EXPECT_THAT(DescribeValues(recorder, "/r#/f"), ElementsAre("3:0.10000000149011612"));
  EXPECT_THAT(DescribeValues(recorder, "/r#/u"), ElementsAre("4:18446744073709551615"));
}

}  // namespace
}  // namespace ZoTest
