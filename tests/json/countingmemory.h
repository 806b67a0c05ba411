// Replaces operator new and delete of the program: counts, and fails on demand.
//
// Threads: the counts are exact while one thread runs.
#pragma once

#include <cstddef>

class CountingMemory {
 public:
  // Blocks asked for so far, and those not given back yet.
  static std::size_t Requests();
  static std::size_t Living();

  // The request after so many more raises std::bad_alloc, once.
  static void FailAfter(std::size_t requests);
  // No request fails any more. Whether one has failed since FailAfter.
  static bool StopFailing();
};
