// How long to wait before the next attempt to restore the session.
//
// The first attempt is made at once, later ones after 100 ms, doubling to 3 s, each shortened by up to a
// quarter at random so that many links that lost one sensor do not come back in step. A session that stayed
// healthy for 10 s starts the series over; one that broke sooner goes on with it. Threads: the link's driver
// alone.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <random>

#include "zovyrnsdk/link/clock.h"
#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

class Backoff {
 public:
  explicit Backoff(std::uint32_t seed) : random(seed) {}

  void SessionLasted(Duration duration) {
    if (duration >= healthySession) {
      attempts = 0;
    }
  }

  // The pause before the next attempt.
  Duration Next() {
    const unsigned attempt = attempts++;
    if (attempt == 0) {
      return Duration::zero();
    }
    const std::int64_t full = std::min<std::int64_t>(std::int64_t{100} << std::min(attempt - 1, 10U), 3000);
    std::uniform_int_distribution<std::int64_t> jitter(full - full / 4, full);
    return std::chrono::milliseconds(jitter(random));
  }

 private:
  std::minstd_rand random;
  unsigned attempts = 0;
};

}  // namespace ZoSdk
