#include "tools/zohost/commandline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/zohost/usageerror.h"

namespace zohost {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

std::variant<CommandLine, HelpText> Parse(std::vector<const char*> words) {
  words.insert(words.begin(), "zohost");
  return ParseCommandLine(static_cast<int>(words.size()), words.data());
}

template <typename Command>
Command Understood(const std::vector<const char*>& words) {
  return std::get<Command>(std::get<CommandLine>(Parse(words)).command);
}

std::string Complaint(const std::vector<const char*>& words) {
  try {
    Parse(words);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "(understood)";
}

TEST(CommandLine, CommonOptionsStandBeforeOrAfterTheCommand) {
  for (const auto& words :
       {std::vector<const char*>{"--port", "99", "--log", "notice", "--plugin", "p", "read", "x", "/a"},
        {"read", "x", "/a", "--port", "99", "--log", "notice", "--plugin", "p"},
        {"read", "--port=99", "x", "--log=notice", "/a", "--plugin=p"}}) {
    const auto line = std::get<CommandLine>(Parse(words));
    EXPECT_EQ(line.port, 99);
    EXPECT_EQ(line.log, LogLevel::notice);
    EXPECT_EQ(line.plugin, "p");
    EXPECT_EQ(line.address, "x");
    EXPECT_EQ(std::get<ReadCommand>(line.command).items, std::vector<std::string>{"/a"});
  }
}

TEST(CommandLine, DefaultsAreThoseThatTheHelpNames) {
  const auto line = std::get<CommandLine>(Parse({"watch", "x", "/a"}));
  EXPECT_EQ(line.port, 3600);
  EXPECT_FALSE(line.log.has_value());
  EXPECT_EQ(line.plugin, "");
  const WatchOptions options = std::get<WatchCommand>(line.command).options;
  EXPECT_EQ(options.interval, milliseconds(200));
  EXPECT_FALSE(options.duration.has_value());
  EXPECT_FALSE(options.count.has_value());
  EXPECT_FALSE(options.onChange);
  EXPECT_EQ(options.format, WatchOptions::Format::automatic);
}

TEST(CommandLine, WatchTakesItsOptionsAmongTheItems) {
  const WatchOptions options =
      Understood<WatchCommand>({"watch", "x", "/a", "--interval", "1s", "/b", "--for", "2min", "--count", "7",
                                "--on-change", "--format", "csv", "/c"})
          .options;
  EXPECT_EQ(options.address, "x");
  EXPECT_EQ(options.items, (std::vector<std::string>{"/a", "/b", "/c"}));
  EXPECT_EQ(options.interval, milliseconds(1000));
  EXPECT_EQ(options.duration, milliseconds(120'000));
  EXPECT_EQ(options.count, 7u);
  EXPECT_TRUE(options.onChange);
  EXPECT_EQ(options.format, WatchOptions::Format::csv);
}

TEST(CommandLine, ItemsMayBeCalledLikeCommandsAndHoldOddCharacters) {
  const auto read =
      Understood<ReadCommand>({"read", "x", "--", "-odd", "info", "watch", "{}", "[1,2]", "", "a b", "%%"});
  EXPECT_EQ(read.items, (std::vector<std::string>{"-odd", "info", "watch", "{}", "[1,2]", "", "a b", "%%"}));
}

TEST(CommandLine, WriteTakesNegativeNumbersAndTypes) {
  EXPECT_EQ(Understood<WriteCommand>({"write", "x", "/a", "-5"}).value.Kind(), enumtype_int64);
  EXPECT_EQ(Understood<WriteCommand>({"write", "x", "/a", "-5.5"}).value.Exact(), "-5.5");
  EXPECT_EQ(Understood<WriteCommand>({"write", "x", "/a", "--type", "double", "5"}).value.Kind(),
            enumtype_double);
  EXPECT_EQ(Understood<WriteCommand>({"write", "x", "/a", "--", "-text"}).value.Exact(), "-text");
  EXPECT_EQ(Understood<WriteCommand>({"write", "x", "/a", ""}).value.Kind(), enumtype_string);
  EXPECT_EQ(Understood<WriteCommand>({"write", "x", "/a", "{}"}).value.Exact(), "{}");
}

TEST(CommandLine, CallTakesAnArgumentOrNone) {
  EXPECT_EQ(Understood<CallCommand>({"call", "x", "RunSensor"}).arguments, "{}");
  EXPECT_EQ(Understood<CallCommand>({"call", "x", "Read", "{\"uri\": \"/a\"}"}).arguments,
            "{\"uri\": \"/a\"}");
  EXPECT_EQ(Understood<CallCommand>({"call", "x", "Read", "{}"}).arguments, "{}");
  EXPECT_EQ(Understood<CallCommand>({"call", "x", "Read", ""}).arguments, "");
  EXPECT_EQ(Understood<CallCommand>({"call", "x", "Read", "[1,2]"}).arguments, "[1,2]");
}

TEST(CommandLine, WhatIsWrongIsNamed) {
  EXPECT_THAT(Complaint({}), HasSubstr("say what to do"));
  EXPECT_THAT(Complaint({"fly"}), HasSubstr("\"fly\""));
  EXPECT_THAT(Complaint({"read"}), HasSubstr("ADDRESS"));
  EXPECT_THAT(Complaint({"read", "x"}), HasSubstr("ITEM"));
  EXPECT_THAT(Complaint({"write", "x", "/a"}), HasSubstr("VALUE"));
  EXPECT_THAT(Complaint({"write", "x", "/a", "1", "2"}), HasSubstr("2"));
  EXPECT_THAT(Complaint({"write", "x", "/a", "five", "--type", "int"}), HasSubstr("\"five\" is no integer"));
  EXPECT_THAT(Complaint({"write", "x", "/a", "5", "--type", "float"}), HasSubstr("--type takes bool"));
  EXPECT_THAT(Complaint({"write", "x", "/a", "5", "--type", ""}), HasSubstr("--type takes bool"));
  EXPECT_THAT(Complaint({"read", "x", "/a", "--port", "65536"}), HasSubstr("--port"));
  EXPECT_THAT(Complaint({"read", "x", "/a", "--port", "-1"}), HasSubstr("--port"));
  EXPECT_THAT(Complaint({"read", "x", "/a", "--log", "debug"}), HasSubstr("--log takes info"));
  EXPECT_THAT(Complaint({"read", "x", "/a", "--nothing"}), HasSubstr("--nothing"));
  EXPECT_THAT(Complaint({"watch", "x", "/a", "--interval", "5"}), HasSubstr("--interval"));
  EXPECT_THAT(Complaint({"watch", "x", "/a", "--for", "soon"}), HasSubstr("--for"));
  EXPECT_THAT(Complaint({"watch", "x", "/a", "--for", ""}), HasSubstr("--for"));
  EXPECT_THAT(Complaint({"watch", "x", "/a", "--count", "0"}), HasSubstr("--count"));
  EXPECT_THAT(Complaint({"watch", "x", "/a", "--format", "xml"}), HasSubstr("--format"));
  EXPECT_THAT(Complaint({"info", "x"}), HasSubstr("x"));
}

TEST(CommandLine, EveryCommandHasHelpWithExamples) {
  for (const char* command : {"info", "read", "write", "watch", "call", "browse"}) {
    const auto help = std::get<HelpText>(Parse({command, "--help"})).text;
    EXPECT_THAT(help, HasSubstr(std::string("Usage: zohost ") + command));
    EXPECT_THAT(help, HasSubstr(std::string("Examples:\n  zohost ") + command));
    EXPECT_THAT(help, HasSubstr("--plugin"));
    EXPECT_EQ(help.find("\n\n\n"), std::string::npos);
    EXPECT_THAT(std::get<HelpText>(Parse({"--help"})).text, HasSubstr(std::string("\n  ") + command));
  }
}

TEST(CommandLine, TheVersionNeedsNoCommand) {
  EXPECT_THAT(std::get<HelpText>(Parse({"--version"})).text, testing::MatchesRegex("zohost [0-9.]+\n"));
}

}  // namespace
}  // namespace zohost
