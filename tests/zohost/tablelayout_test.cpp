#include "tools/zohost/tablelayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/zohost/text.h"

namespace zohost {
namespace {

using testing::HasSubstr;

// The line without its colours.
std::string Plain(const TableLine& line) {
  std::string text = line.text;
  for (auto at = text.find('\x1b'); at != std::string::npos; at = text.find('\x1b')) {
    text.erase(at, text.find('m', at) - at + 1);
  }
  return text;
}

struct Table {
  Sparkline trend;
  std::vector<TableRow> rows;

  Table(int count, const std::string& tag, const std::string& value) {
    for (int point = 0; point < Sparkline::capacity; ++point) {
      trend.Add(point);
    }
    for (int row = 0; row < count; ++row) {
      rows.push_back({tag + std::to_string(row), value, "int", "0.1s", "12", &trend, false});
    }
  }
};

TEST(PlanColumns, AWideTerminalHasRoomForEverything) {
  const TableColumns plan = PlanColumns(120, 20, 10);
  EXPECT_EQ(plan.tag, 20);
  EXPECT_EQ(plan.value, 10);
  EXPECT_EQ(plan.kind, 7);
  EXPECT_EQ(plan.age, 5);
  EXPECT_EQ(plan.updates, 7);
  EXPECT_GE(plan.trend, 20);
}

TEST(PlanColumns, NarrowTerminalsLoseTheLeastImportantFirst) {
  int trend = 0;
  int updates = 0;
  int age = 0;
  int kind = 0;
  for (int columns = 1; columns < 120; ++columns) {
    const TableColumns plan = PlanColumns(columns, 18, 12);
    EXPECT_TRUE(plan.trend == 0 || plan.updates > 0);
    EXPECT_TRUE(plan.updates == 0 || plan.age > 0);
    EXPECT_TRUE(plan.age == 0 || plan.kind > 0);
    trend += plan.trend > 0;
    updates += plan.updates > 0;
    age += plan.age > 0;
    kind += plan.kind > 0;
  }
  EXPECT_LT(0, trend);
  EXPECT_LT(trend, updates);
  EXPECT_LT(updates, age);
  EXPECT_LT(age, kind);
}

TEST(PlanColumns, LongTagsAndValuesLeaveRoomForEachOther) {
  const TableColumns plan = PlanColumns(80, 500, 100'000);
  EXPECT_GE(plan.tag, 18);
  EXPECT_GE(plan.value, 12);
}

TEST(DrawTable, NoLineIsAsWideAsTheTerminal) {
  for (const std::string tag :
       {"/t", "/漢字/かな#/交じり/文章/です", "/a/very/long/name#/that/goes/on/and/on/and/on/"}) {
    for (const std::string value :
         {"5", "漢字かな交じり文漢字かな交じり文", "a long value that needs much room to be seen"}) {
      const Table table(3, tag, value);
      for (int columns = 5; columns < 140; ++columns) {
        for (const TableLine& line :
             DrawTable("title", table.rows, DisplayWidth(value), {columns, 24, true})) {
          EXPECT_LT(line.width, columns) << line.text;
          EXPECT_EQ(line.width, DisplayWidth(Plain(line)));
        }
      }
    }
  }
}

TEST(DrawTable, ColumnsStandBelowEachOther) {
  Table table(2, "/tag#/", "1");
  table.rows[1].value = "漢字";
  const auto lines = DrawTable("title", table.rows, 4, {100, 24, true});
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(Plain(lines[0]), "title");
  const auto columnOf = [](const std::string& line, const std::string& word) {
    return DisplayWidth(line.substr(0, line.find(word)));
  };
  EXPECT_EQ(columnOf(Plain(lines[1]), "KIND"), columnOf(Plain(lines[2]), "int"));
  EXPECT_EQ(columnOf(Plain(lines[1]), "KIND"), columnOf(Plain(lines[3]), "int"));
  EXPECT_EQ(columnOf(Plain(lines[1]), "UPDATES"), columnOf(Plain(lines[3]), "12"));
}

TEST(DrawTable, ALongTagKeepsItsEnd) {
  const Table table(1, std::string(200, 'x') + "/speed", "1");
  EXPECT_THAT(Plain(DrawTable("title", table.rows, 1, {60, 24, true})[2]), HasSubstr("x/speed0"));
}

TEST(DrawTable, ALowTerminalSaysHowManyRowsAreMissing) {
  const Table table(30, "/tag#/", "1");
  const auto lines = DrawTable("title", table.rows, 1, {80, 10, true});
  ASSERT_EQ(lines.size(), 10u);
  EXPECT_THAT(Plain(lines[8]), HasSubstr("/tag#/6"));
  EXPECT_THAT(Plain(lines[9]), HasSubstr("23 more"));
  EXPECT_EQ(DrawTable("title", table.rows, 1, {80, 32, true}).size(), 32u);
}

TEST(DrawTable, WithoutUnicodeEveryByteIsAscii) {
  const Table table(3, std::string(100, 't'), std::string(100, 'v'));
  for (const TableLine& line : DrawTable("title", table.rows, 100, {60, 24, false})) {
    for (const char character : line.text) {
      EXPECT_GT(character, 0) << line.text;
    }
  }
}

}  // namespace
}  // namespace zohost
