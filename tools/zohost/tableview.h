// A watch as a table that is redrawn in place on the terminal, without taking the whole screen.
//
// Threads: main thread only.
// Invariants: 1. between frames the cursor stands at the start of the line below the table; 2. nothing is
// drawn while the process is in the background; 3. Finish or the destructor leave the last table and a whole
// terminal.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "tools/zohost/output.h"
#include "tools/zohost/sparkline.h"
#include "tools/zohost/tablelayout.h"
#include "tools/zohost/terminal.h"
#include "tools/zohost/watchview.h"

namespace zohost {

class TableView : public WatchView {
 public:
  // title: what is watched, and how; items: the rows, in this order.
  TableView(Output& out, std::string title, const std::vector<std::string>& items);

  void Add(const Update& update) override;
  void Show(Clock::time_point now) override;
  std::optional<Clock::time_point> NextShow() const override;
  void Tell(std::string_view lines) override;
  void Resized() override { dirty_ = true; }
  void Suspend() override;
  void Resume() override;
  int KeyNumber() const override { return terminal_.KeyNumber(); }
  bool TakeEndKey() override;
  void Finish() override;

 private:
  struct Row {
    std::string tag;
    Value value;
    std::uint64_t updates = 0;
    Clock::time_point last;
    Sparkline trend;
  };

  Row& Find(const std::string& item);
  void Draw(Clock::time_point now, bool last);
  std::string Rewind(int columns) const;
  std::vector<TableRow> Rows(Clock::time_point now);
  std::string Title(Clock::time_point now, bool last) const;

  Output& out_;
  const std::string title_;
  const bool unicode_;
  const Clock::time_point start_;
  Terminal terminal_;
  std::vector<Row> rows_;
  std::unordered_map<std::string, std::size_t> index_;
  int widestValue_ = 0;
  bool dirty_ = true;
  Clock::time_point drawn_;
  std::vector<int> drawnWidths_;  // of the lines that are on the screen
};

}  // namespace zohost
