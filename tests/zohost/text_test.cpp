#include "tools/zohost/text.h"

#include <gtest/gtest.h>

#include "tools/zohost/sparkline.h"
#include "tools/zohost/times.h"
#include "tools/zohost/usageerror.h"

namespace zohost {
namespace {

using std::chrono::milliseconds;

TEST(Text, InvalidUtf8IsReplaced) {
  EXPECT_EQ(ValidUtf8("ä€😀"), "ä€😀");
  const char* broken[] = {"\xff",     "\x80",         "\xc0\xaf",         "\xc3",
                          "\xe2\x82", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf0\x80\x80\x80"};
  for (const char* text : broken) {
    const std::string repaired = ValidUtf8(text);
    EXPECT_EQ(repaired.find_first_not_of("\xEF\xBF\xBD"), std::string::npos) << repaired;
    EXPECT_FALSE(repaired.empty());
  }
  EXPECT_EQ(ValidUtf8("a\xe2\x82z"), "a\xEF\xBF\xBD\xEF\xBF\xBDz");
}

TEST(Text, ActingCharactersAreMadeVisible) {
  EXPECT_EQ(Printable("a\tb\r\nc"), "a\\tb\\r\\nc");
  EXPECT_EQ(Printable("\x1b[31m"), "\\u001b[31m");
  EXPECT_EQ(Printable("\x7f"), "\\u007f");
  EXPECT_EQ(Printable("\xc2\x9b"), "\\u009b");      // C1: an escape sequence in one character
  EXPECT_EQ(Printable("\xe2\x80\xae"), "\\u202e");  // would turn its neighbours around
  EXPECT_EQ(Printable("\xef\xbb\xbf"), "\\ufeff");
  EXPECT_EQ(Printable(std::string_view("\0", 1)), "\\u0000");
  EXPECT_EQ(Printable("Öl °C 漢"), "Öl °C 漢");
}

TEST(Text, WidthsAreThoseOfATerminal) {
  EXPECT_EQ(DisplayWidth(""), 0);
  EXPECT_EQ(DisplayWidth("abc"), 3);
  EXPECT_EQ(DisplayWidth("äöü"), 3);
  EXPECT_EQ(DisplayWidth("漢字"), 4);
  EXPECT_EQ(DisplayWidth("😀"), 2);
  EXPECT_EQ(DisplayWidth("e\xcc\x81"), 1);  // e and a combining accent
  EXPECT_EQ(DisplayWidth("▁▂▃█…"), 5);
}

TEST(Text, FittingNeverExceedsTheWidth) {
  for (const std::string text : {"abcdefghij", "漢字かな交じ", "a漢b字c", "e\xcc\x81x\xcc\x81y", ""}) {
    for (int columns = 0; columns < 14; ++columns) {
      for (const std::string mark : {"…", "~"}) {
        EXPECT_LE(DisplayWidth(FitStart(text, columns, mark)), columns) << text << columns;
        EXPECT_LE(DisplayWidth(FitEnd(text, columns, mark)), columns) << text << columns;
      }
    }
  }
}

TEST(Text, FittingKeepsTheStartOrTheEnd) {
  EXPECT_EQ(FitStart("abcdef", 4, "…"), "abc…");
  EXPECT_EQ(FitEnd("abcdef", 4, "…"), "…def");
  EXPECT_EQ(FitStart("abcd", 4, "…"), "abcd");
  EXPECT_EQ(FitEnd("abcd", 4, "…"), "abcd");
  EXPECT_EQ(FitStart("漢字漢字", 6, "~"), "漢字~");
  EXPECT_EQ(FitEnd("xe\xcc\x81y", 2, "~"), "~y");
}

TEST(Text, JsonStringsAreQuoted) {
  EXPECT_EQ(JsonString("plain"), "\"plain\"");
  EXPECT_EQ(JsonString("\"\\\n\t\x7f"), "\"\\\"\\\\\\n\\u0009\\u007f\"");
  EXPECT_EQ(JsonString("\xff"), "\"\xEF\xBF\xBD\"");
}

TEST(Text, CsvFieldsAreQuotedWhenTheyMust) {
  EXPECT_EQ(CsvField("plain"), "plain");
  EXPECT_EQ(CsvField(""), "");
  EXPECT_EQ(CsvField("a,b"), "\"a,b\"");
  EXPECT_EQ(CsvField("say \"hi\""), "\"say \"\"hi\"\"\"");
  EXPECT_EQ(CsvField("two\nlines"), "\"two\nlines\"");
  EXPECT_EQ(CsvField(" edge"), "\" edge\"");
}

TEST(Times, DurationsHaveUnits) {
  EXPECT_EQ(ParseDuration("200ms"), milliseconds(200));
  EXPECT_EQ(ParseDuration("10s"), milliseconds(10'000));
  EXPECT_EQ(ParseDuration("1.5min"), milliseconds(90'000));
  EXPECT_EQ(ParseDuration("2h"), milliseconds(7'200'000));
  EXPECT_EQ(ParseDuration("0ms"), milliseconds(0));
  EXPECT_EQ(ParseDuration("0.0006s"), milliseconds(1));
  for (const char* text :
       {"", "5", "ms", "-1s", "-0s", "1m", "1 s", "1sec", "1e3s", "infs", "nans", "99999h", "1e400s"}) {
    EXPECT_THROW(ParseDuration(text), UsageError) << text;
  }
}

TEST(Times, TimeStampsAreIsoInUtcWithMilliseconds) {
  using Time = std::chrono::system_clock::time_point;
  EXPECT_EQ(IsoTime(Time()), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(IsoTime(Time(milliseconds(1'740'830'400'005))), "2025-03-01T12:00:00.005Z");
  EXPECT_EQ(IsoTime(Time(milliseconds(-1))), "1969-12-31T23:59:59.999Z");
}

TEST(Times, ShortDurationsFitTheirColumn) {
  EXPECT_EQ(ShortDuration(milliseconds(0)), "0.0s");
  EXPECT_EQ(ShortDuration(milliseconds(9'940)), "9.9s");
  EXPECT_EQ(ShortDuration(milliseconds(9'960)), "9s");
  EXPECT_EQ(ShortDuration(milliseconds(59'999)), "59s");
  EXPECT_EQ(ShortDuration(milliseconds(60'000)), "1min");
  EXPECT_EQ(ShortDuration(milliseconds(47 * 3'600'000)), "47h");
  EXPECT_EQ(ShortDuration(milliseconds(std::int64_t{99} * 86'400'000)), "99d");
  EXPECT_EQ(ShortDuration(milliseconds(-5)), "0.0s");
}

TEST(Sparkline, ScalesBetweenTheLowestAndTheHighest) {
  Sparkline line;
  for (int point = 0; point < 8; ++point) {
    line.Add(point * 10.0);
  }
  EXPECT_EQ(line.Draw(8, true), "▁▂▃▄▅▆▇█");
  EXPECT_EQ(line.Draw(8, false), "_.-~=+*#");
}

TEST(Sparkline, ShowsTheNewestPoints) {
  Sparkline line;
  for (int point = 0; point < 100; ++point) {
    line.Add(point == 97 ? 1.0 : 0.0);
  }
  EXPECT_EQ(line.Draw(4, false), "_#__");
  EXPECT_EQ(DisplayWidth(line.Draw(1000, true)), Sparkline::capacity);
  EXPECT_EQ(line.Draw(0, true), "");
  EXPECT_EQ(line.Draw(-1, true), "");
}

TEST(Sparkline, GapsStandForWhatIsNoNumber) {
  Sparkline line;
  EXPECT_FALSE(line.HasNumbers());
  line.Add(std::nullopt);
  line.Add(std::numeric_limits<double>::quiet_NaN());
  line.Add(std::numeric_limits<double>::infinity());
  EXPECT_FALSE(line.HasNumbers());
  line.Add(0.0);
  line.Add(1.0);
  EXPECT_TRUE(line.HasNumbers());
  EXPECT_EQ(line.Draw(10, false), "   _#");
}

TEST(Sparkline, ConstantsAndHugeSpansAreDrawn) {
  Sparkline constant;
  constant.Add(5.0);
  constant.Add(5.0);
  EXPECT_EQ(constant.Draw(2, false), "==");
  Sparkline huge;
  huge.Add(-std::numeric_limits<double>::max());
  huge.Add(std::numeric_limits<double>::max());
  EXPECT_EQ(huge.Draw(2, false), "_#");
}

}  // namespace
}  // namespace zohost
