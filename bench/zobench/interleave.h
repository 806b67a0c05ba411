// One run of several things in turns, so that whatever the machine does meanwhile meets all of them.
//
// Every other round goes backwards, A B C C B A ..., so that none of them always comes behind the same one: what a block
// leaves behind in caches and allocators would count for or against its successor.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

namespace ZoBench {

// A short block of work; returns what it cost, in the row's unit.
using Block = std::function<double()>;

// Which of count things has its turn at this place of a round.
std::size_t TurnAt(int round, std::size_t place, std::size_t count);

// One row of costs for each block, in its order. A first round warms up and is left out.
std::vector<std::vector<double>> Interleave(int rounds, const std::vector<Block>& blocks);

}  // namespace ZoBench
