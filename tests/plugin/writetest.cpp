// WriteItem on the simulator: what was written shows one step further on after the simulator's next pass.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <strings.h>

#include <cmath>
#include <limits>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

class Writing : public PluginTest {
 protected:
  Writing() : handle(Create()) {}

  // Writes to an item that is subscribed and has had its first values.
  void WriteSubscribed(const std::string& item, const ioDataValue& value) {
    Subscribe(handle, {item});
    ASSERT_TRUE(recorder.WaitForEntry(
        [&item](const Entry& entry) { return entry.IsValue(item) && entry.value.type != enumtype_invalid; }));
    EXPECT_EQ(Write(handle, item, value), 0);
  }

  void* handle;
};

TEST_F(Writing, AnIntegerIsCountedOn) {
  WriteSubscribed("res#/int", IntegerValue(41));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 42)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 43)));
}

TEST_F(Writing, AHundredIsTheLastBeforeZero) {
  WriteSubscribed("res#/int", IntegerValue(99));
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 100)));
  recorder.Clear();
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 1)));
  const auto steps = StepsOf(recorder.Values("res#/int"));
  for (const Step& step : steps) {
    EXPECT_LE(step.entry.value.value.int64, 100);
  }
}

TEST_F(Writing, ANegativeIntegerCountsUp) {
  WriteSubscribed("res#/int", IntegerValue(-5));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", -4)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", -3)));
}

TEST_F(Writing, IntegersBeyondThirtyTwoBitsSaturate) {
  Subscribe(handle, {"a#/int", "b#/int", "c#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("a#/int", 2)));
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("b#/int", 2)));
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("c#/int", 2)));
  recorder.Clear();
  EXPECT_EQ(Write(handle, "a#/int", IntegerValue(std::numeric_limits<std::int64_t>::max())), 0);
  EXPECT_EQ(Write(handle, "b#/int", IntegerValue(std::numeric_limits<std::int64_t>::min())), 0);
  EXPECT_EQ(Write(handle, "c#/int", UnsignedValue(std::numeric_limits<std::uint64_t>::max())), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("a#/int", 0)));
  EXPECT_TRUE(
      recorder.WaitForEntry(IsInteger("b#/int", std::int64_t{std::numeric_limits<std::int32_t>::min()} + 1)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("c#/int", 0)));
}

TEST_F(Writing, AnUnsignedThatFitsIsAnInteger) {
  WriteSubscribed("res#/uint", UnsignedValue(7));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/uint", 8)));
  EXPECT_EQ(recorder.Count(IsOfType("res#/uint", enumtype_uint64)), 0u);
}

TEST_F(Writing, AFloatGrowsByATenthInFloatPrecision) {
  WriteSubscribed("res#/float", FloatValue(41.5));
  const double expected = static_cast<double>(static_cast<float>(41.5 + 0.1));
  EXPECT_TRUE(recorder.WaitForEntry([expected](const Entry& entry) {
    return entry.IsValue("res#/float") && entry.value.type == enumtype_double &&
           entry.value.value.float64 == expected;
  }));
}

TEST_F(Writing, AWholeFloatStaysAFloat) {
  WriteSubscribed("res#/int", FloatValue(5.0));
  const double expected = static_cast<double>(static_cast<float>(5.0 + 0.1));
  EXPECT_TRUE(recorder.WaitForEntry([expected](const Entry& entry) {
    return entry.IsValue("res#/int") && entry.value.type == enumtype_double &&
           entry.value.value.float64 == expected;
  }));
}

TEST_F(Writing, AFloatAboveAHundredWrapsToTheIntegerZero) {
  WriteSubscribed("res#/float", FloatValue(100.95));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/float", 0)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/float", 1)));
}

// 100.8 + 0.1 reads as the integer 100, which is not greater than 100.
TEST_F(Writing, AFloatJustAboveAHundredDoesNotWrapYet) {
  WriteSubscribed("res#/float", FloatValue(100.8));
  const double expected =
      static_cast<double>(static_cast<float>(static_cast<double>(static_cast<float>(100.8)) + 0.1));
  EXPECT_TRUE(recorder.WaitForEntry([expected](const Entry& entry) {
    return entry.IsValue("res#/float") && entry.value.type == enumtype_double &&
           entry.value.value.float64 == expected;
  }));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/float", 0)));
}

TEST_F(Writing, OddFloatsDisturbNothing) {
  Subscribe(handle, {"nan#/float", "inf#/float", "minusinf#/float", "huge#/float", "other#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsOfType("nan#/float", enumtype_double)));
  EXPECT_EQ(Write(handle, "nan#/float", FloatValue(std::nan(""))), 0);
  EXPECT_EQ(Write(handle, "inf#/float", FloatValue(std::numeric_limits<double>::infinity())), 0);
  EXPECT_EQ(Write(handle, "minusinf#/float", FloatValue(-std::numeric_limits<double>::infinity())), 0);
  EXPECT_EQ(Write(handle, "huge#/float", FloatValue(1e300)), 0);
  EXPECT_TRUE(recorder.WaitForEntry([](const Entry& entry) {
    return entry.IsValue("nan#/float") && entry.value.type == enumtype_double &&
           std::isnan(entry.value.value.float64);
  }));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("inf#/float", 0)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("huge#/float", 0)));
  const auto passes = recorder.Values("other#/int").back().value.value.int64;
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("other#/int", passes + 2)));
}

TEST_F(Writing, ATextKeepsItsLetters) {
  WriteSubscribed("res#/string", TextValue("Guten Tag, \xc3\xa4\xc3\xb6 \"quoted\" \\ / 1"));
  EXPECT_TRUE(recorder.WaitForEntry([](const Entry& entry) {
    return entry.IsValue("res#/string") && entry.value.type == enumtype_string &&
           ::strcasecmp(entry.valueText.c_str(), "Guten Tag, \xc3\xa4\xc3\xb6 \"quoted\" \\ / 1") == 0;
  }));
}

