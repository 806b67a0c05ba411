// Values of every kind, written and read over the wire.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "tests/wire/emulator.h"
#include "tests/wire/wiretest.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

class Values : public WireTest {
 protected:
  static constexpr const char* Resources = R"({"resources": {
    "/v": {"writable": true, "integers": ["/whole"], "content": {
      "number": 0, "whole": 7, "text": "old", "flag": false, "nothing": null, "list": [1, 2, 3],
      "object": {"inner": {"deep": 1}}, "a b": 1,
      "max": 9223372036854775807, "beyond": 9223372036854775808, "top": 18446744073709551615,
      "min": -9223372036854775808, "tenth": 0.1, "empty": "", "umlaut": "\u00e4\ud83d\ude00", "yes": true}},
    "/fixed": {"content": {"v": 1}},
    "/set": {"writable": true, "content": {"speed": 10}},
    "/drive": {"rate_hz": 50, "content": {"speed": 0.0}, "waves":
      {"/speed": {"wave": "follow", "source": "/set", "at": "/speed", "lag_s": 0.01, "digits": 1}}}}})";

  // What reading delivers after writing.
  std::string Written(const std::string& name, const ioDataValue& value) {
    EXPECT_EQ(Write(handle, name, value), 0) << name;
    return ValueOf(handle, name);
  }

  std::string AtSensor(const std::string& member) {
    return ZoJson::ParseString(sensor.Content("/v")).At(member).ToString();
  }

  Emulator sensor{Resources};
  void* handle = Connect(sensor.Port());
};

TEST_F(Values, EveryKindIsRead) {
  const std::pair<const char*, const char*> expected[] = {{"/v#/max", "2:9223372036854775807"},
                                                          {"/v#/beyond", "4:9223372036854775808"},
                                                          {"/v#/top", "4:18446744073709551615"},
                                                          {"/v#/min", "2:-9223372036854775808"},
                                                          {"/v#/tenth", "3:0.10000000149011612"},
                                                          {"/v#/empty", "0:"},
                                                          {"/v#/umlaut", "0:\u00e4\U0001F600"},
                                                          {"/v#/yes", "1:1"},
                                                          {"/v#/flag", "1:0"},
                                                          {"/v#/list/1", "2:2"},
                                                          {"/v#/object/inner/deep", "2:1"},
                                                          {"/v#/a%20b", "2:1"},
                                                          {"/v#/nothing", "refused"},
                                                          {"/v#/none", "refused"},
                                                          {"/v#/list/3", "refused"},
                                                          {"/none#/v", "refused"}};
  for (const auto& [name, value] : expected) {
    EXPECT_EQ(ValueOf(handle, name), value) << name;
  }
}

TEST_F(Values, NumbersAreWrittenWithoutLoss) {
  const std::string name = "/v#/number";
  for (const std::int64_t number :
       {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min(), std::int64_t{-1},
        std::int64_t{0}}) {
    EXPECT_EQ(Written(name, IntegerValue(number)), "2:" + std::to_string(number));
    EXPECT_EQ(AtSensor("number"), std::to_string(number));
  }
  EXPECT_EQ(Written(name, UnsignedValue(std::uint64_t{1} << 63)), "4:9223372036854775808");
  EXPECT_EQ(AtSensor("number"), "9223372036854775808");
  EXPECT_EQ(Written(name, UnsignedValue(std::numeric_limits<std::uint64_t>::max())),
            "4:18446744073709551615");
  EXPECT_EQ(AtSensor("number"), "18446744073709551615");
  EXPECT_EQ(Written(name, UnsignedValue(5)), "2:5");  // whatever fits is a signed one
  EXPECT_EQ(Written(name, FloatValue(0.1)), "3:0.10000000149011612");
  EXPECT_EQ(AtSensor("number"), "0.1");  // the sensor has all of it
  EXPECT_EQ(Written(name, FloatValue(-2.5)), "3:-2.5");
  EXPECT_EQ(Written(name, FloatValue(3.0)), "3:3");
}

