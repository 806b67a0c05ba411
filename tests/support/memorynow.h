// How much memory this process holds.
#pragma once

#include <cstddef>
#include <fstream>
#include <string>

namespace ZoTest {

// Resident, in bytes; 0 where the system does not tell.
inline std::size_t MemoryNow() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) {
      return std::stoul(line.substr(6)) * 1024;
    }
  }
  return 0;
}

}  // namespace ZoTest
