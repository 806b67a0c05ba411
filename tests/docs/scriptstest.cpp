// ./run and ./check, as far as they can be tried without building anew.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/docs/markdown.h"
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

TEST(Scripts, FuzzWithoutASensibleDurationIsNotUnderstood) {
  for (const std::string arguments : {"--fuzz", "--fuzz ''", "--fuzz 10", "--fuzz 0s", "--fuzz 1.5h",
                                      "--fuzz 12345678s", "--fuzz 1m --only", "--fuzz 1m --seed 1"}) {
    const ChildResult refused = RunInShell("./check " + arguments);
    EXPECT_EQ(refused.exitCode, 2) << refused.Describe();
  }
  EXPECT_TRUE(Contains(RunInShell("./check --fuzz 10").output, "\"10\" is no duration"));
  EXPECT_TRUE(Contains(RunInShell("./check --only x").output, "--only belongs to --fuzz"));
}

TEST(Scripts, WaysOfCheckingExcludeEachOther) {
  for (const std::string two :
       {"--lint --full", "--lint --soak 1m", "--full --soak 1m", "--coverage --full", "--lint --coverage",
        "--lint --mutate", "--fuzz 1m --full", "--fuzz 1m --soak 1m"}) {
    const ChildResult refused = RunInShell("./check " + two);
    EXPECT_EQ(refused.exitCode, 2) << refused.Describe();
    EXPECT_TRUE(Contains(refused.output, "exclude each other")) << refused.Describe();
  }
}

TEST(Scripts, CoverageGoesAlone) {
  for (const std::string other : {"--full", "--soak 1m", "--preset asan", "--seed 1"}) {
    const ChildResult refused = RunInShell("./check --coverage " + other);
    EXPECT_EQ(refused.exitCode, 2) << refused.Describe();
  }
}

// What ./check --coverage says of a table of files that gcovr might have written.
ChildResult JudgeCoverage(const std::string& files, const std::string& least) {
  return RunInShell(". scripts/coverage.sh && coverage_rooms=(one one/inner two) && printf '" +
                    std::string("filename,line_total,line_covered,branch_total,branch_covered\\n") + files +
                    "' | judge_coverage - " + least);
}

TEST(Scripts, CoverageIsSummedByRoomAndOverAll) {
  const ChildResult judged = JudgeCoverage(
      "one/a.cpp,50,40,10,5\\none/b.h,50,45,0,0\\none/inner/c.cpp,20,20,4,4\\ntwo/d.cpp,80,79,6,5\\n",
      "92 70");
  EXPECT_TRUE(judged.Succeeded()) << judged.Describe();
  EXPECT_TRUE(
      ZoTest::OutputMatches({"room                        lines      run      %   branches    taken      %",
                             "one                           100       85   85.0         10        5   50.0",
                             "one/inner                      20       20  100.0          4        4  100.0",
                             "two                            80       79   98.7          6        5   83.3",
                             "all                           200      184   92.0         20       14   70.0"},
                            ZoTest::SplitLines(judged.output)))
      << judged.output;
}

TEST(Scripts, CoverageThatIsTooLittleFails) {
  const std::string files = "one/a.cpp,1000,949,1000,899\\none/inner/b.cpp,1,1,0,0\\ntwo/c.cpp,1,1,0,0\\n";
  const ChildResult enough = JudgeCoverage(files, "94 89");
  EXPECT_TRUE(enough.Succeeded()) << enough.Describe();
  const ChildResult lines = JudgeCoverage(files, "95 89");
  EXPECT_EQ(lines.exitCode, 1) << lines.Describe();
  EXPECT_TRUE(Contains(lines.output, "Fewer than 95 % of the lines were run."));
  const ChildResult branches = JudgeCoverage(files, "94 90");
  EXPECT_EQ(branches.exitCode, 1) << branches.Describe();
  EXPECT_TRUE(Contains(branches.output, "Fewer than 90 % of the branches were taken."));
}

