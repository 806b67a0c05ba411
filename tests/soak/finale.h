// The end of a soak, when all sensors are healthy: the last change of an item has to arrive, though nothing follows it and
// the host reads the item at the same time.
#pragma once

#include <cstdint>

#include "tests/soak/hostthread.h"

namespace ZoSoak {

// For one instance of each sensor. Changes are made over REST, where they wait for no export.
// thread: does the reading; nobody else may use the slots.
void ExpectLastChanges(Host& host, HostThread& thread, std::uint64_t seed);

}  // namespace ZoSoak
