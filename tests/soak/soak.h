// A whole run: sensors, instances, host threads, faults, the watch, and the comparison of the end with the beginning.
//
// Threads: one. Owner: main.
#pragma once

#include <ostream>

#include "tests/soak/options.h"

namespace ZoSoak {

// The exit status: 0, or 1 after any breach. Raises std::runtime_error when the run could not be made.
int RunSoak(const Options& options, std::ostream& out);

}  // namespace ZoSoak
