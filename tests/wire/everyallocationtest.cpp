// Any one allocation fails, with a sensor at the other end of the wire: one of the host's thread, in whichever call, or
// one of the instance's threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <string>

#include "qapi/testing.h"
#include "tests/qapi/failingnew.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/wire/hostlife.h"

namespace ZoTest {
namespace {

constexpr std::size_t most = 5000;  // more allocations than a life makes
constexpr std::size_t atOnce = kSanitized ? 24 : 100;
// Under the sanitizers one of so many: they look at the same calls at each byte of the wire, and their time is dear.
constexpr int step = kSanitized ? 5 : 1;

// False when no allocation failed, for there were fewer.
bool LiveWithFailing(int nth) {
  HostLife life;
  life.Excuse();
  const FailingNew failing(nth);
  {
    const SparedNew own;
    life.Live();
  }
  return failing.HasFailed();
}

TEST(EveryAllocation, OfTheHostsThreadMayFail) {
  const std::uint64_t objects = qTest_LiveObjects();
  std::atomic<std::size_t> failed{0};
  std::size_t begun = 0;
  while (begun == failed && begun < most) {
    InParallel(atOnce, atOnce, [&](std::size_t i) {
      const int nth = 1 + static_cast<int>(begun + i) * step;
      SCOPED_TRACE("allocation " + std::to_string(nth));
      failed += LiveWithFailing(nth) ? 1 : 0;
    });
    begun += atOnce;
  }
  std::cout << failed << " lives with an allocation that failed\n";
  EXPECT_GT(failed, 300U / step);
  EXPECT_LT(begun, most);
  EXPECT_TRUE(Eventually([&] { return qTest_LiveObjects() == objects; }));
}

// False when no allocation failed, for there were fewer.
bool LiveWithAWorkersFailing(void (HostLife::*kind)(), int nth) {
  const std::uint64_t objects = qTest_LiveObjects();
  bool failed = false;
  {
    HostLife life;
    life.Excuse();
    const FailingWorkersNew failing(nth);
    (life.*kind)();
    failed = failing.HasFailed();
  }
  EXPECT_TRUE(Eventually([&] { return qTest_LiveObjects() == objects; }));
  return failed;
}

void LiveWithWorkersFailing(void (HostLife::*kind)()) {
  constexpr unsigned children = kSanitized ? 6 : 16;  // lives last as long as their ticks
  InChildren(children, [kind](unsigned child) {
    const auto last = static_cast<int>(most);
    int nth = 1 + static_cast<int>(child) * step;
    // How many there are hangs on the time that a life takes.
    int failed = 0;
    for (int inVain = 0; inVain < 3 && nth < last; nth += static_cast<int>(children) * step) {
      SCOPED_TRACE("allocation " + std::to_string(nth));
      const bool hasFailed = LiveWithAWorkersFailing(kind, nth);
      failed += hasFailed ? 1 : 0;
      inVain = hasFailed ? 0 : inVain + 1;
    }
    std::cout << "child " << child << ": " << failed << " lives with an allocation that failed\n";
    EXPECT_GT(failed, 0);
    EXPECT_LT(nth, last);
  });
}

TEST(EveryAllocation, OfTheInstancesThreadsMayFail) {
  LiveWithWorkersFailing(&HostLife::Live);
}

TEST(EveryAllocation, OfTheInstancesThreadsMayFailAroundARestore) {
  LiveWithWorkersFailing(&HostLife::LiveThroughARestore);
}

}  // namespace
}  // namespace ZoTest
