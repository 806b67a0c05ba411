// A watch as lines, one for each update: plain text, JSON or CSV.
//
// Threads: main thread only.
// Invariant: after Show nothing waits in a buffer.
#pragma once

#include <string>

#include "tools/zohost/output.h"
#include "tools/zohost/watchview.h"

namespace zohost {

enum class LineFormat { plain, jsonl, csv };

std::string FormatLine(const Update& update, LineFormat format);

class LineView : public WatchView {
 public:
  LineView(Output& out, LineFormat format);

  void Add(const Update& update) override;
  void Show(Clock::time_point now) override;
  std::optional<Clock::time_point> NextShow() const override { return std::nullopt; }
  void Tell(std::string_view lines) override;
  void Finish() override;

 private:
  Output& out_;
  const LineFormat format_;
  const bool forScreen_;
  std::string pending_;
};

}  // namespace zohost