TEST_F(Values, TextsAreWrittenAsTheyAre) {
  const std::string name = "/v#/text";
  const std::string longText(100000, 'x');
  for (const std::string& text : {std::string(), longText, std::string("\u00e4\u20ac\U0001F600"),
                                  std::string("quote \" backslash \\ line\n tab\t slash / \x01")}) {
    EXPECT_EQ(Written(name, TextValue(text.c_str())), "0:" + text);
    EXPECT_EQ(AtSensor("text"), ZoJson::Of(text).ToString());
  }
}

TEST_F(Values, BooleansAreWritten) {
  EXPECT_EQ(Written("/v#/flag", BooleanValue(1)), "1:1");
  EXPECT_EQ(AtSensor("flag"), "true");
  EXPECT_EQ(Written("/v#/flag", BooleanValue(0)), "1:0");
  EXPECT_EQ(Written("/v#/flag", BooleanValue(0x100)), "1:1");  // the whole field counts
}

TEST_F(Values, AnElementIsWrittenAndItsNeighboursStay) {
  EXPECT_EQ(Written("/v#/list/1", IntegerValue(20)), "2:20");
  EXPECT_EQ(AtSensor("list"), "[1,20,3]");
  EXPECT_EQ(Written("/v#/list/0", FloatValue(0.5)), "3:0.5");
  EXPECT_EQ(AtSensor("list"), "[0.5,20,3]");
  EXPECT_EQ(Written("/v#/object/inner/deep", IntegerValue(9)), "2:9");
  EXPECT_EQ(AtSensor("object"), R"({"inner":{"deep":9}})");
  EXPECT_EQ(Written("/v#/a%20b", IntegerValue(8)), "2:8");
}

TEST_F(Values, ASetPointMovesWhatFollowsIt) {
  EXPECT_EQ(Subscribe(handle, {"/drive#/speed"}), 0);
  EXPECT_EQ(Written("/set#/speed", IntegerValue(250)), "2:250");
  EXPECT_TRUE(recorder.WaitForEntry([](const Entry& entry) {
    return entry.IsValue("/drive#/speed") && entry.value.type == enumtype_double &&
           entry.value.value.float64 == 250.0;
  }));
}

TEST_F(Values, AWriteThatTheSensorDeniesLeavesThePreviousValue) {
  const std::pair<const char*, ioDataValue> denied[] = {{"/v#/number", TextValue("text")},
                                                        {"/v#/whole", FloatValue(0.5)},
                                                        {"/v#/flag", IntegerValue(1)},
                                                        {"/fixed#/v", IntegerValue(5)}};
  for (const auto& [name, value] : denied) {
    const std::string before = ValueOf(handle, name);
    EXPECT_EQ(Written(name, value), before) << name;
  }
  // The item itself keeps its kind, too.
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, {"/v#/number"}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(2));
}

TEST_F(Values, WhatCannotBeWrittenIsNotSent) {
  ioDataValue value = IntegerValue(1);
  value.type = 5;
  EXPECT_EQ(Write(handle, "/v#/number", value), 1);
  EXPECT_EQ(Write(handle, "/v#/none", IntegerValue(1)), 1);
  EXPECT_EQ(AtSensor("number"), "0");
}

TEST_F(Values, ATextThatIsNoUtf8IsRefusedWithoutCostingTheSession) {
  EXPECT_EQ(ValueOf(handle, "/v#/text"), "0:old");
  EXPECT_EQ(Write(handle, "/v#/text", TextValue("\xff\xfe")), 0);
  EXPECT_EQ(ValueOf(handle, "/v#/text"), "0:old");
  EXPECT_TRUE(IsConnected(handle));
}

TEST_F(Values, AResourceThatIsDeletedIsInvalid) {
  sensor.Put("/mine", R"({"v":1})");
  EXPECT_EQ(ValueOf(handle, "/mine#/v"), "2:1");
  EXPECT_EQ(Call(handle, "Delete", R"({"uri":"/mine"})"), 0);
  EXPECT_EQ(ValueOf(handle, "/mine#/v"), "5:INVALID");
}

}  // namespace
}  // namespace ZoTest
