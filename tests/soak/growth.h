// Whether a figure that is taken every second grows over the run.
//
// Threads: one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ZoSoak {

class Series {
 public:
  // capacity: all memory is taken at once.
  explicit Series(std::size_t capacity);

  void Add(std::int64_t value);

  std::int64_t First() const { return values.empty() ? 0 : values.front(); }
  std::int64_t Most() const;
  std::size_t Count() const { return values.size(); }
  // The median of a quarter of the run, 0 to 3. 0 for fewer than eight values, of which quarters say nothing.
  std::int64_t QuarterMedian(std::size_t quarter) const;
  // By how much the last quarter lies above the second. The first one warms up: names become known, pools fill.
  std::int64_t Growth() const { return QuarterMedian(3) - QuarterMedian(1); }

 private:
  std::vector<std::int64_t> values;
};

}  // namespace ZoSoak
