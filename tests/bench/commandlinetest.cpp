#include "bench/zobench/commandline.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using ZoBench::Options;

struct Outcome {
  std::variant<Options, int> parsed;
  std::string out;
  std::string err;

  int Status() const { return std::get<int>(parsed); }
};

Outcome Parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "zobench");
  std::ostringstream out;
  std::ostringstream err;
  auto parsed = ZoBench::ParseCommandLine(static_cast<int>(arguments.size()), arguments.data(),
                                          {"read", "tick"}, out, err);
  return {std::move(parsed), out.str(), err.str()};
}

Options Accepted(const std::vector<const char*>& arguments) {
  const Outcome outcome = Parse(arguments);
  EXPECT_TRUE(std::holds_alternative<Options>(outcome.parsed)) << outcome.err;
  return std::get<Options>(outcome.parsed);
}

TEST(ZobenchCommandLine, NothingMeansEverythingOfThisBuild) {
  const Options options = Accepted({});
  EXPECT_TRUE(options.cases.empty());
  EXPECT_FALSE(options.list);
  EXPECT_FALSE(options.quick);
  EXPECT_EQ(options.plugin, "");
  EXPECT_EQ(options.against, "");
  EXPECT_EQ(options.jsonFile, "");
}

TEST(ZobenchCommandLine, TakesSeveralCasesInAnyOrderWithOptions) {
  const Options options = Accepted({"tick", "--quick", "read", "--json", "out.json", "--repetitions", "7"});
  EXPECT_EQ(options.cases, (std::vector<std::string>{"tick", "read"}));
  EXPECT_TRUE(options.quick);
  EXPECT_EQ(options.jsonFile, "out.json");
  EXPECT_EQ(options.repetitions, 7);
}

TEST(ZobenchCommandLine, CasesThatDoNotExistAreNotUnderstood) {
  const Outcome outcome = Parse({"tock"});
  EXPECT_EQ(outcome.Status(), 2);
  EXPECT_NE(outcome.err.find("tock"), std::string::npos);
}

TEST(ZobenchCommandLine, FewerRepetitionsThanQuartilesNeedAreNotUnderstood) {
  EXPECT_EQ(Parse({"--repetitions", "2"}).Status(), 2);
  EXPECT_EQ(Parse({"--repetitions", "many"}).Status(), 2);
}

TEST(ZobenchCommandLine, PluginsThatDoNotExistAreNotUnderstood) {
  EXPECT_EQ(Parse({"--plugin", "/nowhere/ZoIoHandler.so"}).Status(), 2);
  EXPECT_EQ(Parse({"--against", "/nowhere/ZoIoHandler.so"}).Status(), 2);
}

TEST(ZobenchCommandLine, HelpNamesTheOptionsAndSucceeds) {
  const Outcome outcome = Parse({"--help"});
  EXPECT_EQ(outcome.Status(), 0);
  EXPECT_NE(outcome.out.find("--against"), std::string::npos);
}

TEST(ZobenchCommandLine, QuickRunsRepeatAThirdAndNeverFewerThanThree) {
  Options options;
  EXPECT_EQ(options.Repetitions(15), 15);
  options.quick = true;
  EXPECT_EQ(options.Repetitions(15), 5);
  EXPECT_EQ(options.Repetitions(5), 3);
  options.repetitions = 11;
  EXPECT_EQ(options.Repetitions(15), 11);
}

}  // namespace
