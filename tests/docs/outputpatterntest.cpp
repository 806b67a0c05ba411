#include <gtest/gtest.h>

#include "tests/docs/outputpattern.h"

namespace {

using ZoTest::LineMatches;
using ZoTest::OutputMatches;

TEST(OutputPattern, LineWithoutGapMustBeEqual) {
  EXPECT_TRUE(LineMatches("a b", "a b"));
  EXPECT_FALSE(LineMatches("a b", "a b "));
  EXPECT_FALSE(LineMatches("", "a"));
}

TEST(OutputPattern, GapWithinALineStandsForAnyText) {
  EXPECT_TRUE(LineMatches("…Z  x = 1", "2026Z  x = 1"));
  EXPECT_TRUE(LineMatches("a…c…", "abbbc"));
  EXPECT_FALSE(LineMatches("a…c", "abd"));
  EXPECT_FALSE(LineMatches("…b", "bc"));
}

TEST(OutputPattern, GapLineStandsForAnyLines) {
  EXPECT_TRUE(OutputMatches({"a", "…", "d"}, {"a", "b", "c", "d"}));
  EXPECT_TRUE(OutputMatches({"a", "…", "d"}, {"a", "d"}));
  EXPECT_FALSE(OutputMatches({"a", "…", "d"}, {"a", "b"}));
  EXPECT_FALSE(OutputMatches({"a"}, {"a", "b"}));
  EXPECT_FALSE(OutputMatches({"a", "b"}, {"a"}));
}

}  // namespace
