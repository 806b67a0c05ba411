// Writing an item.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Write : public FakeInstanceTest {
 protected:
  Write() {
    sensor->SetResource("/r", R"({"a":1,"list":[1,2],"r":1})");
    Item("/r#/a");
    recorder.Clear();
    sensor->ClearCalls();
  }

  int WriteItem(const ioDataValue& value, const std::string& name = "/r#/a") {
    return client->Write(name, 0, value);
  }

  // The bodies that were sent.
  std::vector<std::string> Sent() const {
    std::vector<std::string> bodies;
    for (const FakeSensorManager::Request& request : sensor->Calls()) {
      if (request.verb == "Update") {
        bodies.push_back(request.payload.ToString());
      }
    }
    return bodies;
  }

  // What a look at the cache brings. It is made in the callback of another item's read, which is where a test comes under
  // the instance lock: the monitor works beside.
  xhmi::variant_value Refreshed(ZoIO::ItemInfo& item) {
    xhmi::variant_value value;
    recorder.OnValue([&](const Entry&) { value = client->UpdateItemFromCache(item); });
    EXPECT_EQ(client->Read("/r#/a"), 0);
    recorder.OnValue({});
    return value;
  }

  void AnswerUpdates(const std::string& json) {
    sensor->SetScript("Update", [json](const auto&) { return json.empty() ? ZoJson() : ZoJson(json); });
  }
};

TEST_F(Write, SendsTheTemplateWithTheValueToTheResource) {
  EXPECT_EQ(WriteItem(IntegerValue(42)), 0);
  ASSERT_EQ(sensor->CallTexts(), std::vector<std::string>{"Update /r"});
  EXPECT_TRUE(sensor->Calls()[0].logFailure);
  EXPECT_THAT(Sent(), ElementsAre(R"({"a":42})"));
}

TEST_F(Write, TellsOneLine) {
  WriteItem(IntegerValue(42));
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Write: Writing to item /r#/a"));
  EXPECT_EQ(recorder.CountValues("/r#/a"), 0u);
}

TEST_F(Write, OfANewItemTellsItsStepsInTheirOrder) {
  WriteItem(IntegerValue(42), "/r#/r");
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Write: Writing to item /r#/r",
                                               "2 ZoIO::ItemManager::Item: /r#/r does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: /r#/r created.",
                                               "2 ZoIO::ItemManager::Item: Adding item /r#/r"));
}

TEST_F(Write, OfANewItemMakesTwoRequests) {
  sensor->SetResource("/new", R"({"a":5})");
  sensor->ClearCalls();
  WriteItem(IntegerValue(42), "/new#/a");
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /new", "Update /new"));
}

TEST_F(Write, EveryTypeIsSentAsItsJsonKind) {
  WriteItem(TextValue("text \"quoted\""));
  WriteItem(BooleanValue(1));
  WriteItem(BooleanValue(0));
  WriteItem(IntegerValue(std::numeric_limits<std::int64_t>::min()));
  WriteItem(FloatValue(0.1));
  WriteItem(FloatValue(2));
  WriteItem(UnsignedValue(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_THAT(Sent(), ElementsAre(R"({"a":"text \"quoted\""})", R"({"a":true})", R"({"a":false})",
                                  R"({"a":-9223372036854775808})", R"({"a":0.1})", R"({"a":2.0})",
                                  R"({"a":18446744073709551615})"));
}

TEST_F(Write, ItemTakesAVariantOfTheWrittenKind) {
  WriteItem(TextValue("text"));
  EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value("text"));
  WriteItem(BooleanValue(1));
  EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(true));
  WriteItem(IntegerValue(-3));
  EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(-3LL));
  WriteItem(FloatValue(0.1));
  EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(0.1));
  WriteItem(UnsignedValue(3));
  EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(3ULL));
}

TEST_F(Write, TypeOfTheItemStays) {
  Item("/r#/a").type = enumtype_double;
  WriteItem(IntegerValue(3));
  EXPECT_EQ(Item("/r#/a").type, enumtype_double);
}

