// A host's thread for which any one allocation fails, in whichever call, with a sensor at the other end of the wire.
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

}  // namespace
}  // namespace ZoTest