TEST_F(Writing, AnEmptyTextStaysEmpty) {
  WriteSubscribed("res#/string", TextValue(""));
  EXPECT_TRUE(recorder.WaitForEntry(IsText("res#/string", "")));
}

TEST_F(Writing, ATextMayChangeTheKindOfAnItemAndAnIntegerMayChangeItBack) {
  WriteSubscribed("res#/int", TextValue("1234"));
  ASSERT_TRUE(recorder.WaitForEntry(IsText("res#/int", "1234")));
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, {"res#/int"}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(0));
  EXPECT_EQ(Write(handle, "res#/int", IntegerValue(41)), 0);
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 42)));
  // The number went into the variant that held the text, whose kind stays.
  EXPECT_EQ(Subscribe(handle, {"res#/int"}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(0));
}

// The whole field counts, not its low byte. An integer item tells the difference: it is a boolean from then
// on, and its first value is the negation of what was written.
TEST_F(Writing, ABooleanIsTrueWhenAnyByteOfTheFieldIsSet) {
  struct Case {
    std::string item;
    std::uint64_t written;
    int first;
  };
  const Case cases[] = {{"false#/int", 0, 1},
                        {"true#/int", 1, 0},
                        {"lowbyteclear#/int", 0xff00, 0},
                        {"highbit#/int", std::uint64_t{1} << 63, 0},
                        {"lowbyteset#/int", 0x80, 0}};
  for (const Case& one : cases) {
    Subscribe(handle, {one.item});
    ASSERT_TRUE(recorder.WaitForEntry(IsInteger(one.item, 0)));
  }
  for (const Case& one : cases) {
    EXPECT_EQ(Write(handle, one.item, BooleanValue(one.written)), 0);
  }
  for (const Case& one : cases) {
    ASSERT_TRUE(recorder.WaitForEntry(IsOfType(one.item, enumtype_bool)));
    const auto values = recorder.Values(one.item);
    const auto found = std::find_if(values.begin(), values.end(), IsOfType(one.item, enumtype_bool));
    EXPECT_EQ(static_cast<int>(found->value.value.boolean), one.first) << one.item;
  }
}

TEST_F(Writing, UnsupportedTypesAreNotSent) {
  Subscribe(handle, {"res#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 1)));
  for (std::uint32_t type : {5u, 6u, 100u, 0x80000000u, 0xffffffffu}) {
    ioDataValue value = IntegerValue(41);
    value.type = type;
    recorder.Clear();
    EXPECT_EQ(Write(handle, "res#/int", value), 1) << type;
    EXPECT_EQ(recorder.CountMessages("Writing to item res#/int"), 1u) << type;
    EXPECT_EQ(recorder.Logs().size(), 1u) << type;
  }
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 3)));
  EXPECT_EQ(recorder.Count(IsInteger("res#/int", 42)), 0u);
}

TEST_F(Writing, StatusPaddingAndReservedWordsDoNotMatter) {
  ioDataValue value = IntegerValue(41);
  value.padding = 0xffffffffu;
  value.status = -1;
  value.reserved = 0xffffffffu;
  WriteSubscribed("res#/int", value);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 42)));
}

// The body of a write is the whole resource with the one item in it. Of two items of one resource either may miss a value,
// as only the first document of a millisecond is kept.
TEST_F(Writing, NeighboursOfAWrittenItemStartOver) {
  Subscribe(handle, {"res#/a/int", "res#/b/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsIntegerIn("res#/a/int", 2, 9)));
  ASSERT_TRUE(recorder.WaitForEntry(IsIntegerIn("res#/b/int", 2, 9)));
  recorder.Clear();
  EXPECT_EQ(Write(handle, "res#/a/int", IntegerValue(41)), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsIntegerIn("res#/a/int", 42, 49)));
  EXPECT_TRUE(recorder.WaitForEntry(IsIntegerIn("res#/b/int", 0, 1)));
}

TEST_F(Writing, AnEmptyFragmentWritesTheWholeResource) {
  WriteSubscribed("int#", IntegerValue(41));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("int#", 42)));
}

TEST_F(Writing, NumericSegmentsMakeMembers) {
  WriteSubscribed("res#/list/0", IntegerValue(41));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/list/0", 42)));
}

TEST_F(Writing, PercentTwentyIsASpaceInTheFragment) {
  WriteSubscribed("res#/a%20int", IntegerValue(41));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/a%20int", 42)));
}

TEST_F(Writing, ALeadingSlashMayBeMissing) {
  WriteSubscribed("res#int/x", IntegerValue(41));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#int/x", 42)));
}

// Where the template and the pointer of a name differ, or the name has no template, the value goes to another
// place than it is read from, and the item starts over.
class MisdirectedWrite : public Writing, public ::testing::WithParamInterface<const char*> {};

TEST_P(MisdirectedWrite, StartsTheItemOver) {
  const std::string item = GetParam();
  Subscribe(handle, {item});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger(item, 2)));
  EXPECT_EQ(Write(handle, item, IntegerValue(41)), 0);
  const std::size_t zerosBefore = recorder.Count(IsInteger(item, 0));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger(item, 0), zerosBefore + 1));
  EXPECT_EQ(recorder.Count(IsInteger(item, 42)), 0u);
}

INSTANTIATE_TEST_SUITE_P(Names, MisdirectedWrite,
                         ::testing::Values("int", "/res/int", "res#/int b", "res#//int//b/", "res#/int/"));

}  // namespace
}  // namespace ZoTest
