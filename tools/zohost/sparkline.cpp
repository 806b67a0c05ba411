#include "tools/zohost/sparkline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace zohost {
namespace {

constexpr std::array<std::string_view, 8> bars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<std::string_view, 8> signs = {"_", ".", "-", "~", "=", "+", "*", "#"};

}  // namespace

void Sparkline::Add(std::optional<double> number) {
  if (number && !std::isfinite(*number)) {
    number.reset();
  }
  points_.push_back(number);
  if (points_.size() > capacity) {
    points_.pop_front();
  }
}

bool Sparkline::HasNumbers() const {
  return std::any_of(points_.begin(), points_.end(), [](const auto& point) { return point.has_value(); });
}

std::string Sparkline::Draw(int columns, bool unicode) const {
  const auto shown = std::min(points_.size(), static_cast<std::size_t>(std::max(columns, 0)));
  const auto first = points_.end() - static_cast<std::ptrdiff_t>(shown);
  std::optional<double> low;
  std::optional<double> high;
  for (auto point = first; point != points_.end(); ++point) {
    if (*point) {
      low = low ? std::min(*low, **point) : **point;
      high = high ? std::max(*high, **point) : **point;
    }
  }
  const auto& levels = unicode ? bars : signs;
  std::string line;
  for (auto point = first; point != points_.end(); ++point) {
    if (!*point) {
      line += ' ';
      continue;
    }
    // Halved first: the span of two huge doubles is infinite.
    const double span = *high / 2 - *low / 2;
    const double share = span > 0 ? (**point / 2 - *low / 2) / span : 0.5;
    line += levels[static_cast<std::size_t>(std::clamp(share * 7.0 + 0.5, 0.0, 7.0))];
  }
  return line;
}

}  // namespace zohost
