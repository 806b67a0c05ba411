// A base library of which any one operation fails, in whichever thread, while a host lives with a sensor at the other end
// of the wire.
#include <gtest/gtest.h>

#include <iostream>
#include <string>

#include "qapi/testing.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/wire/hostlife.h"

namespace ZoTest {
namespace {

// Lives last as long as their ticks, and the fault switch is one for the whole process.
constexpr unsigned children = kSanitized ? 6 : 16;
// Under the sanitizers one of so many: what they look for shows in neighbouring operations alike, and their time is dear.
constexpr unsigned step = kSanitized ? 5 : 1;
constexpr std::uint64_t most = 5000;

struct EachOf {
  const char* name;
  void (HostLife::*life)();
  std::uint64_t least;  // operations that it makes

  friend void PrintTo(const EachOf& each, std::ostream* out) { *out << each.name; }
};

class EveryOperation : public testing::TestWithParam<EachOf> {
 protected:
  // False when no operation failed, for there were fewer.
  bool LiveWithFailing(std::uint64_t nth) {
    SCOPED_TRACE("operation " + std::to_string(nth));
    const std::uint64_t objects = qTest_LiveObjects();
    bool failed = false;
    {
      HostLife life;
      life.Excuse();
      qTest_FailOperation(qOperation::Any, nth, qStatus_System);
      (life.*GetParam().life)();
      failed = qTest_FailureCount() != 0;
      qTest_Reset();
    }
    EXPECT_TRUE(Eventually([&] { return qTest_LiveObjects() == objects; }));
    return failed;
  }

  void LiveInAChild(unsigned child) {
    std::uint64_t nth = 1 + child * step;
    while (nth < most && LiveWithFailing(nth)) {
      nth += std::uint64_t{children} * step;
    }
    EXPECT_GT(nth, GetParam().least);
    EXPECT_LT(nth, most);
    std::cout << "child " << child << " failed operations up to the " << nth << "th\n";
  }
};

TEST_P(EveryOperation, MayFail) {
  InChildren(children, [this](unsigned child) { LiveInAChild(child); });
}

INSTANTIATE_TEST_SUITE_P(Wire, EveryOperation,
                         testing::Values(EachOf{"InAWholeLife", &HostLife::Live, 100},
                                         EachOf{"AroundARestore", &HostLife::LiveThroughARestore, 50}),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace ZoTest
