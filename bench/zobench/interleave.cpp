#include "bench/zobench/interleave.h"

namespace ZoBench {

std::vector<std::vector<double>> Interleave(int rounds, const std::vector<Block>& blocks) {
  std::vector<std::vector<double>> costs(blocks.size());
  for (int round = 0; round <= rounds; ++round) {
    for (std::size_t i = 0; i < blocks.size(); ++i) {
      const double cost = blocks[i]();
      if (round > 0) {
        costs[i].push_back(cost);
      }
    }
  }
  return costs;
}

}  // namespace ZoBench
