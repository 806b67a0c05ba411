// The table that a run prints, and the same as JSON.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "bench/zobench/statistics.h"

namespace ZoBench {

struct Row {
  std::string caseName;
  std::string variant;
  std::string placement;  // empty: both cores are free to use
  std::string unit;
  Summary value;
  std::optional<Summary> reference;  // in the same unit
  std::optional<Summary> ratio;      // value to reference, round by round
  std::optional<double> budget;
  bool ofRatio = false;  // the budget is one of the ratio, not of the value
  bool atLeast = false;  // the budget is a lower bound
  std::string note;      // a verdict, or why there is no figure

  bool IsMeasured() const { return value.count != 0; }
  // Whether the median keeps to the budget; true without one.
  bool KeepsBudget() const;
};

class Report {
 public:
  // Prints the row at once.
  explicit Report(std::ostream& out) : out(out) {}

  void Add(Row row);
  // Says what stands in the columns.
  void PrintHead() const;
  std::string Json() const;
  bool HasRefusals() const;

 private:
  std::ostream& out;
  std::vector<Row> rows;
};

// Compiler, processor, date and so on, as one JSON object.
std::string EnvironmentJson();

}  // namespace ZoBench
