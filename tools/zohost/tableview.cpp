#include "tools/zohost/tableview.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "tools/zohost/console.h"
#include "tools/zohost/text.h"
#include "tools/zohost/times.h"

namespace zohost {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds quickest(50);    // between two frames
constexpr milliseconds slowest(500);    // ages go on without updates
constexpr std::size_t lookedAt = 2048;  // bytes of a long string; no terminal shows more
constexpr std::string_view eraseBelow = "\x1b[J";
constexpr std::string_view eraseRest = "\x1b[K";
// Without wrapping, a character that is wider than expected cannot spoil the lines below.
constexpr std::string_view wrapOff = "\x1b[?7l";
constexpr std::string_view wrapOn = "\x1b[?7h";

}  // namespace

TableView::TableView(Output& out, std::string title, const std::vector<std::string>& items)
    : out_(out),
      title_(std::move(title)),
      unicode_(LocaleIsUtf8()),
      start_(Clock::now()),
      terminal_(out.Number()) {
  for (const std::string& item : items) {
    Find(item);
  }
  terminal_.Enter();
}

TableView::Row& TableView::Find(const std::string& item) {
  const auto [found, added] = index_.try_emplace(item, rows_.size());
  if (added) {
    rows_.emplace_back().tag = Printable(item);
  }
  return rows_[found->second];
}

void TableView::Add(const Update& update) {
  Row& row = Find(update.item);
  row.value = update.value;
  row.last = Clock::now();
  row.trend.Add(update.value.AsNumber());
  ++row.updates;
  dirty_ = true;
}

std::optional<WatchView::Clock::time_point> TableView::NextShow() const {
  return drawn_ + (dirty_ ? quickest : slowest);
}

void TableView::Show(Clock::time_point now) {
  if (now >= *NextShow()) {
    Draw(now, false);
  }
}

void TableView::Draw(Clock::time_point now, bool last) {
  drawn_ = now;
  if (!terminal_.IsForeground()) {
    return;
  }
  terminal_.Enter();
  const TerminalSize size = terminal_.Size();
  TableStyle style;
  style.columns = size.columns;
  style.rows = std::max(size.rows - 1, 3);
  style.unicode = unicode_;
  const std::vector<TableRow> rows = Rows(now);
  std::string frame = Rewind(size.columns);
  frame += wrapOff;
  drawnWidths_.clear();
  for (const TableLine& line : DrawTable(Title(now, last), rows, widestValue_, style)) {
    frame.append(line.text).append(eraseRest).append("\r\n");
    drawnWidths_.push_back(line.width);
  }
  frame.append(eraseBelow).append(wrapOn);
  dirty_ = false;
  out_.Write(frame);
}

// To the first line of what is on the screen. A window that became narrower has wrapped the lines.
std::string TableView::Rewind(int columns) const {
  int lines = 0;
  for (const int width : drawnWidths_) {
    lines += 1 + std::max(width - 1, 0) / std::max(columns, 1);
  }
  return lines > 0 ? fmt::format("\r\x1b[{}A", lines) : "\r";
}

std::vector<TableRow> TableView::Rows(Clock::time_point now) {
  std::vector<TableRow> rows;
  rows.reserve(rows_.size());
  for (const Row& row : rows_) {
    TableRow drawn;
    drawn.tag = row.tag;
    drawn.updates = fmt::format("{}", row.updates);
    drawn.trend = &row.trend;
    if (row.updates == 0) {
      drawn.value = unicode_ ? "…" : "-";
      drawn.faint = true;
    } else {
      drawn.value = row.value.ForPeople(lookedAt);
      drawn.kind = KindName(row.value.Kind());
      drawn.age = ShortDuration(std::chrono::duration_cast<milliseconds>(now - row.last));
      drawn.faint = row.value.Kind() == enumtype_invalid;
    }
    widestValue_ = std::max(widestValue_, DisplayWidth(drawn.value));
    rows.push_back(std::move(drawn));
  }
  return rows;
}

std::string TableView::Title(Clock::time_point now, bool last) const {
  const std::string running = ShortDuration(std::chrono::duration_cast<milliseconds>(now - start_));
  return fmt::format("{}, {}{}", title_, running,
                     last                         ? ""
                     : terminal_.KeyNumber() >= 0 ? " (q ends)"
                                                  : " (Ctrl-C ends)");
}

void TableView::Tell(std::string_view lines) {
  if (lines.empty()) {
    return;
  }
  if (isatty(STDERR_FILENO) == 1 && terminal_.IsForeground()) {
    // The lines take the table's place, and the table goes on below them.
    out_.Write(Rewind(terminal_.Size().columns).append(eraseBelow));
    drawnWidths_.clear();
    Console::Tell(lines);
    Draw(Clock::now(), false);
    return;
  }
  Console::Tell(lines);
}

void TableView::Suspend() {
  terminal_.Leave();
}

void TableView::Resume() {
  drawnWidths_.clear();  // the shell has written below the table, so it starts anew
  dirty_ = true;
  if (terminal_.IsForeground()) {
    terminal_.Enter();
  }
}

bool TableView::TakeEndKey() {
  const std::optional<char> key = terminal_.TakeKey();
  // NOLINTNEXTLINE(misc-redundant-expression): clang-tidy 14 takes the three keys for one
  return key == 'q' || key == 'Q' || key == '\x04';
}

void TableView::Finish() {
  Draw(Clock::now(), true);
  terminal_.Leave();
}

}  // namespace zohost
