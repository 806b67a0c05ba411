// The table of a watch as lines of text, for a terminal of a given size. Pure: no terminal is touched here.
//
// Threads: pure functions over plain values.
#pragma once

#include <string>
#include <vector>

#include "tools/zohost/sparkline.h"

namespace zohost {

// A row; the texts are printable already.
struct TableRow {
  std::string tag;
  std::string value;
  std::string kind;
  std::string age;
  std::string updates;
  const Sparkline* trend = nullptr;
  bool faint = false;
};

struct TableStyle {
  int columns = 80;
  int rows = 24;  // lines that the whole table may take
  bool unicode = true;
};

// Widths of the columns; 0 for a column that has no room.
struct TableColumns {
  int tag = 0;
  int value = 0;
  int kind = 0;
  int age = 0;
  int updates = 0;
  int trend = 0;
};

// A line with the columns that it takes once its colours are not counted.
struct TableLine {
  std::string text;
  int width = 0;
};

// Narrow terminals lose the trend first, then updates, age and kind; tag and value share what is left.
TableColumns PlanColumns(int columns, int widestTag, int widestValue);

// widestValue: the widest value so far, so that columns do not jump about with every update.
std::vector<TableLine> DrawTable(const std::string& title, const std::vector<TableRow>& rows, int widestValue,
                                 const TableStyle& style);

}  // namespace zohost
