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