TEST_F(Write, BooleanIsTrueWhenAnyByteIsSet) {
  WriteItem(BooleanValue(0x0100));
  WriteItem(BooleanValue(0x8000000000000000U));
  EXPECT_THAT(Sent(), ElementsAre(R"({"a":true})", R"({"a":true})"));
}

// Subscribing an item tells the kind of its value.
TEST_F(Write, SubscribedItemTakesTheValueOfTheCacheAgainWithTheNextTick) {
  sensor->SetResource("/s", R"({"a":"text"})");
  sensor->SetScript("Stream", [](const auto&) { return ZoJson(R"({"status":1,"payload":{"a":"text"}})"); });
  Subscribe(*client, {"/s#/a"}, nullptr, std::chrono::milliseconds(100));
  ASSERT_TRUE(recorder.WaitForValue("/s#/a", 3));
  WriteItem(IntegerValue(5), "/s#/a");
  recorder.Clear();
  ASSERT_TRUE(recorder.WaitForValue("/s#/a", 3));
  std::vector<int> results;
  Subscribe(*client, {"/s#/a"}, &results, std::chrono::milliseconds(100));
  EXPECT_THAT(results, ElementsAre(enumtype_string));
}

TEST_F(Write, UnsupportedTypeIsRefusedAndNothingChanges) {
  WriteItem(IntegerValue(7));
  recorder.Clear();
  sensor->ClearCalls();
  for (const std::uint32_t type : {5u, 6u, 1000u, 0xFFFFFFFFu}) {
    ioDataValue value = IntegerValue(1);
    value.type = type;
    EXPECT_EQ(WriteItem(value), 1);
    EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(7LL));
  }
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
  // Each attempt says only that it writes.
  EXPECT_EQ(recorder.Size(), 4u);
  EXPECT_EQ(recorder.CountMessages("Writing to item /r#/a"), 4u);
}

TEST_F(Write, NullTextIsRefused) {
  EXPECT_EQ(WriteItem(TextValue(nullptr)), 1);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(Write, NegativeStatusRestoresTheValueAndReturns0WithoutALine) {
  WriteItem(IntegerValue(7));
  recorder.Clear();
  AnswerUpdates(R"({"status":-1})");
  EXPECT_EQ(WriteItem(TextValue("new")), 0);
  EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(7LL));
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Write: Writing to item /r#/a"));
}

TEST_F(Write, EmptyResponseRestoresTheValueAndReturns0WithoutALine) {
  WriteItem(IntegerValue(7));
  recorder.Clear();
  AnswerUpdates("");
  EXPECT_EQ(WriteItem(IntegerValue(8)), 0);
  EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(7LL));
  EXPECT_EQ(recorder.Size(), 1u);
}

TEST_F(Write, StatusThatIsNotNegativeIsSuccess) {
  for (const char* status : {"0", "1", "2147483647"}) {
    AnswerUpdates(std::string(R"({"status":)") + status + "}");
    EXPECT_EQ(WriteItem(TextValue(status)), 0);
    EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(status));
  }
}

TEST_F(Write, MissingStatusIsLoggedAndReturns1) {
  AnswerUpdates(R"({"payload":1})");
  EXPECT_EQ(WriteItem(IntegerValue(8)), 1);
  const Recorder::Entries lines = recorder.Logs();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].level, 5);
  EXPECT_EQ(lines[1].function, "ZoIO::ZoVyrnClient::Write");
  EXPECT_NE(lines[1].message.find("status"), std::string::npos);
}

TEST_F(Write, StatusThatIsNoNumberIsLoggedAndReturns1) {
  AnswerUpdates(R"({"status":"good"})");
  EXPECT_EQ(WriteItem(IntegerValue(8)), 1);
  EXPECT_EQ(recorder.Logs().size(), 2u);
}

