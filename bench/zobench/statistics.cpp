#include "bench/zobench/statistics.h"

#include <algorithm>
#include <cmath>

namespace ZoBench {

double Quantile(const std::vector<double>& sorted, double share) {
  if (sorted.empty()) {
    return 0;
  }
  const double place = std::clamp(share, 0.0, 1.0) * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(std::floor(place));
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (sorted[above] - sorted[below]) * (place - static_cast<double>(below));
}

Summary Summarize(std::vector<double> values) {
  Summary summary;
  if (values.empty()) {
    return summary;
  }
  std::sort(values.begin(), values.end());
  summary.median = Quantile(values, 0.5);
  summary.lower = Quantile(values, 0.25);
  summary.upper = Quantile(values, 0.75);
  summary.least = values.front();
  summary.most = values.back();
  summary.count = values.size();
  return summary;
}

std::vector<double> Ratios(const std::vector<double>& values, const std::vector<double>& references) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < std::min(values.size(), references.size()); ++i) {
    ratios.push_back(values[i] / references[i]);
  }
  return ratios;
}

Verdict Compare(const Summary& cost, const Summary& other) {
  if (cost.count == 0 || other.count == 0) {
    return Verdict::NoDifference;
  }
  if (cost.upper < other.lower) {
    return Verdict::Faster;
  }
  return cost.lower > other.upper ? Verdict::Slower : Verdict::NoDifference;
}

const char* Text(Verdict verdict) {
  switch (verdict) {
    case Verdict::Faster:
      return "faster";
    case Verdict::Slower:
      return "slower";
    case Verdict::NoDifference:
      break;
  }
  return "no difference";
}

}  // namespace ZoBench
