#include "bench/zobench/report.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace ZoBench;

Row Measured(std::vector<double> values) {
  Row row;
  row.caseName = "read";
  row.variant = "200 B";
  row.unit = "us";
  row.value = Summarize(std::move(values));
  return row;
}

TEST(ZobenchReport, BudgetsOfAValueBoundItsMedian) {
  Row row = Measured({1, 2, 30});
  row.budget = 2;
  EXPECT_TRUE(row.KeepsBudget());
  row.budget = 1.9;
  EXPECT_FALSE(row.KeepsBudget());
}

TEST(ZobenchReport, BudgetsOfARatioDoNotLookAtTheValue) {
  Row row = Measured({500});
  row.ratio = Summarize({1.5});
  row.budget = 1.8;
  row.ofRatio = true;
  EXPECT_TRUE(row.KeepsBudget());
}

TEST(ZobenchReport, LowerBoundsAreMissedFromBelow) {
  Row row = Measured({0.3});
  row.budget = 0.35;
  row.atLeast = true;
  EXPECT_FALSE(row.KeepsBudget());
}

TEST(ZobenchReport, MissedBudgetsAreSaid) {
  std::ostringstream out;
  Report report(out);
  Row row = Measured({3});
  row.budget = 2;
  report.Add(row);
  EXPECT_NE(out.str().find("MISSES <= 2"), std::string::npos) << out.str();
  EXPECT_FALSE(report.HasRefusals());
}

TEST(ZobenchReport, RowsWithoutFiguresAreRefusalsWithTheirReason) {
  std::ostringstream out;
  Report report(out);
  Row row = Measured({});
  row.note = "a read delivered another value";
  report.Add(row);
  EXPECT_TRUE(report.HasRefusals());
  EXPECT_NE(out.str().find("refused"), std::string::npos);
  EXPECT_NE(out.str().find("a read delivered another value"), std::string::npos);
  EXPECT_NE(report.Json().find("\"value\": null"), std::string::npos);
}

TEST(ZobenchReport, JsonEscapesWhatNotesSay) {
  std::ostringstream out;
  Report report(out);
  Row row = Measured({1});
  row.note = "said \"no\" \\ \n";
  report.Add(row);
  EXPECT_NE(report.Json().find(R"("note": "said \"no\" \\ \u000a")"), std::string::npos) << report.Json();
}

}  // namespace
