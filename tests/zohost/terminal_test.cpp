// The watch on a pseudo-terminal: the table on the screen, and the terminal given back as it was.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <cstring>

#include "tests/zohost/hosttest.h"
#include "tests/zohost/screen.h"
#include "tools/zohost/text.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

bool operator==(const termios& a, const termios& b) {
  return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
         a.c_lflag == b.c_lflag && std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

class ZohostTerminal : public testing::Test {
 protected:
  ZohostTerminal() {
    options.output = ProgramOptions::Output::terminal;
    options.environment = {
        {"ZOFAKE_TRACE", trace.Name()}, {"TERM", "xterm"}, {"LC_ALL", "C.UTF-8"}, {"LANG", "C.UTF-8"}};
  }

  static std::vector<std::string> Watch(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"watch", "x", "--interval", "20ms"});
    return Zohost(arguments, FAKE_PLUGIN);
  }

  Screen ScreenOf(const std::string& output) const {
    Screen screen(options.columns, options.rows);
    screen.Feed(output);
    return screen;
  }

  // Waits until the screen shows the text.
  bool WaitForScreen(Program& program, const std::string& text) {
    return program.WaitForOut([&](const std::string& out) {
      return out.ends_with("\x1b[?7h") && ScreenOf(out).Text().find(text) != std::string::npos;
    });
  }

  // Waits until the number that follows this text on the screen is at least the given one.
  bool WaitForNumber(Program& program, const std::string& text, int least) {
    return program.WaitForOut([&](const std::string& out) {
      const std::string shown = out.ends_with("\x1b[?7h") ? ScreenOf(out).Text() : "";
      const auto at = shown.find(text);
      return at != std::string::npos && std::atoi(shown.c_str() + at + text.size()) >= least;
    });
  }

  void ExpectTerminalAsBefore(Program& program, const termios& before) {
    EXPECT_TRUE(program.TerminalSettings() == before);
    const Screen screen = ScreenOf(program.Out());
    EXPECT_TRUE(screen.cursorShown);
    EXPECT_TRUE(screen.wraps);
    EXPECT_EQ(screen.unknown, 0);
    EXPECT_THAT(trace.Text(), EndsWith("destroy\nunloaded\n"));
  }

  static int Count(const std::string& text, const std::string& word) {
    int count = 0;
    for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
      ++count;
    }
    return count;
  }

  TraceFile trace;
  ProgramOptions options;
};

TEST_F(ZohostTerminal, TheTableIsRedrawnInPlace) {
  Program program(Watch({"/a#/int", "/b#/text"}), options);
  ASSERT_TRUE(WaitForNumber(program, "Hello ", 8));
  program.Type("\x03");
  EXPECT_EQ(program.Wait(), 0);
  const Screen screen = ScreenOf(program.Out());
  EXPECT_EQ(Count(program.Out(), "TAG") > 1, true);  // several frames …
  EXPECT_EQ(Count(screen.Text(), "TAG"), 1);         // … in one place
  const auto lines = screen.Lines();
  ASSERT_EQ(lines.size(), 5u) << screen.Text();
  EXPECT_THAT(lines[0], HasSubstr("x: 2 items every 20ms"));
  EXPECT_THAT(lines[1], testing::MatchesRegex("TAG +VALUE +KIND +AGE +UPDATES +TREND"));
  EXPECT_THAT(lines[2], testing::MatchesRegex("/a#/int +[0-9]+ +int +[0-9.]+s +[0-9]+ +.*▁.*█"));
  EXPECT_THAT(lines[3], testing::MatchesRegex("/b#/text +Hello [0-9]+ +string +[0-9.]+s +[0-9]+"));
  EXPECT_EQ(lines[4], "");
}

TEST_F(ZohostTerminal, EveryWayOutRestoresTheTerminal) {
  const std::vector<std::function<void(Program&)>> ways = {
      [](Program& program) { program.Type("\x03"); }, [](Program& program) { program.Type("q"); },
      [](Program& program) { program.Signal(SIGTERM); }, [](Program& program) { program.Signal(SIGHUP); }};
  for (const auto& way : ways) {
    Program program(Watch({"/a#/int"}), options);
    const termios before = program.FirstTerminalSettings();
    ASSERT_TRUE(WaitForNumber(program, "/a#/int ", 2));
    EXPECT_EQ(program.TerminalSettings().c_lflag & (ECHO | ICANON), 0u);
    EXPECT_NE(program.TerminalSettings().c_lflag & ISIG, 0u);
    EXPECT_FALSE(ScreenOf(program.Out()).cursorShown);
    way(program);
    EXPECT_EQ(program.Wait(), 0);
    ExpectTerminalAsBefore(program, before);
  }
}

