#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/zohost/hosttest.h"

namespace {

TEST(MinimalHost, PrintsFiveUpdatesOfTwoItems) {
  const Result result = RunProgram({MINIMAL_HOST, PLUGIN});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  const auto lines = SplitLines(result.out);
  ASSERT_EQ(lines.size(), 5u) << result.out;
  std::set<std::string> items;
  for (const std::string& line : lines) {
    EXPECT_THAT(line, testing::MatchesRegex("/demo#/(int|float) = [0-9.]+"));
    items.insert(line.substr(0, line.find(' ')));
  }
  EXPECT_EQ(items, (std::set<std::string>{"/demo#/int", "/demo#/float"}));
}

TEST(MinimalHost, TakesOtherItems) {
  const Result result = RunProgram({MINIMAL_HOST, PLUGIN, "simulator", "/x#/bool", "/x#/string"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, testing::HasSubstr("/x#/bool = "));
  EXPECT_THAT(result.out, testing::HasSubstr("/x#/string = "));
}

TEST(MinimalHost, SaysWhatKeepsItFromStarting) {
  const Result missing = RunProgram({MINIMAL_HOST, "/nowhere/plugin.so"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, testing::HasSubstr("/nowhere/plugin.so"));
  const Result library = RunProgram({MINIMAL_HOST, "libdl.so.2"});
  EXPECT_EQ(library.status, 1);
  EXPECT_EQ(library.err, "This library is no IO-handler plug-in.\n");
}

}  // namespace
