#include "tools/zohost/lineview.h"

#include <fmt/format.h>

#include "tools/zohost/console.h"
#include "tools/zohost/text.h"
#include "tools/zohost/times.h"

namespace zohost {
namespace {

constexpr std::size_t bufferLimit = 1u << 20;

}  // namespace

std::string FormatLine(const Update& update, LineFormat format) {
  const std::string time = IsoTime(update.time);
  const std::string_view kind = KindName(update.value.Kind());
  switch (format) {
    case LineFormat::jsonl:
      return fmt::format(R"({{"time":"{}","item":{},"kind":"{}","value":{}}})", time, JsonString(update.item),
                         kind, update.value.Json());
    case LineFormat::csv:
      return fmt::format("{},{},{},{}", time, CsvField(update.item), kind, CsvField(update.value.Exact()));
    case LineFormat::plain:
      break;
  }
  return fmt::format("{}  {} = {} ({})", time, Printable(update.item), update.value.ForPeople(), kind);
}

LineView::LineView(Output& out, LineFormat format)
    : out_(out), format_(format), forScreen_(out.IsTerminal()) {
  if (format_ == LineFormat::csv) {
    pending_ = "time,item,kind,value\n";
  }
}

void LineView::Add(const Update& update) {
  const std::string line = FormatLine(update, format_);
  // On a screen nothing from a sensor may act as a command to the terminal.
  pending_ += forScreen_ ? Printable(line) : line;
  pending_ += '\n';
  if (pending_.size() > bufferLimit) {
    Show(Clock::now());
  }
}

void LineView::Show(Clock::time_point) {
  std::string lines;
  lines.swap(pending_);
  out_.Write(lines);
}

void LineView::Tell(std::string_view lines) {
  Console::Tell(lines);
}

void LineView::Finish() {
  Show(Clock::now());
}

}  // namespace zohost