TEST_F(ZohostTerminal, CountAndTimeLeaveTheLastTable) {
  for (const std::vector<std::string>& end : {std::vector<std::string>{"--count", "3"}, {"--for", "100ms"}}) {
    auto arguments = Watch({"/a#/int"});
    arguments.insert(arguments.end(), end.begin(), end.end());
    Program program(arguments, options);
    EXPECT_EQ(program.Wait(), 0);
    const Screen screen = ScreenOf(program.Out());
    EXPECT_THAT(screen.Text(), HasSubstr("/a#/int"));
    EXPECT_TRUE(screen.cursorShown);
    if (end[0] == "--count") {
      EXPECT_THAT(screen.Lines()[2], testing::MatchesRegex("/a#/int +2 +int +[0-9.]+s +3 .*"));
    }
  }
}

TEST_F(ZohostTerminal, AQuitSignalRestoresTheTerminalAsWell) {
  Program program(Watch({"/a#/int"}), options);
  const termios before = program.FirstTerminalSettings();
  ASSERT_TRUE(WaitForNumber(program, "/a#/int ", 2));
  program.Signal(SIGQUIT);
  EXPECT_EQ(program.Wait(), -SIGQUIT);
  EXPECT_TRUE(program.TerminalSettings() == before);
  EXPECT_TRUE(ScreenOf(program.Out()).cursorShown);
}

TEST_F(ZohostTerminal, ATerminalThatIsHeldDoesNotKeepItFromEnding) {
  Program program(Watch({"/a#/int"}), options);
  const termios before = program.FirstTerminalSettings();
  ASSERT_TRUE(WaitForNumber(program, "/a#/int ", 2));
  program.Type("\x13");  // Ctrl-S
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_TRUE(program.TerminalSettings() == before);
}

TEST_F(ZohostTerminal, CtrlZGivesTheTerminalBackUntilItGoesOn) {
  Program program(Watch({"/a#/int"}), options);
  const termios before = program.FirstTerminalSettings();
  ASSERT_TRUE(WaitForNumber(program, "/a#/int ", 2));
  program.Type("\x1a");
  ASSERT_TRUE(program.WaitForStop());
  EXPECT_TRUE(program.TerminalSettings() == before);
  ASSERT_TRUE(program.WaitForOut([&](const std::string& out) { return ScreenOf(out).cursorShown; }));
  const auto shown = program.Out().size();
  program.Signal(SIGCONT);
  ASSERT_TRUE(program.WaitForOut(
      [&](const std::string& out) { return out.size() > shown + 200 && !ScreenOf(out).cursorShown; }));
  EXPECT_EQ(program.TerminalSettings().c_lflag & (ECHO | ICANON), 0u);
  program.Type("q");
  EXPECT_EQ(program.Wait(), 0);
  ExpectTerminalAsBefore(program, before);
  EXPECT_EQ(Count(ScreenOf(program.Out()).Text(), "TAG"), 2);  // one from before, one from after
}

TEST_F(ZohostTerminal, OddAndLongValuesStayInTheirCells) {
  Program program(Watch({"/control", "/badutf8", "/wide", "/long", "/nan", "/null", "/invalid", "/uint",
                         "/silent", "/" + std::string(300, 't') + "/int"}),
                  options);
  ASSERT_TRUE(WaitForScreen(program, "18446744073709551615"));
  program.Type("q");
  EXPECT_EQ(program.Wait(), 0);
  const Screen screen = ScreenOf(program.Out());
  EXPECT_EQ(screen.unknown, 0);
  const auto lines = screen.Lines();
  ASSERT_EQ(lines.size(), 13u) << screen.Text();
  EXPECT_THAT(lines[2], HasSubstr("a\\u001b[31mb\\nc\\td\"e,f"));
  EXPECT_THAT(lines[3], HasSubstr("ok\xEF\xBF\xBD\xEF\xBF\xBD!"));
  EXPECT_THAT(lines[4], HasSubstr("漢字かな交じり文"));
  EXPECT_THAT(lines[5], HasSubstr("xxxxx…"));
  EXPECT_THAT(lines[10], HasSubstr("…"));
  EXPECT_THAT(lines[11], HasSubstr("tt/int"));
  for (const std::string& line : lines) {
    EXPECT_LT(zohost::DisplayWidth(line), options.columns) << line;
  }
}

