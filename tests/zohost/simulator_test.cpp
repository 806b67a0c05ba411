// The program against the real plug-in and its built-in simulator, whose values change once a second.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <boost/json.hpp>
#include <filesystem>

#include "tests/zohost/hosttest.h"
#include "tests/zohost/screen.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// The plug-in lies beside the program, where it is looked for first.
std::vector<std::string> OnSimulator(std::vector<std::string> arguments) {
  return Zohost(arguments, "");
}

TEST(ZohostOnSimulator, FindsThePluginBesideItself) {
  const Result result = RunProgram(OnSimulator({"info"}));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("ZoIoHandler\n"));
  EXPECT_THAT(result.out,
              HasSubstr("Zomira Application ID (Optional): Zomira Application Identifier (kind 1)\n"));
  EXPECT_THAT(result.out, HasSubstr(std::filesystem::path(ZOHOST_PROGRAM).parent_path().string()));
}

TEST(ZohostOnSimulator, EveryKindOfValueIsWatched) {
  // Until a value has come, an item is delivered as invalid; the other twelve changes are three for each.
  const Result result =
      RunProgram(OnSimulator({"watch", "simulator", "/sim#/int", "/sim#/float", "/sim#/bool", "/sim#/string",
                              "--interval", "100ms", "--on-change", "--count", "16", "--format", "jsonl"}));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  std::map<std::string, std::vector<boost::json::value>> values;
  std::map<std::string, std::string> kinds;
  for (const std::string& line : SplitLines(result.out)) {
    const boost::json::object update = boost::json::parse(line).as_object();
    if (!update.at("value").is_null()) {
      const std::string item(update.at("item").as_string());
      values[item].push_back(update.at("value"));
      kinds[item] = std::string(update.at("kind").as_string());
    }
  }
  for (const char* item : {"/sim#/int", "/sim#/float", "/sim#/bool", "/sim#/string"}) {
    ASSERT_GE(values[item].size(), 2u) << item << "\n" << result.out;
    EXPECT_NE(values[item][0], values[item][1]) << item;
  }
  EXPECT_EQ(kinds["/sim#/bool"], "bool");
  EXPECT_EQ(kinds["/sim#/string"], "string");
  EXPECT_EQ(kinds["/sim#/int"], "int");
  EXPECT_EQ(kinds["/sim#/float"], "double");
  EXPECT_GT(values["/sim#/int"][1].as_int64(), values["/sim#/int"][0].as_int64());
}

TEST(ZohostOnSimulator, CtrlCEndsAWatchProperly) {
  Program program(OnSimulator({"watch", "simulator", "/sim#/int", "--log", "notice"}));
  ASSERT_TRUE(program.WaitForOut("(int)"));
  program.Signal(SIGINT);
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Err(), HasSubstr("Destroying ZoIoHandler instance."));
}

TEST(ZohostOnSimulator, TheTableShowsItsValues) {
  ProgramOptions options;
  options.output = ProgramOptions::Output::terminal;
  options.environment = {{"TERM", "xterm"}, {"LC_ALL", "C.UTF-8"}};
  Program program(OnSimulator({"watch", "simulator", "/sim#/int", "/sim#/string"}), options);
  EXPECT_TRUE(program.WaitForOut([&](const std::string& out) {
    Screen screen(options.columns, options.rows);
    screen.Feed(out);
    const std::string text = screen.Text();
    return text.find(" string ") != std::string::npos && text.find(" int ") != std::string::npos;
  }));
  program.Type("q");
  EXPECT_EQ(program.Wait(), 0);
}

TEST(ZohostOnSimulator, MethodsAnswer) {
  const Result run = RunProgram(OnSimulator({"call", "simulator", "RunSensor", R"({"id": 7})"}));
  EXPECT_EQ(run.status, 0) << run.err;
  const auto response = boost::json::parse(run.out).as_object();
  EXPECT_EQ(response.at("id"), 7);
  EXPECT_EQ(boost::json::parse(response.at("data").as_string()).at("result"), "OK");
  const Result read = RunProgram(OnSimulator({"call", "simulator", "Read", R"({"uri": "/x"})"}));
  EXPECT_EQ(boost::json::parse(boost::json::parse(read.out).at("data").as_string()).at("payload"), "/x");
  EXPECT_EQ(RunProgram(OnSimulator({"call", "simulator", "runsensor"})).status, 1);
  EXPECT_EQ(RunProgram(OnSimulator({"call", "simulator", "RunSensor", "[]"})).status, 1);
}

TEST(ZohostOnSimulator, ReadAndWriteAreTaken) {
  const Result read = RunProgram(OnSimulator({"read", "simulator", "/sim#", "/sim#/int"}));
  EXPECT_EQ(read.status, 0) << read.err;
  EXPECT_EQ(read.out, "/sim# = /sim (string)\n/sim#/int = INVALID (invalid)\n");
  EXPECT_EQ(RunProgram(OnSimulator({"write", "simulator", "/sim#/int", "5"})).out,
            "sent /sim#/int = 5 (int)\n");
}

TEST(ZohostOnSimulator, ThereIsNothingToBrowse) {
  const Result result = RunProgram(OnSimulator({"browse", "simulator"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("any item name works"));
}

TEST(ZohostOnSimulator, ASensorThatIsNotThereIsNamedWithAddressAndPort) {
  const Result result = RunProgram(OnSimulator({"read", "127.0.0.1", "/a#/b", "--port", "1"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("zohost: /a#/b could not be read.\n  plug-in: "));
  EXPECT_THAT(result.err, HasSubstr("127.0.0.1"));
  EXPECT_EQ(result.out, "");
}

}  // namespace
