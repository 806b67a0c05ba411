// One run of several things in turns: A B C A B C ..., so that whatever the machine does meanwhile meets all of them.
#pragma once

#include <functional>
#include <vector>

namespace ZoBench {

// A short block of work; returns what it cost, in the row's unit.
using Block = std::function<double()>;

// One row of costs for each block, in its order. A first round warms up and is left out.
std::vector<std::vector<double>> Interleave(int rounds, const std::vector<Block>& blocks);

}  // namespace ZoBench