TEST_F(Write, ExceptionIsLoggedWithItsTextAndReturns1) {
  sensor->SetScript("Update", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  EXPECT_EQ(WriteItem(IntegerValue(8)), 1);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Write: Writing to item /r#/a",
                                               "5 ZoIO::ZoVyrnClient::Write: broken"));
}

// Whether the sensor took the value is not known then, so there is no telling which one to go back to.
TEST_F(Write, FaultLeavesTheWrittenValueInItemAndTemplate) {
  const FakeSensorManager::Script faults[] = {
      [](const auto&) { return ZoJson(R"({"payload":1})"); },
      [](const auto&) { return ZoJson(R"({"status":"good"})"); },
      [](const auto&) -> ZoJson { throw std::runtime_error("broken"); },
  };
  std::int64_t number = 7;
  ASSERT_EQ(WriteItem(IntegerValue(number)), 0);
  for (const FakeSensorManager::Script& fault : faults) {
    SCOPED_TRACE(++number);
    sensor->SetScript("Update", fault);
    EXPECT_EQ(WriteItem(IntegerValue(number)), 1);
    EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value(static_cast<long long>(number)));
    EXPECT_EQ(Item("/r#/a").endpoint.ToString(), R"({"a":)" + std::to_string(number) + "}");
  }
}

// The written value is the item's only until the next look at the cache: the type is still that of a double,
// and an integer's bits would be taken for one.
TEST_F(Write, NextRefreshTakesTheCachedValueAgainThoughNothingNewCame) {
  sensor->SetResource("/f", R"({"a":0.5})");
  ZoIO::ItemInfo& item = Item("/f#/a");
  ASSERT_EQ(Refreshed(item).float64(), 0.5);
  ASSERT_EQ(WriteItem(IntegerValue(5), "/f#/a"), 0);
  ASSERT_EQ(item.value, xhmi::variant_value(5LL));
  EXPECT_EQ(Refreshed(item).float64(), 0.5);
  EXPECT_EQ(item.type, enumtype_double);
}

TEST_F(Write, RefusedOneLeavesTheCachedValueToTheNextRefreshToo) {
  sensor->SetResource("/f", R"({"a":0.5})");
  ZoIO::ItemInfo& item = Item("/f#/a");
  Refreshed(item);
  ASSERT_EQ(WriteItem(IntegerValue(5), "/f#/a"), 0);
  AnswerUpdates(R"({"status":-1})");
  ASSERT_EQ(WriteItem(IntegerValue(6), "/f#/a"), 0);
  ASSERT_EQ(item.value, xhmi::variant_value(5LL));
  EXPECT_EQ(Refreshed(item).float64(), 0.5);
}

TEST_F(Write, SubscribedItemGoesOnArrivingAsTheSensorHasIt) {
  using namespace std::chrono_literals;
  sensor->SetResource("/f", R"({"a":0.5})");
  ASSERT_EQ(Subscribe(*client, {"/f#/a"}, nullptr, 0ms), 0);
  ASSERT_TRUE(recorder.WaitForValue("/f#/a"));
  ASSERT_EQ(WriteItem(IntegerValue(5), "/f#/a"), 0);
  const std::size_t count = recorder.CountValues("/f#/a");
  EXPECT_TRUE(recorder.WaitForValue("/f#/a", count + 2));
  EXPECT_THAT(DescribeValues(recorder, "/f#/a"), Each("3:0.5"));
}

TEST_F(Write, ItemThatIsNotValidIsRefusedSilently) {
  Item("/unknown#/a");
  recorder.Clear();
  EXPECT_EQ(WriteItem(IntegerValue(8), "/unknown#/a"), 1);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Write: Writing to item /unknown#/a"));
  EXPECT_EQ(sensor->CallCount("Update"), 0u);
}

