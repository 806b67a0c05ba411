// ./run and ./check, as far as they can be tried without building anew.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "tests/docs/outputpattern.h"
#include "tests/docs/shell.h"

namespace {

using ZoTest::ChildResult;
using ZoTest::RunInShell;

testing::AssertionResult Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos ? testing::AssertionSuccess()
                                              : testing::AssertionFailure()
                                                    << "\"" << part << "\" is not in\n"
                                                    << text;
}

TEST(Scripts, HelpIsPrintedFromAnyFolder) {
  for (const std::string script : {"run", "check"}) {
    const ChildResult help = RunInShell("root=$PWD; cd / && \"$root/" + script + "\" --help");
    EXPECT_TRUE(help.Succeeded()) << help.Describe();
    EXPECT_TRUE(Contains(help.output, "Usage: ./" + script));
  }
}

TEST(Scripts, UnknownOptionIsNotUnderstood) {
  for (const std::string script : {"run", "check"}) {
    const ChildResult refused = RunInShell("./" + script + " --nonsense");
    EXPECT_EQ(refused.exitCode, 2) << refused.Describe();
    EXPECT_TRUE(Contains(refused.output, "unknown option \"--nonsense\""));
  }
}

TEST(Scripts, SoakWithoutASensibleDurationIsNotUnderstood) {
  for (const std::string duration : {"10", "ten", "10x", "m", "1.5h", "10m30s"}) {
    const ChildResult refused = RunInShell("./check --soak " + duration);
    EXPECT_EQ(refused.exitCode, 2) << refused.Describe();
    EXPECT_TRUE(
        Contains(refused.output, "\"" + duration + "\" is no duration: write a number and s, m or h"));
  }
  for (const std::string arguments : {"--soak", "--soak ''", "--seed 1", "--preset asan",
                                      "--soak 1m --preset debug", "--soak 1m --seed x", "--soak 1m --full"}) {
    const ChildResult refused = RunInShell("./check " + arguments);
    EXPECT_EQ(refused.exitCode, 2) << refused.Describe();
  }
}

TEST(Scripts, LintStandsAlone) {
  for (const std::string other : {"--full", "--soak 1m"}) {
    const ChildResult refused = RunInShell("./check --lint " + other);
    EXPECT_EQ(refused.exitCode, 2) << refused.Describe();
    EXPECT_TRUE(Contains(refused.output, "--lint excludes --full and --soak."));
  }
}

TEST(Scripts, RunWithoutATerminalShowsEveryKindAndEnds) {
  const ChildResult shown = RunInShell("./run --from '" ZOIO_PROGRAMS "'");
  EXPECT_TRUE(shown.Succeeded()) << shown.Describe();
  for (const char* part :
       {"Name         ZoIoHandler", "/demo#/int = 1 (int)", "(double)", "(bool)", "(string)"}) {
    EXPECT_TRUE(Contains(shown.output, part));
  }
}

// The emulated sensor counts from the same number each time it starts, so a total that falls and then rises
// shows that the values of the second start arrived over the restored link.
TEST(Scripts, RunShowsASensorThatGoesAwayAndComesBack) {
  const ChildResult shown = RunInShell("./run --sensor --from '" ZOIO_PROGRAMS "'");
  EXPECT_TRUE(shown.Succeeded()) << shown.Describe();
  static const std::regex total(R"(/machine/counters#/total = (\d+) \(uint\))");
  std::vector<std::uint64_t> totals;
  for (std::sregex_iterator found(shown.output.begin(), shown.output.end(), total), end; found != end;
       ++found) {
    totals.push_back(std::stoull((*found)[1]));
  }
  const auto fall = std::adjacent_find(totals.begin(), totals.end(), std::greater<>());
  ASSERT_NE(fall, totals.end()) << shown.output;
  EXPECT_LT(*std::next(fall), totals.back());
}

TEST(Scripts, RunRefusesAFolderWithoutPrograms) {
  const ChildResult refused = RunInShell("./run --from docs");
  EXPECT_EQ(refused.exitCode, 1) << refused.Describe();
  EXPECT_TRUE(Contains(refused.output, "there is no zohost in docs"));
}

}  // namespace
