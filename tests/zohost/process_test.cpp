// The whole program against the fake plug-in: what it prints, how it ends, and what the plug-in saw of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <boost/json.hpp>

#include "tests/zohost/hosttest.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ZohostProcess : public testing::Test {
 protected:
  Result Ask(const std::vector<std::string>& arguments) {
    return RunProgram(Zohost(arguments, FAKE_PLUGIN), Options());
  }
  ProgramOptions Options() {
    ProgramOptions options;
    options.environment["ZOFAKE_TRACE"] = trace.Name();
    return options;
  }
  // Every command leaves the plug-in like this.
  void ExpectProperEnd() {
    const std::string text = trace.Text();
    EXPECT_THAT(text, EndsWith("destroy\nunloaded\n"));
    EXPECT_THAT(text, Not(HasSubstr("fault")));
  }
  TraceFile trace;
};

TEST_F(ZohostProcess, InfoDescribesThePlugin) {
  const Result result = Ask({"info"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("FakePlugin\n"));
  EXPECT_THAT(result.out, HasSubstr("A plug-in for tests\n"));
  EXPECT_THAT(result.out, HasSubstr("0x00010005"));
  EXPECT_THAT(result.out, HasSubstr("First label: First description (kind 1)\n"));
  EXPECT_THAT(result.out, HasSubstr("(none): Second\\n (kind 2)\n"));
  EXPECT_EQ(result.err, "");
}

TEST_F(ZohostProcess, ReadPrintsEachItemOnALine) {
  const Result result =
      Ask({"read", "x", "/a#/int", "/a#/double", "/a#/bool", "/a#/text", "/a#/uint", "/a#/control",
           "/a#/badutf8", "/a#/invalid", "/a#/odd", "/a#/nan", "--port", "7"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out,
            "/a#/int = 7 (int)\n"
            "/a#/double = 7.100000001490116 (double)\n"
            "/a#/bool = false (bool)\n"
            "/a#/text = Hello 7 (string)\n"
            "/a#/uint = 18446744073709551615 (uint)\n"
            "/a#/control = a\\u001b[31mb\\nc\\td\"e,f (string)\n"
            "/a#/badutf8 = ok\xEF\xBF\xBD\xEF\xBF\xBD! (string)\n"
            "/a#/invalid = INVALID (invalid)\n"
            "/a#/odd = INVALID (invalid)\n"
            "/a#/nan = -Infinity (double)\n");
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(trace.Text(), StartsWith("create x 7\nread /a#/int\n"));
  ExpectProperEnd();
}

TEST_F(ZohostProcess, ReadGoesOnAfterARefusedItem) {
  const Result result = Ask({"read", "x", "/a#/unknown", "/a#/denied", "/a#/mute", "/a#/int"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "/a#/int = 7 (int)\n");
  EXPECT_THAT(result.err, HasSubstr("zohost: /a#/unknown could not be read.\n  The sensor does not know it"));
  EXPECT_THAT(
      result.err,
      HasSubstr("zohost: /a#/denied could not be read.\n  plug-in: The sensor does not like this item.\n"));
  EXPECT_THAT(result.err, HasSubstr("zohost: /a#/mute could not be read.\n"));
  ExpectProperEnd();
}

TEST_F(ZohostProcess, AVeryLongValueIsReadWhole) {
  const Result result = Ask({"read", "x", "/long"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "/long = " + std::string(1 << 20, 'x') + " (string)\n");
}

TEST_F(ZohostProcess, AnUnreachableSensorIsNamedWithItsReason) {
  const Result result = Ask({"read", "offline", "/a", "/b"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("/a could not be read.\n  plug-in: Cannot connect to nowhere.\n"));
  EXPECT_THAT(result.err, HasSubstr("/b could not be read.\n"));
}

TEST_F(ZohostProcess, ARefusedInstanceIsReported) {
  const Result result = Ask({"read", "refuse", "/a"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(
      result.err,
      "zohost: the plug-in made no instance for \"refuse\".\n  plug-in: This address is not to be had.\n");
  EXPECT_THAT(trace.Text(), EndsWith("create refuse 3600\nunloaded\n"));
}

TEST_F(ZohostProcess, WriteSendsTheValueWithItsKind) {
  EXPECT_EQ(Ask({"write", "x", "/a", "-5"}).out, "sent /a = -5 (int)\n");
  EXPECT_EQ(Ask({"write", "x", "/b", "18446744073709551615"}).status, 0);
  EXPECT_EQ(Ask({"write", "x", "/c", "true"}).status, 0);
  EXPECT_EQ(Ask({"write", "x", "/d", "5", "--type", "double"}).status, 0);
  EXPECT_EQ(Ask({"write", "x", "/e", "two words"}).status, 0);
  const std::string text = trace.Text();
  EXPECT_THAT(text, HasSubstr("write /a 2 18446744073709551611\n"));
  EXPECT_THAT(text, HasSubstr("write /b 4 18446744073709551615\n"));
  EXPECT_THAT(text, HasSubstr("write /c 1 1\n"));
  EXPECT_THAT(text, HasSubstr("write /d 3 5.000000\n"));
  EXPECT_THAT(text, HasSubstr("write /e 0 two words\n"));
  ExpectProperEnd();
}

TEST_F(ZohostProcess, WriteReportsARefusal) {
  const Result result = Ask({"write", "x", "/a#/denied", "5"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("plug-in: The sensor does not like this value.\n"));
}

TEST_F(ZohostProcess, AValueThatDoesNotFitNeverReachesThePlugin) {
  const Result result = Ask({"write", "x", "/a", "5.5", "--type", "int"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("\"5.5\" is no integer"));
  EXPECT_EQ(trace.Text(), "");
}

TEST_F(ZohostProcess, CallPrintsTheResponse) {
  const Result result = Ask({"call", "x", "Echo", "{\"id\": 5}"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "{\"id\": 5}\n");
  const Result refused = Ask({"call", "x", "Nothing"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr("Nothing could not be called.\n"));
  ExpectProperEnd();
}

TEST_F(ZohostProcess, BrowseListsEveryTag) {
  const Result result = Ask({"browse", "x"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "/motor#/speed = 1.5 (double)\n"
            "/motor#/on = true (bool)\n"
            "/motor#/nominal%20load/a~1b/0 = 1 (int)\n"
            "/motor#/nominal%20load/a~1b/1 = INVALID (invalid)\n"
            "/other# = text (string)\n");
  EXPECT_EQ(result.err, "zohost: /broken could not be read.\n  The sensor failed.\n");
  ExpectProperEnd();
}

TEST_F(ZohostProcess, BrowseListsWhatLiesBelowAResource) {
  const Result below = Ask({"browse", "x", "/motor"});
  EXPECT_EQ(below.status, 0) << below.err;
  EXPECT_EQ(CountLines(below.out), 4u);
  EXPECT_EQ(Ask({"browse", "x", "/other"}).out, "/other# = text (string)\n");
  EXPECT_EQ(Ask({"browse", "x", "motor"}).out, below.out);
  EXPECT_EQ(Ask({"browse", "x", "/mot"}).status, 1);
  EXPECT_EQ(Ask({"browse", "x", "mot"}).status, 1);
  const Result offline = Ask({"browse", "offline"});
  EXPECT_EQ(offline.status, 1);
  EXPECT_EQ(offline.err, "zohost: the resources cannot be listed.\n  plug-in: Cannot connect to nowhere.\n");
}

TEST_F(ZohostProcess, LogLinesGoToStandardErrorFromTheChosenLevelUp) {
  EXPECT_EQ(Ask({"read", "chatty", "/a"}).err, "");
  const Result result = Ask({"read", "chatty", "/a", "--log", "warning"});
  EXPECT_EQ(result.out, "/a = 7 (int)\n");
  const auto lines = SplitLines(result.err);
  ASSERT_EQ(lines.size(), 3u) << result.err;
  const std::string time = "20[0-9-]+T[0-9:]+[.][0-9][0-9][0-9]Z ";
  EXPECT_THAT(lines[0], testing::MatchesRegex(time + "warning  .*Level 4\\\\u001b.2J[.]"));
  EXPECT_THAT(lines[2], testing::MatchesRegex(time + "critical .*Level 6.*"));
  EXPECT_THAT(Ask({"read", "x", "/a", "--log", "notice"}).err, HasSubstr("Destroyed."));
}

TEST_F(ZohostProcess, APluginThatCannotBeLoadedIsNamed) {
  const Result missing = RunProgram(Zohost({"info"}, "/nowhere/plugin.so"));
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr("zohost: the plug-in cannot be loaded: /nowhere/plugin.so"));
  const Result text = RunProgram(Zohost({"info"}, trace.Name()));
  EXPECT_EQ(text.status, 1);
  EXPECT_THAT(text.err, HasSubstr(trace.Name()));
}

TEST_F(ZohostProcess, MissingExportsAreAllNamed) {
  const Result result = RunProgram(Zohost({"read", "x", "/a"}, INCOMPLETE_PLUGIN), Options());
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("does not export GetIoInfo, CallMethod."));
  EXPECT_EQ(trace.Text(), "unloaded\n");
}

TEST_F(ZohostProcess, UsageErrorsEndWithTwo) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {}, {"fly"}, {"read"}, {"read", "x"}, {"watch", "x", "/a", "--for", "5"}, {"info", "--nothing"}}) {
    const Result result = RunProgram(Zohost(arguments, ""));
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, StartsWith("zohost: "));
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(RunProgram(Zohost({"watch", "--help"}, "")).status, 0);
}

TEST_F(ZohostProcess, WatchPrintsPlainLinesWithoutATerminal) {
  const Result result = Ask({"watch", "x", "/a#/int", "/a#/control", "--interval", "10ms", "--count", "5"});
  EXPECT_EQ(result.status, 0) << result.err;
  const auto lines = SplitLines(result.out);
  ASSERT_EQ(lines.size(), 5u);
  const std::string time = "20[0-9-]+T[0-9:]+[.][0-9][0-9][0-9]Z  ";
  EXPECT_THAT(lines[0], testing::MatchesRegex(time + "/a#/control = a.u001b.31mb.nc.td\"e,f .string."));
  EXPECT_THAT(lines[3], testing::MatchesRegex(time + "/a#/int = 1 .int."));
  EXPECT_THAT(trace.Text(), HasSubstr("subscribe 2 10\n"));
  EXPECT_THAT(trace.Text(), HasSubstr("unsubscribe 2\n"));
  ExpectProperEnd();
}

TEST_F(ZohostProcess, JsonLinesAreValidJsonWhateverTheValues) {
  const std::vector<std::string> items = {"/int",     "/uint",    "/double", "/nan",     "/bool",
                                          "/text",    "/control", "/null",   "/badutf8", "/wide",
                                          "/invalid", "/odd",     "/long"};
  std::vector<std::string> arguments = {"watch",      "x",    "--format", "jsonl",
                                        "--interval", "10ms", "--count",  "26"};
  arguments.insert(arguments.end(), items.begin(), items.end());
  const Result result = Ask(arguments);
  EXPECT_EQ(result.status, 0) << result.err;
  const auto lines = SplitLines(result.out);
  ASSERT_EQ(lines.size(), 26u);
  std::map<std::string, boost::json::value> first;
  for (const std::string& line : lines) {
    const boost::json::object object = boost::json::parse(line).as_object();
    ASSERT_EQ(object.size(), 4u);
    EXPECT_EQ(object.at("time").as_string().size(), 24u);
    first.emplace(std::string(object.at("item").as_string()), object);
  }
  ASSERT_EQ(first.size(), items.size());
  const auto value = [&](const char* item) { return first.at(item).at("value"); };
  EXPECT_EQ(value("/int"), 0);
  EXPECT_EQ(value("/uint").as_uint64(), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(value("/double").as_double(), static_cast<double>(0.1f));
  EXPECT_EQ(value("/nan").as_string(), "NaN");
  EXPECT_EQ(value("/bool"), true);
  EXPECT_EQ(value("/control").as_string(), "a\x1b[31mb\nc\td\"e,f");
  EXPECT_EQ(value("/badutf8").as_string(), "ok\xEF\xBF\xBD\xEF\xBF\xBD!");
  EXPECT_TRUE(value("/invalid").is_null());
  EXPECT_TRUE(value("/odd").is_null());
  EXPECT_EQ(value("/long").as_string().size(), 1u << 20);
  EXPECT_EQ(first.at("/uint").at("kind").as_string(), "uint");
}

// Reads CSV as RFC 4180 has it.
std::vector<std::vector<std::string>> ParseCsv(const std::string& text) {
  std::vector<std::vector<std::string>> records(1, {""});
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    std::string& field = records.back().back();
    if (quoted && text[at] == '"' && at + 1 < text.size() && text[at + 1] == '"') {
      field += text[at++];
    } else if (text[at] == '"') {
      quoted = !quoted;
    } else if (!quoted && text[at] == ',') {
      records.back().emplace_back();
    } else if (!quoted && text[at] == '\n') {
      records.push_back({""});
    } else {
      field += text[at];
    }
  }
  records.pop_back();
  return records;
}

TEST_F(ZohostProcess, CsvReadsBack) {
  const Result result = Ask(
      {"watch", "x", "/a,b#/\"c\"/control", "/int", "--format", "csv", "--interval", "10ms", "--count", "6"});
  EXPECT_EQ(result.status, 0) << result.err;
  const auto records = ParseCsv(result.out);
  ASSERT_EQ(records.size(), 7u);
  EXPECT_EQ(records[0], (std::vector<std::string>{"time", "item", "kind", "value"}));
  EXPECT_EQ(records[1][1], "/a,b#/\"c\"/control");
  EXPECT_EQ(records[1][2], "string");
  EXPECT_EQ(records[1][3], "a\x1b[31mb\nc\td\"e,f");
  EXPECT_EQ(records[2][3], "0");
  EXPECT_EQ(records[6][3], "2");
}

TEST_F(ZohostProcess, OnChangePrintsAndCountsChangesAlone) {
  const Result result = Ask({"watch", "x", "/slow", "/constant", "--on-change", "--interval", "5ms",
                             "--count", "4", "--format", "csv"});
  EXPECT_EQ(result.status, 0);
  const auto records = ParseCsv(result.out);
  ASSERT_EQ(records.size(), 5u);
  EXPECT_EQ(records[1][3], "42");
  EXPECT_EQ(records[2][3], "0");
  EXPECT_EQ(records[3][3], "1");
  EXPECT_EQ(records[4][3], "2");
}

TEST_F(ZohostProcess, AnItemNamedTwiceIsSubscribedOnce) {
  EXPECT_EQ(Ask({"watch", "x", "/int", "/int", "--interval", "5ms", "--count", "2"}).status, 0);
  EXPECT_THAT(trace.Text(), HasSubstr("\nsubscribe 1 5\n"));
  EXPECT_THAT(trace.Text(), HasSubstr("\nunsubscribe 1\n"));
}

TEST_F(ZohostProcess, WatchGoesOnWithoutTheRefusedItem) {
  const Result result = Ask({"watch", "x", "/int", "/unknown", "--interval", "5ms", "--count", "3"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(CountLines(result.out), 3u);
  EXPECT_THAT(result.out, HasSubstr("/int = 0 (int)"));
  EXPECT_EQ(result.err, "zohost: /unknown could not be subscribed.\n  plug-in: Invalid identifier.\n");
  EXPECT_THAT(trace.Text(), HasSubstr("\nunsubscribe 1\n"));
}

TEST_F(ZohostProcess, WatchEndsWhenNothingCouldBeSubscribed) {
  const Result offline = Ask({"watch", "offline", "/int"});
  EXPECT_EQ(offline.status, 1);
  EXPECT_EQ(offline.out, "");
  EXPECT_THAT(offline.err, HasSubstr("plug-in: Cannot connect to nowhere.\n"));
  EXPECT_EQ(Ask({"watch", "x", "/unknown"}).status, 1);
  EXPECT_THAT(trace.Text(), Not(HasSubstr("unsubscribe")));
}

TEST_F(ZohostProcess, WatchEndsAfterItsTime) {
  const auto start = std::chrono::steady_clock::now();
  const Result result = Ask({"watch", "x", "/silent", "--for", "300ms"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
  ExpectProperEnd();
}

TEST_F(ZohostProcess, EverySignalToEndUnsubscribesAndDestroys) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Program program(Zohost({"watch", "x", "/int", "--interval", "5ms"}, FAKE_PLUGIN), Options());
    ASSERT_TRUE(program.WaitForOut("/int = 3"));
    program.Signal(signal);
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(program.Err(), "");
    EXPECT_THAT(program.Out(), EndsWith("(int)\n"));
    EXPECT_THAT(trace.Text(), EndsWith("unsubscribe 1\ndestroy\nunloaded\n"));
  }
}

TEST_F(ZohostProcess, ASecondSignalEndsAStuckCall) {
  Program program(Zohost({"watch", "stuck", "/int"}, FAKE_PLUGIN), Options());
  while (trace.Text().find("create stuck") == std::string::npos) {
    std::this_thread::yield();
  }
  program.Signal(SIGINT);
  program.Signal(SIGTERM);  // two of one kind may merge
  const int status = program.Wait();
  EXPECT_TRUE(status == -SIGINT || status == -SIGTERM) << status;
}

TEST_F(ZohostProcess, AReaderThatGoesEndsTheWatchQuietly) {
  Program program(Zohost({"watch", "x", "/int", "--interval", "5ms"}, FAKE_PLUGIN), Options());
  ASSERT_TRUE(program.WaitForOut("/int = 0"));
  program.CloseOut();
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(program.Err(), "");
  EXPECT_THAT(trace.Text(), EndsWith("unsubscribe 1\ndestroy\nunloaded\n"));
}

TEST_F(ZohostProcess, AReaderThatGoesIsNoticedWithoutUpdates) {
  Program program(Zohost({"watch", "x", "/once", "--interval", "5ms"}, FAKE_PLUGIN), Options());
  ASSERT_TRUE(program.WaitForOut("/once = 0"));
  program.CloseOut();
  EXPECT_EQ(program.Wait(), 0);
  ExpectProperEnd();
}

TEST_F(ZohostProcess, AFullDiskIsAClearMessage) {
  ProgramOptions options = Options();
  options.output = ProgramOptions::Output::file;
  options.file = "/dev/full";
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"watch", "x", "/int", "--interval", "5ms"},
                                             {"read", "x", "/int"},
                                             {"write", "x", "/int", "5"},
                                             {"call", "x", "Echo"},
                                             {"info"},
                                             {"--help"}}) {
    const Result result = RunProgram(Zohost(arguments, FAKE_PLUGIN), options);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "zohost: standard output takes no more: No space left on device.\n")
        << arguments[0];
  }
  EXPECT_THAT(trace.Text(), HasSubstr("unsubscribe 1\ndestroy\n"));
}

TEST_F(ZohostProcess, AReaderThatStopsReadingDoesNotKeepItFromEnding) {
  Program program(Zohost({"watch", "x", "/long", "--interval", "5ms"}, FAKE_PLUGIN), Options());
  ASSERT_TRUE(program.WaitForOut([](const std::string& out) { return out.size() > 1000; }));
  program.StallOut();
  ASSERT_TRUE(program.WaitUntilFull());
  program.Signal(SIGINT);
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Err(), HasSubstr("bytes were not taken"));
  EXPECT_THAT(trace.Text(), EndsWith("unsubscribe 1\ndestroy\nunloaded\n"));
}

TEST_F(ZohostProcess, AFloodFromManyThreadsIsPrintedWhole) {
  const Result result = Ask({"watch", "x", "/flood", "--format", "csv", "--count", "100000"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const auto lines = SplitLines(result.out);
  ASSERT_EQ(lines.size(), 100'001u);
  std::map<std::string, int> counts;
  for (std::size_t index = 1; index < lines.size(); ++index) {
    ++counts[lines[index].substr(lines[index].find(','))];
  }
  EXPECT_EQ(counts.size(), 25'000u);
  EXPECT_TRUE(std::all_of(counts.begin(), counts.end(), [](const auto& entry) { return entry.second == 4; }));
  ExpectProperEnd();
}

TEST_F(ZohostProcess, UpdatesLostToASlowReaderAreCounted) {
  ProgramOptions options = Options();
  options.stalled = true;
  Program program(Zohost({"watch", "x", "/deluge", "--format", "jsonl"}, FAKE_PLUGIN), options);
  while (trace.Text().find("flooded") == std::string::npos) {
    std::this_thread::yield();
  }
  program.Signal(SIGINT);
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Err(), HasSubstr("updates were lost"));
  ExpectProperEnd();
}

}  // namespace