TEST(Scripts, CoverageOfNothingFails) {
  const ChildResult empty = JudgeCoverage("", "0 0");
  EXPECT_EQ(empty.exitCode, 1) << empty.Describe();
  const ChildResult roomMissing = JudgeCoverage("one/a.cpp,1,1,1,1\\none/inner/b.cpp,1,1,1,1\\n", "0 0");
  EXPECT_EQ(roomMissing.exitCode, 1) << roomMissing.Describe();
  EXPECT_TRUE(Contains(roomMissing.output, "Nothing was counted in two."));
  const ChildResult elsewhere = JudgeCoverage("three/a.cpp,1,1,1,1\\n", "0 0");
  EXPECT_TRUE(Contains(elsewhere.output, "three/a.cpp is in none of the rooms."));
}

// Not by ./check, which may be what runs this test and lets nobody else in.
TEST(Scripts, MutantsAreNamedAndSurvivorsHaveReasons) {
  const ChildResult named = RunInShell("python3 scripts/mutate.py --list");
  EXPECT_TRUE(named.Succeeded()) << named.Describe();
  for (const char* part : {
           ":text\tzoiohandler/iohandler.cpp: .name = [\"ZoIoHandler\" -> \"ZoIoHbndler\"]",
           ":level\tzoiohandler/vyrnclient/zovyrnclientsubscribe.cpp: ZoVyrnClient::SubscribePattern: "
           "Log(\"Could not subscribe resource.\", [LogLevel_Warning -> LogLevel_Error], subscribeName);",
           ":number\tzoiohandler/exports.cpp: constexpr int refused = [1 -> 2];",
           ":compare\tzoiohandler/vyrnclient/serving.h: Pass: if (now [>= -> >] group->NextTick()) {",
           ":drop\tzoiohandler/iohandler.cpp: IoHandler::~IoHandler: drop instances.clear();",
           ":swap\tzoiohandler/vyrnclient/sensormanager.cpp: SensorManager::Shutdown: "
           "swap Disconnect(); and cacheManager->Shutdown();",
           ":order\tzoiohandler/iohandler.cpp: order: the instances go before the base library's handle",
       }) {
    EXPECT_TRUE(Contains(named.output, part));
  }
}

TEST(Scripts, MutationWithoutSensibleOptionsIsNotUnderstood) {
  for (const std::string options : {"--shard 3/2", "--shard 0/2", "--sample 0", "--only '('", "--nonsense"}) {
    const ChildResult refused = RunInShell("python3 scripts/mutate.py --list " + options);
    EXPECT_EQ(refused.exitCode, 2) << refused.Describe();
  }
  EXPECT_EQ(RunInShell("./check --full --mutate").exitCode, 2);
  EXPECT_EQ(RunInShell("./check --soak 1m --mutate").exitCode, 2);
}

TEST(Scripts, RunWithoutATerminalShowsEveryKindAndEnds) {
  const ChildResult shown = RunInShell("./run --from '" ZOIO_PROGRAMS "'");
  EXPECT_TRUE(shown.Succeeded()) << shown.Describe();
  for (const char* part : {"Name         ZoIoHandler", "(double)", "(bool)", "(string)"}) {
    EXPECT_TRUE(Contains(shown.output, part));
  }
  // One value may go by between two of a busy machine's updates, or be shown twice: they are as far apart as the
  // simulator's. Not most.
  static const std::regex number(R"(/demo#/int = (\d+) \(int\))");
  std::vector<int> numbers;
  for (std::sregex_iterator found(shown.output.begin(), shown.output.end(), number), end; found != end;
       ++found) {
    numbers.push_back(std::stoi((*found)[1]));
  }
  EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end())) << shown.output;
  EXPECT_GE(std::set<int>(numbers.begin(), numbers.end()).size(), 5U) << shown.output;
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
