#include "tests/soak/judge.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ZoSoak {
namespace {

const Item& ItemOf(ItemKind kind, int number = 0) {
  for (const Items* items : {&SensorItems(), &SimulatorItems()}) {
    const auto found = std::find_if(items->begin(), items->end(), [&](const Item& item) {
      return item.kind == kind && item.number == number;
    });
    if (found != items->end()) {
      return *found;
    }
  }
  throw std::logic_error("no such item");
}

ioDataValue Integer(std::int64_t number) {
  ioDataValue value{};
  value.type = enumtype_int64;
  value.value.int64 = number;
  return value;
}

ioDataValue TextOf(const char* text, enumtype type = enumtype_string) {
  ioDataValue value{};
  value.type = type;
  value.value.text = text;
  return value;
}

class Judging : public testing::Test {
 protected:
  bool IsPlausible(ItemKind kind, const ioDataValue& value, int number = 0) const {
    return Implausible(ItemOf(kind, number), value, known).empty();
  }

  // Sensor 1 was started three times, the last time ten seconds ago.
  Knowledge known{1, 3, 10, 100, 50};
};

TEST_F(Judging, CounterMustBeOfItsSensor) {
  EXPECT_TRUE(IsPlausible(ItemKind::Counter, Integer(CounterValue(1, 3, 20))));
  EXPECT_FALSE(IsPlausible(ItemKind::Counter, Integer(CounterValue(0, 3, 20))));
  EXPECT_FALSE(IsPlausible(ItemKind::Counter, Integer(CounterValue(2, 3, 20))));
  EXPECT_FALSE(IsPlausible(ItemKind::Counter, Integer(0)));
  EXPECT_FALSE(IsPlausible(ItemKind::Counter, Integer(-1)));
}

TEST_F(Judging, CounterMustBeOfAStartThatHasBeen) {
  EXPECT_TRUE(IsPlausible(ItemKind::Counter, Integer(CounterValue(1, 1, 20))));
  EXPECT_FALSE(IsPlausible(ItemKind::Counter, Integer(CounterValue(1, 0, 20))));
  EXPECT_FALSE(IsPlausible(ItemKind::Counter, Integer(CounterValue(1, 4, 20))));
}

TEST_F(Judging, CounterCannotBeAheadOfItsSensor) {
  const double rate = ItemOf(ItemKind::Counter).rate;
  const auto possible = static_cast<std::int64_t>(10 * rate);
  const auto impossible = static_cast<std::int64_t>(13 * rate);
  EXPECT_TRUE(IsPlausible(ItemKind::Counter, Integer(CounterValue(1, 3, possible))));
  EXPECT_FALSE(IsPlausible(ItemKind::Counter, Integer(CounterValue(1, 3, impossible))));
  EXPECT_TRUE(IsPlausible(ItemKind::Counter, Integer(CounterValue(1, 2, impossible)))) << "it ran longer";
}

TEST_F(Judging, CounterMustHaveItsType) {
  ioDataValue value = Integer(CounterValue(1, 3, 20));
  value.type = enumtype_uint64;
  EXPECT_FALSE(IsPlausible(ItemKind::Counter, value));
  EXPECT_FALSE(IsPlausible(ItemKind::BigCounter, value));
  value.value.uint64 += kBigBase;
  EXPECT_TRUE(IsPlausible(ItemKind::BigCounter, value));
}

TEST_F(Judging, WrittenValueMustHaveBeenWrittenThere) {
  EXPECT_TRUE(IsPlausible(ItemKind::Set, Integer(0)));
  EXPECT_TRUE(IsPlausible(ItemKind::Set, Integer(WrittenValue(1, 2, 50)), 2));
  EXPECT_FALSE(IsPlausible(ItemKind::Set, Integer(WrittenValue(1, 2, 51)), 2)) << "not given out yet";
  EXPECT_FALSE(IsPlausible(ItemKind::Set, Integer(WrittenValue(1, 2, 0)), 2));
  EXPECT_FALSE(IsPlausible(ItemKind::Set, Integer(WrittenValue(1, 3, 50)), 2)) << "another item's";
  EXPECT_FALSE(IsPlausible(ItemKind::Set, Integer(WrittenValue(0, 2, 50)), 2)) << "another sensor's";
  EXPECT_FALSE(IsPlausible(ItemKind::Made, Integer(0)));
  EXPECT_TRUE(IsPlausible(ItemKind::Made, Integer(WrittenValue(1, kMostThreads + 2, 50)), 2));
}

TEST_F(Judging, TextMustBeOneOfTheSensors) {
  EXPECT_TRUE(IsPlausible(ItemKind::Text, TextOf(TextValue(1, 3, 2).c_str())));
  EXPECT_TRUE(IsPlausible(ItemKind::Text, TextOf(TextValue(1, 1, 0).c_str())));
  EXPECT_FALSE(IsPlausible(ItemKind::Text, TextOf(TextValue(1, 4, 0).c_str())));
  EXPECT_FALSE(IsPlausible(ItemKind::Text, TextOf(TextValue(2, 3, 0).c_str())));
  EXPECT_FALSE(IsPlausible(ItemKind::Text, TextOf(TextValue(1, 3, 0).substr(1).c_str())));
  EXPECT_TRUE(IsPlausible(ItemKind::SimulatedText, TextOf("hEllo WORLD")));
  EXPECT_FALSE(IsPlausible(ItemKind::SimulatedText, TextOf("hello")));
}

TEST_F(Judging, NoNameThatLeadsNowhereMayHaveAValue) {
  EXPECT_FALSE(IsPlausible(ItemKind::Odd, Integer(0)));
  EXPECT_TRUE(IsPlausible(ItemKind::Odd, TextOf("INVALID", enumtype_invalid)));
}

TEST(Records, AreJudgedFieldByField) {
  const ioDataValue good = Integer(1);
  EXPECT_EQ(Malformed(&good), "");
  EXPECT_NE(Malformed(nullptr), "");
  ioDataValue bad = good;
  bad.type = 6;
  EXPECT_NE(Malformed(&bad), "");
  bad = good;
  bad.status = 1;
  EXPECT_NE(Malformed(&bad), "");
  bad = good;
  bad.reserved = 1;
  EXPECT_NE(Malformed(&bad), "");
  bad = good;
  bad.type = enumtype_bool;
  bad.value.uint64 = 2;
  EXPECT_NE(Malformed(&bad), "");
  bad = TextOf(nullptr);
  EXPECT_NE(Malformed(&bad), "");
  bad = TextOf("invalid", enumtype_invalid);
  EXPECT_NE(Malformed(&bad), "");
}

TEST(Order, AcceptsWhatRisesOrStays) {
  Order order;
  EXPECT_TRUE(order.Accept(5));
  EXPECT_TRUE(order.Accept(5));
  EXPECT_TRUE(order.Accept(7));
}

TEST(Order, RefusesAFallAndGoesOnFromThere) {
  Order order;
  order.Accept(7);
  EXPECT_FALSE(order.Accept(6));
  EXPECT_EQ(order.Before(), 7u);
  EXPECT_TRUE(order.Accept(6));
  EXPECT_TRUE(order.Accept(7));
  EXPECT_FALSE(order.Accept(0));
}

TEST(Order, RisesOverAllStartsOfASensor) {
  EXPECT_LT(CounterValue(0, 1, 1'000'000'000), CounterValue(0, 2, 0));
  EXPECT_LT(CounterValue(0, 99'999, 1'000'000'000), CounterValue(1, 1, 0));
}

}  // namespace
}  // namespace ZoSoak
