// What is printed at the end.
#pragma once

#include <deque>
#include <ostream>

#include "tests/soak/breaches.h"
#include "tests/soak/callboard.h"
#include "tests/soak/facts.h"
#include "tests/soak/keeper.h"
#include "tests/soak/processfigures.h"
#include "tests/soak/watch.h"

namespace ZoSoak {

struct Ends {
  ProcessFigures start;
  ProcessFigures end;
};

void PrintSummary(std::ostream& out, const CallBoard& board, const Tallies& tallies,
                  const std::deque<Keeper>& keepers, const Watch& watch, const Ends& ends,
                  const Breaches& breaches);

}  // namespace ZoSoak
