// Waiting for a state that announces itself by no event.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "tests/support/deadline.h"

namespace ZoTest {

// True as soon as predicate holds; false at the limit.
inline bool Eventually(const std::function<bool()>& predicate, Clock::duration limit = kLimit) {
  const Deadline deadline(limit);
  while (!predicate()) {
    if (deadline.Expired()) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace ZoTest
