#include "bench/zobench/interleave.h"

namespace ZoBench {

std::size_t TurnAt(int round, std::size_t place, std::size_t count) {
  return round % 2 == 0 ? place : count - 1 - place;
}

std::vector<std::vector<double>> Interleave(int rounds, const std::vector<Block>& blocks) {
  std::vector<std::vector<double>> costs(blocks.size());
  for (int round = 0; round <= rounds; ++round) {
    for (std::size_t place = 0; place < blocks.size(); ++place) {
      const std::size_t i = TurnAt(round, place, blocks.size());
      const double cost = blocks[i]();
      if (round > 0) {
        costs[i].push_back(cost);
      }
    }
  }
  return costs;
}

}  // namespace ZoBench
