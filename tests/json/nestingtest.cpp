// The nesting of a text, without parsing it.
#include "zovyrnsdk/json/zojsonnesting.h"

#include <gtest/gtest.h>

#include <string>

#include "zovyrnsdk/json/zojson.h"

namespace {

TEST(JsonNesting, ScalarsNestInNothing) {
  for (const char* text : {"", "1", "null", R"("text")"}) {
    EXPECT_EQ(JsonNesting(text), 0u) << text;
  }
}

TEST(JsonNesting, DeepestPlaceCounts) {
  EXPECT_EQ(JsonNesting("{}"), 1u);
  EXPECT_EQ(JsonNesting("[[],[[]]]"), 3u);
  EXPECT_EQ(JsonNesting(R"({"a":[{}],"b":[]})"), 3u);
  EXPECT_EQ(JsonNesting("[[[]]] [[]]"), 3u);
}

TEST(JsonNesting, BracketsOfStringsDoNotCount) {
  EXPECT_EQ(JsonNesting(R"({"[[[[":"\"[["})"), 1u);
  EXPECT_EQ(JsonNesting(R"(["\\",[1]])"), 2u);
  EXPECT_EQ(JsonNesting(R"(["]",[1]])"), 2u);
}

TEST(JsonNesting, BracketThatClosesNothingHidesNoneThatOpens) {
  EXPECT_EQ(JsonNesting("]]]"), 0u);
  EXPECT_EQ(JsonNesting("]]][["), 2u);
  EXPECT_EQ(JsonNesting(R"(,"payload":[[]]})"), 2u);
}

TEST(JsonNesting, TextThatBreaksOffIsCountedAsFarAsItGoes) {
  EXPECT_EQ(JsonNesting("[[{"), 3u);
  EXPECT_EQ(JsonNesting("[\"[["), 1u);
  EXPECT_EQ(JsonNesting("[\"\\"), 1u);
}

// Whoever asks wants to know whether the parser would refuse a text for its depth.
TEST(JsonNesting, CountsAsTheParserDoes) {
  const std::string deepest = std::string(256, '[') + std::string(256, ']');
  EXPECT_EQ(JsonNesting(deepest), 256u);
  EXPECT_NO_THROW(ZoJson::ParseString(deepest));
  const std::string tooDeep = "[" + deepest + "]";
  EXPECT_EQ(JsonNesting(tooDeep), 257u);
  EXPECT_THROW(ZoJson::ParseString(tooDeep), ZoJsonError);
}

}  // namespace
