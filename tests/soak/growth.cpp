#include "tests/soak/growth.h"

#include <algorithm>

namespace ZoSoak {

Series::Series(std::size_t capacity) {
  values.reserve(capacity);
}

void Series::Add(std::int64_t value) {
  if (values.size() < values.capacity()) {
    values.push_back(value);
  }
}

std::int64_t Series::Most() const {
  return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}

std::int64_t Series::QuarterMedian(std::size_t quarter) const {
  if (values.size() < 8) {
    return 0;
  }
  const auto at = [this](std::size_t index) { return values.begin() + static_cast<std::ptrdiff_t>(index); };
  std::vector<std::int64_t> part(at(values.size() * quarter / 4), at(values.size() * (quarter + 1) / 4));
  const auto middle = part.begin() + static_cast<std::ptrdiff_t>(part.size() / 2);
  std::nth_element(part.begin(), middle, part.end());
  return *middle;
}

}  // namespace ZoSoak
