// A connection that breaks behind any one of its bytes: cut there, or silent from there on, both ways or one.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "qapi/testing.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/wire/hostlife.h"

namespace ZoTest {
namespace {

using std::chrono::milliseconds;
using Life = void (HostLife::*)();

std::size_t OpenDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

enum class Manner { Cut, Silence, SilenceOneWay };

struct Everywhere {
  const char* name;
  Life life;
  unsigned connection;  // the one that breaks
  Manner manner;
  std::size_t first;  // byte, where not each is tried

  friend void PrintTo(const Everywhere& each, std::ostream* out) { *out << each.name; }
};

class EveryByte : public testing::TestWithParam<Everywhere> {
 protected:
  // What a life without a fault passes on.
  std::size_t BytesOf(SwallowingProxy::Direction direction) const {
    HostLife whole;
    (whole.*GetParam().life)();
    return whole.Proxy().Passed(GetParam().connection, direction);
  }

  std::vector<SwallowingProxy::Break> Breaks() const {
    std::vector<SwallowingProxy::Break> breaks;
    for (const auto direction : {SwallowingProxy::ToSensor, SwallowingProxy::ToClient}) {
      const std::size_t bytes = BytesOf(direction);
      EXPECT_GT(bytes, 100U);
      std::cout << (direction == SwallowingProxy::ToSensor ? "sent " : "received ") << bytes << " bytes\n";
      for (std::size_t at = GetParam().first % step; at <= bytes; at += step) {
        breaks.push_back({GetParam().connection, direction, at, IsSilent(),
                          GetParam().manner == Manner::SilenceOneWay ? direction : SwallowingProxy::Both});
      }
    }
    return breaks;
  }

  static bool IsSilent() { return GetParam().manner != Manner::Cut; }

  // A silence takes 3 s, and hardly any of the processor's time.
  static std::size_t AtOnce() { return kSanitized ? 24 : IsSilent() ? 200 : 100; }

  // Under the sanitizers one byte of so many, another one in each kind of life: what they look for shows at neighbouring
  // bytes of a message alike, and their time is dear.
  static constexpr std::size_t step = kSanitized ? 11 : 1;
};

TEST_P(EveryByte, MayBeTheLast) {
  const std::size_t objects = qTest_LiveObjects();
  const std::size_t descriptors = OpenDescriptors();
  const std::vector<SwallowingProxy::Break> breaks = Breaks();
  std::mutex mutex;
  milliseconds longestCall{0};
  milliseconds longestWait{0};
  std::size_t broken = 0;
  InParallel(breaks.size(), AtOnce(), [&](std::size_t i) {
    const SwallowingProxy::Break& point = breaks[i];
    SCOPED_TRACE((point.direction == SwallowingProxy::ToSensor ? "sent byte " : "received byte ") +
                 std::to_string(point.bytes));
    HostLife life(point);
    (life.*GetParam().life)();
    const std::lock_guard lock(mutex);
    broken += life.Proxy().Broken() ? 1 : 0;
    longestCall = std::max(longestCall, life.LongestCall());
    longestWait = std::max(longestWait, life.LongestWait());
  });
  std::cout << breaks.size() << " lives, " << broken << " broken, longest call " << longestCall.count()
            << " ms, longest wait " << longestWait.count() << " ms\n";
  EXPECT_GE(broken + 20, breaks.size()) << "few of the breaks came";
  EXPECT_TRUE(Eventually([&] { return qTest_LiveObjects() == objects; }));
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(
    Wire, EveryByte,
    testing::Values(Everywhere{"BeforeACut", &HostLife::Live, 1, Manner::Cut, 0},
                    Everywhere{"BeforeSilence", &HostLife::Live, 1, Manner::Silence, 3},
                    Everywhere{"BeforeSilenceOneWay", &HostLife::Live, 1, Manner::SilenceOneWay, 7},
                    Everywhere{"BeforeACutOfTheRestore", &HostLife::LiveThroughARestore, 2, Manner::Cut, 1},
                    Everywhere{"BeforeSilenceInTheRestore", &HostLife::LiveThroughARestore, 2,
                               Manner::Silence, 5},
                    Everywhere{"BeforeSilenceOneWayInTheRestore", &HostLife::LiveThroughARestore, 2,
                               Manner::SilenceOneWay, 9}),
    [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace ZoTest
