// What the operating system and the allocator say of this process.
#pragma once

#include <cstdint>
#include <string>

namespace ZoSoak {

struct ProcessFigures {
  std::int64_t memory = 0;  // bytes resident
  std::int64_t heap = 0;    // bytes that the program has taken and not given back; 0 under sanitizers
  std::int64_t threads = 0;
  std::int64_t files = 0;  // open descriptors
};

ProcessFigures TakeFigures();

// Every thread with its stack, by gdb where there is one; else by the names and the places in the system where they
// wait. Printed to standard error. Takes some seconds.
void PrintStacks();

}  // namespace ZoSoak