TEST_F(ZohostTerminal, TheTableFollowsTheWindow) {
  Program program(Watch({"/a#/int", "/b#/text"}), options);
  ASSERT_TRUE(WaitForScreen(program, "TREND"));
  program.Resize(30, 10);
  ASSERT_TRUE(program.WaitForOut([&](const std::string& out) {
    const auto frame = out.rfind("\x1b[?7l");
    if (!out.ends_with("\x1b[?7h")) {
      return false;
    }
    Screen narrow(200, 10);
    narrow.Feed(std::string_view(out).substr(frame));
    for (const std::string& line : narrow.Lines()) {
      if (zohost::DisplayWidth(line) >= 30) {
        return false;
      }
    }
    return narrow.Text().find("/a#/int") != std::string::npos;
  }));
  program.Resize(160, 40);
  EXPECT_TRUE(program.WaitForOut([](const std::string& out) {
    return out.rfind("TREND") > out.rfind("/a#/int") - 300 && out.ends_with("\x1b[?7h");
  }));
  program.Type("q");
  EXPECT_EQ(program.Wait(), 0);
}

TEST_F(ZohostTerminal, MoreItemsThanLinesAreCounted) {
  options.rows = 10;
  std::vector<std::string> items;
  for (int item = 0; item < 30; ++item) {
    items.push_back("/r" + std::to_string(item) + "#/int");
  }
  Program program(Watch(items), options);
  ASSERT_TRUE(WaitForScreen(program, "24 more"));
  ASSERT_TRUE(WaitForNumber(program, "/r5#/int ", 3));
  program.Type("q");
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(Count(ScreenOf(program.Out()).Text(), "TAG"), 1);
}

TEST_F(ZohostTerminal, LogLinesStandAboveTheTable) {
  options.errorsOnTerminal = true;
  options.rows = 50;
  Program program(Watch({"/a#/logging", "--log", "error", "--count", "5"}), options);
  EXPECT_EQ(program.Wait(), 0);
  const std::string text = ScreenOf(program.Out()).Text();
  EXPECT_EQ(Count(text, "TAG"), 1) << text;
  for (int line = 0; line < 5; ++line) {
    const auto at = text.find("Line " + std::to_string(line) + ".");
    EXPECT_NE(at, std::string::npos) << text;
    EXPECT_LT(at, text.find("TAG")) << text;
  }
}

TEST_F(ZohostTerminal, AskedForLinesItLeavesTheTerminalAlone) {
  Program program(Watch({"/a#/control", "--format", "csv", "--count", "2"}), options);
  const termios before = program.FirstTerminalSettings();
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_TRUE(program.TerminalSettings() == before);
  EXPECT_THAT(program.Out(), Not(HasSubstr("\x1b")));
  EXPECT_EQ(CountLines(program.Out()), 3u);
}

TEST_F(ZohostTerminal, ATerminalThatCannotMoveGetsLines) {
  options.environment["TERM"] = "dumb";
  Program program(Watch({"/a#/int", "--count", "2"}), options);
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Out(), Not(HasSubstr("\x1b")));
  EXPECT_EQ(CountLines(program.Out()), 2u);
}

TEST_F(ZohostTerminal, WithoutUtf8TheTableIsAscii) {
  options.environment["LC_ALL"] = "C";
  Program program(Watch({"/a#/int", "/long", "/silent", "--count", "8"}), options);
  EXPECT_EQ(program.Wait(), 0);
  for (const char character : program.Out()) {
    ASSERT_GT(character, 0);
  }
  EXPECT_THAT(program.Out(), HasSubstr("xxx~"));
}

}  // namespace