TEST_F(Write, SensorThatIsNotConnectedIsRefusedWithoutALine) {
  sensor->SetConnected(false);
  EXPECT_EQ(WriteItem(IntegerValue(8)), 1);
  EXPECT_EQ(recorder.Size(), 0u);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(Write, TemplateKeepsTheNewValueAlsoWhenTheSensorRefused) {
  WriteItem(IntegerValue(7));
  EXPECT_EQ(Item("/r#/a").endpoint.ToString(), R"({"a":7})");
  AnswerUpdates(R"({"status":-1})");
  WriteItem(TextValue("new"));
  EXPECT_EQ(Item("/r#/a").endpoint.ToString(), R"({"a":"new"})");
}

TEST_F(Write, LaterValueReplacesTheEarlierOneInTheTemplate) {
  WriteItem(TextValue("/not/a/path"));
  WriteItem(IntegerValue(2));
  EXPECT_THAT(Sent(), ElementsAre(R"({"a":"/not/a/path"})", R"({"a":2})"));
}

TEST_F(Write, ItemWithoutHashSendsTheBareValue) {
  Item("/r");
  EXPECT_EQ(WriteItem(IntegerValue(5), "/r"), 0);
  EXPECT_EQ(WriteItem(TextValue("text"), "/r"), 0);
  EXPECT_THAT(Sent(), ElementsAre("5", R"("text")"));
}

TEST_F(Write, ItemWithAnEmptyPlaceSendsTheBareValue) {
  EXPECT_EQ(WriteItem(IntegerValue(5), "/r#"), 0);
  EXPECT_EQ(WriteItem(IntegerValue(6), "/r#"), 0);
  EXPECT_THAT(Sent(), ElementsAre("5", "6"));
}

TEST_F(Write, ElementOfAnArrayIsSentAsAMemberOfAnObject) {
  EXPECT_EQ(WriteItem(IntegerValue(5), "/r#/list/0"), 0);
  EXPECT_EQ(WriteItem(IntegerValue(6), "/r#/list/0"), 0);
  EXPECT_THAT(Sent(), ElementsAre(R"({"list":{"0":5}})", R"({"list":{"0":6}})"));
}

TEST_F(Write, PathIsSentAsNestedObjects) {
  sensor->SetResource("/d", R"({"x y":{"z":{"a/b":1}}})");
  EXPECT_EQ(WriteItem(IntegerValue(5), "/d#/x%20y/z/a~1b"), 0);
  EXPECT_THAT(Sent(), ElementsAre(R"({"x y":{"z":{"a/b":5}}})"));
}

TEST_F(Write, OfANameWithATildeThatEscapesNothingGoesWhereItIsRead) {
  sensor->SetResource("/t", R"({"a~b":1,"ab":2,"~~1":3,"~/":4,"~1":5})");
  EXPECT_EQ(client->Read("/t#/a~b"), 0);
  EXPECT_EQ(client->Read("/t#/~~01"), 0);
  EXPECT_THAT(DescribeValues(recorder, "/t#/a~b"), ElementsAre("2:1"));
  EXPECT_THAT(DescribeValues(recorder, "/t#/~~01"), ElementsAre("2:3"));
  // A second time, since the first one leaves a body that was put together anew.
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(WriteItem(IntegerValue(i), "/t#/a~b"), 0);
    EXPECT_EQ(WriteItem(IntegerValue(i), "/t#/~~01"), 0);
  }
  EXPECT_THAT(Sent(), ElementsAre(R"({"a~b":0})", R"({"~~1":0})", R"({"a~b":1})", R"({"~~1":1})"));
}

TEST_F(Write, OtherArgumentIsIgnored) {
  for (const int ignored : {-1, 0, 1, std::numeric_limits<int>::max()}) {
    EXPECT_EQ(client->Write("/r#/a", ignored, IntegerValue(1)), 0);
  }
}

TEST_F(Write, TextIsCopied) {
  char text[] = "first";
  WriteItem(TextValue(text));
  text[0] = 'X';
  EXPECT_EQ(Item("/r#/a").value.text(), "first");
  EXPECT_THAT(Sent(), ElementsAre(R"({"a":"first"})"));
}

}  // namespace
}  // namespace ZoTest
