// The last values of an item as a line of bars, scaled between the lowest and the highest of them.
//
// Threads: a plain value of the main thread.
// Invariant: keeps at most `capacity` points; the oldest goes first.
#pragma once

#include <deque>
#include <optional>
#include <string>

namespace zohost {

class Sparkline {
 public:
  static constexpr int capacity = 40;

  // An update without a number (a string, an invalid value, NaN, an infinity) is a gap.
  void Add(std::optional<double> number);
  bool HasNumbers() const;
  // The newest points, at most `columns` of them, one column each. Without Unicode the bars are ASCII signs.
  std::string Draw(int columns, bool unicode) const;

 private:
  std::deque<std::optional<double>> points_;
};

}  // namespace zohost
