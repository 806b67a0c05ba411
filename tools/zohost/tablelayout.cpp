#include "tools/zohost/tablelayout.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "tools/zohost/text.h"

namespace zohost {
namespace {

constexpr int gap = 2;
constexpr std::string_view bold = "\x1b[1m";
constexpr std::string_view faint = "\x1b[2m";
constexpr std::string_view normal = "\x1b[0m";

// Puts cells side by side; a cell without a width is left out, and so are spaces at the end.
class Line {
 public:
  void Add(const std::string& cell, int width) {
    if (width > 0) {
      text_ += Padded(std::string(static_cast<std::size_t>(text_.empty() ? 0 : gap), ' ') + cell,
                      text_.empty() ? width : width + gap);
    }
  }
  TableLine Styled(std::string_view style) const {
    const std::string text = text_.substr(0, text_.find_last_not_of(' ') + 1);
    return {style.empty() ? text : fmt::format("{}{}{}", style, text, normal), DisplayWidth(text)};
  }

 private:
  std::string text_;
};

std::string_view Mark(bool unicode) {
  return unicode ? "…" : "~";
}

TableLine DrawRow(const TableRow& row, const TableColumns& columns, bool unicode) {
  Line line;
  line.Add(FitEnd(row.tag, columns.tag, Mark(unicode)), columns.tag);
  line.Add(FitStart(row.value, columns.value, Mark(unicode)), columns.value);
  line.Add(row.kind, columns.kind);
  line.Add(row.age, columns.age);
  line.Add(row.updates, columns.updates);
  if (row.trend != nullptr) {
    line.Add(row.trend->Draw(columns.trend, unicode), columns.trend);
  }
  return line.Styled(row.faint ? faint : "");
}

TableLine DrawHeader(const TableColumns& columns, bool unicode) {
  Line line;
  line.Add(FitStart("TAG", columns.tag, Mark(unicode)), columns.tag);
  line.Add(FitStart("VALUE", columns.value, Mark(unicode)), columns.value);
  line.Add(FitStart("KIND", columns.kind, Mark(unicode)), columns.kind);
  line.Add(FitStart("AGE", columns.age, Mark(unicode)), columns.age);
  line.Add(FitStart("UPDATES", columns.updates, Mark(unicode)), columns.updates);
  line.Add(FitStart("TREND", columns.trend, Mark(unicode)), columns.trend);
  return line.Styled(bold);
}

TableLine Note(const std::string& text, int columns, bool unicode) {
  const std::string fitted = FitStart(text, columns, Mark(unicode));
  return {fmt::format("{}{}{}", faint, fitted, normal), DisplayWidth(fitted)};
}

}  // namespace

TableColumns PlanColumns(int columns, int widestTag, int widestValue) {
  const int usable = std::max(columns - 1, gap + 2);
  // 24 columns hold every number, and a number that is cut would be another one.
  TableColumns plan = {std::min(widestTag, 18), std::min(widestValue, 24), 7, 5, 7, 8};
  const auto free = [&] {
    int taken = plan.tag + gap + plan.value;
    for (const int width : {plan.kind, plan.age, plan.updates, plan.trend}) {
      taken += width > 0 ? width + gap : 0;
    }
    return usable - taken;
  };
  for (int* optional : {&plan.trend, &plan.updates, &plan.age, &plan.kind}) {
    if (free() < 0) {
      *optional = 0;
    }
  }
  if (free() < 0) {
    // Not even the two have room: half for each, and what one does not need for the other.
    const int room = usable - gap;
    plan.value = std::min(plan.value, std::max(room / 2, room - plan.tag));
    plan.tag = std::min(plan.tag, room - plan.value);
    return plan;
  }
  const auto grow = [&](int& width, int wanted) { width += std::clamp(wanted - width, 0, free()); };
  grow(plan.tag, std::min(widestTag, 40));
  grow(plan.value, std::min(widestValue, 30));
  if (plan.trend > 0) {
    grow(plan.trend, 20);
  }
  grow(plan.tag, widestTag);
  grow(plan.value, widestValue);
  if (plan.trend > 0) {
    grow(plan.trend, Sparkline::capacity);
  }
  return plan;
}

std::vector<TableLine> DrawTable(const std::string& title, const std::vector<TableRow>& rows, int widestValue,
                                 const TableStyle& style) {
  int widestTag = DisplayWidth("TAG");
  for (const TableRow& row : rows) {
    widestTag = std::max(widestTag, DisplayWidth(row.tag));
  }
  const TableColumns columns =
      PlanColumns(style.columns, widestTag, std::max(widestValue, DisplayWidth("VALUE")));
  std::vector<TableLine> lines = {Note(title, style.columns - 1, style.unicode),
                                  DrawHeader(columns, style.unicode)};
  const auto room = static_cast<std::size_t>(std::max(style.rows - static_cast<int>(lines.size()), 1));
  const bool all = rows.size() <= room;
  const std::size_t shown = all ? rows.size() : std::max<std::size_t>(room - 1, 1);
  for (std::size_t index = 0; index < shown; ++index) {
    lines.push_back(DrawRow(rows[index], columns, style.unicode));
  }
  if (!all) {
    lines.push_back(Note(fmt::format("and {} more; a taller window shows them", rows.size() - shown),
                         style.columns - 1, style.unicode));
  }
  return lines;
}

}  // namespace zohost
