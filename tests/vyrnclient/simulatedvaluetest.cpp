// How simulated values begin and change.
#include "zoiohandler/vyrnclient/simulatedvalue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

namespace ZoTest {
namespace {

using ZoIO::NextSimulatedValue;

ZoJson Next(const ZoJson& old) {
  return NextSimulatedValue(old, "/r#/name");
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

TEST(SimulatedValue, IntegerCountsTo100AndBackTo0) {
  ZoJson value = ZoJson::Of(0);
  for (int i = 1; i <= 100; ++i) {
    value = Next(value);
    ASSERT_EQ(value, ZoJson::Of(i));
    ASSERT_TRUE(value.IsInteger());
  }
  EXPECT_EQ(Next(value), ZoJson::Of(0));
  EXPECT_EQ(Next(ZoJson::Of(0)), ZoJson::Of(1));
}

TEST(SimulatedValue, IntegerAbove100BecomesZero) {
  EXPECT_EQ(Next(ZoJson::Of(100)), ZoJson::Of(0));
  EXPECT_EQ(Next(ZoJson::Of(101)), ZoJson::Of(0));
  EXPECT_EQ(Next(ZoJson::Of(2147483647)), ZoJson::Of(0));
}

TEST(SimulatedValue, NegativeIntegerCountsUp) {
  EXPECT_EQ(Next(ZoJson::Of(-5)), ZoJson::Of(-4));
  EXPECT_EQ(Next(ZoJson::Of(-1)), ZoJson::Of(0));
}

TEST(SimulatedValue, IntegerBeyond32BitsIsReadAsTheNearestThatFits) {
  EXPECT_EQ(Next(ZoJson::Of(9'000'000'000LL)), ZoJson::Of(0));
  EXPECT_EQ(Next(ZoJson::Of(~0ULL)), ZoJson::Of(0));
  EXPECT_EQ(Next(ZoJson::Of(-9'000'000'000LL)), ZoJson::Of(-2147483647));
}

TEST(SimulatedValue, FloatGrowsByATenthOfAFloatReadValue) {
  EXPECT_EQ(Next(ZoJson::Of(0.0)), ZoJson::Of(0.1));
  EXPECT_EQ(Next(ZoJson::Of(0.1)), ZoJson::Of(static_cast<double>(0.1F) + 0.1));
  EXPECT_EQ(Next(ZoJson::Of(0.5)), ZoJson::Of(0.6));
  EXPECT_TRUE(Next(ZoJson::Of(-1.0)).IsFloat());
}

TEST(SimulatedValue, FloatThatPasses100BecomesTheInteger0) {
  ZoJson value = ZoJson::Of(0.0);
  int steps = 0;
  while (value.IsFloat() && steps < 2000) {
    ASSERT_LT(value.Get<double>(), 101.0);
    value = Next(value);
    ++steps;
  }
  // 101 itself is the first value that reads as an integer above 100.
  EXPECT_NEAR(steps, 1010, 1);
  EXPECT_TRUE(value.IsInteger());
  EXPECT_EQ(value, ZoJson::Of(0));
  EXPECT_EQ(Next(value), ZoJson::Of(1));
}

TEST(SimulatedValue, FloatIsJudgedByItsWholePart) {
  EXPECT_TRUE(Next(ZoJson::Of(100.5)).IsFloat());
  EXPECT_TRUE(Next(ZoJson::Of(100.75)).IsFloat());
  EXPECT_EQ(Next(ZoJson::Of(100.9375)), ZoJson::Of(0));
  EXPECT_EQ(Next(ZoJson::Of(1e30)), ZoJson::Of(0));
}

TEST(SimulatedValue, BooleanAlternates) {
  EXPECT_EQ(Next(ZoJson::Of(false)), ZoJson::Of(true));
  EXPECT_EQ(Next(ZoJson::Of(true)), ZoJson::Of(false));
}

TEST(SimulatedValue, StringKeepsItsLettersAndChangesTheirCase) {
  ZoJson value = ZoJson::Of("Hello World 123 \xc3\xa4");
  bool upper = false;
  bool lower = false;
  for (int i = 0; i < 100; ++i) {
    value = Next(value);
    const auto text = value.Get<std::string>();
    ASSERT_EQ(Lower(text), "hello world 123 \xc3\xa4");
    upper = upper || text[0] == 'H';
    lower = lower || text[0] == 'h';
  }
  EXPECT_TRUE(upper);
  EXPECT_TRUE(lower);
}

TEST(SimulatedValue, EmptyStringStaysEmpty) {
  EXPECT_EQ(Next(ZoJson::Of("")), ZoJson::Of(""));
}

TEST(SimulatedValue, NewItemBeginsByItsName) {
  const ZoJson fresh;
  EXPECT_EQ(NextSimulatedValue(fresh, "/r#/int"), ZoJson::Of(0));
  EXPECT_EQ(NextSimulatedValue(fresh, "/r#/float"), ZoJson::Of(0.0));
  EXPECT_TRUE(NextSimulatedValue(fresh, "/r#/float").IsFloat());
  EXPECT_EQ(NextSimulatedValue(fresh, "/r#/bool"), ZoJson::Of(false));
  EXPECT_EQ(NextSimulatedValue(fresh, "/r#/string"), ZoJson::Of("Hello World"));
  EXPECT_EQ(NextSimulatedValue(fresh, "/r#/other"), ZoJson::Of(0));
  EXPECT_EQ(NextSimulatedValue(fresh, ""), ZoJson::Of(0));
}

TEST(SimulatedValue, UintBeginsAsTheSigned0) {
  const ZoJson first = NextSimulatedValue(ZoJson(), "/r#/uint");
  EXPECT_EQ(first, ZoJson::Of(0));
  EXPECT_EQ(first.GetKind(), ZoJson::Kind::Integer);
}

TEST(SimulatedValue, EarlierWordOfTheListWins) {
  const ZoJson fresh;
  EXPECT_EQ(NextSimulatedValue(fresh, "string bool float int"), ZoJson::Of(0));
  EXPECT_EQ(NextSimulatedValue(fresh, "string bool float"), ZoJson::Of(0.0));
  EXPECT_EQ(NextSimulatedValue(fresh, "string bool"), ZoJson::Of(false));
}

TEST(SimulatedValue, WordMayStandAnywhereInTheNameAndCountsLetterByLetter) {
  const ZoJson fresh;
  EXPECT_EQ(NextSimulatedValue(fresh, "/printer#/x"), ZoJson::Of(0));
  EXPECT_EQ(NextSimulatedValue(fresh, "/myfloats#/x"), ZoJson::Of(0.0));
  EXPECT_EQ(NextSimulatedValue(fresh, "/r#/String"), ZoJson::Of(0));
  EXPECT_EQ(NextSimulatedValue(fresh, "/r#/FLOAT"), ZoJson::Of(0));
}

TEST(SimulatedValue, ContainersBeginAnewLikeNewItems) {
  EXPECT_EQ(NextSimulatedValue(ZoJson("{}"), "/r#/float"), ZoJson::Of(0.0));
  EXPECT_EQ(NextSimulatedValue(ZoJson("[1]"), "/r#/string"), ZoJson::Of("Hello World"));
}

}  // namespace
}  // namespace ZoTest
