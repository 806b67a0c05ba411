// What is said about a row of measurements: its median and quartiles, and whether two rows differ.
#pragma once

#include <cstddef>
#include <vector>

namespace ZoBench {

struct Summary {
  double median = 0;
  double lower = 0;  // first quartile
  double upper = 0;  // third quartile
  double least = 0;
  double most = 0;
  std::size_t count = 0;
};

// Quantile of sorted values, between neighbours by their distance. share is 0 to 1; 0 for no values.
double Quantile(const std::vector<double>& sorted, double share);

Summary Summarize(std::vector<double> values);

// Each value divided by the one of the same round. Rounds that the shorter row does not have are left out.
std::vector<double> Ratios(const std::vector<double>& values, const std::vector<double>& references);

enum class Verdict { Faster, Slower, NoDifference };

// Judges costs: less is faster. The interquartile ranges must be apart, otherwise there is no difference to speak of.
Verdict Compare(const Summary& cost, const Summary& other);

const char* Text(Verdict verdict);

}  // namespace ZoBench
