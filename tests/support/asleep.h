// Whether a thread waits: what the system tells of it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

#include "tests/support/deadline.h"

namespace ZoTest {

// Whether the system lets a thread of this process sleep.
inline bool IsAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t name = line.rfind(')');
  return name != std::string::npos && line.compare(name, 3, ") S") == 0;
}

// Waits until a thread, whose number is 0 before it has begun, sleeps for longer than the moment that it may take
// elsewhere. False when it has not after a while.
inline bool FallsAsleep(const std::atomic<pid_t>& thread) {
  int looks = 0;
  for (const Deadline deadline; looks < 50 && !deadline.Expired();) {
    looks = thread != 0 && IsAsleep(thread) ? looks + 1 : 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return looks == 50;
}

}  // namespace ZoTest
