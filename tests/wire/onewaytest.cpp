// Connections that stay open and no longer carry anything, in one direction or in both.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <thread>

#include "tests/wire/emulator.h"
#include "tests/wire/swallowingproxy.h"
#include "tests/wire/wiretest.h"

namespace ZoTest {
namespace {

struct Loss {
  const char* name;
  SwallowingProxy::Direction direction;

  friend void PrintTo(const Loss& loss, std::ostream* out) { *out << loss.name; }
};

class SwallowedBytes : public WireTest, public testing::WithParamInterface<Loss> {
 protected:
  // The promise is 3 s, and 4 s for what goes to the sensor alone; the rest is for a loaded machine.
  static constexpr long long noticeLimit = kSanitized ? 15000 : 6000;

  Emulator sensor{R"({"rate_hz": 50, "resources": {
    "/plant/drive": {"content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
    "/plant/door": {"stream": false, "content": {"open": 0}, "writable": true}}})"};
  SwallowingProxy proxy{sensor.Port()};

  // Loses bytes, and asserts that it is noticed and that everything comes back.
  void ExpectRecovery(void* handle) {
    const Stopwatch watch;
    proxy.Swallow(GetParam().direction);
    EXPECT_TRUE(WaitConnected(handle, false));
    const long long noticed = watch.Milliseconds().count();
    RecordProperty("noticed_ms", std::to_string(noticed));
    EXPECT_LT(noticed, noticeLimit);

    proxy.PassNewOnes();
    const Stopwatch back;
    EXPECT_TRUE(WaitConnected(handle, true));
    RecordProperty("back_ms", std::to_string(back.Milliseconds().count()));
    EXPECT_GE(proxy.Accepted(), 2u) << "it came back through the proxy";
    EXPECT_TRUE(WaitForChange("/plant/drive#/n"));
    sensor.Patch("/plant/door", R"({"open":5})");
    EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/plant/door#/open", 5)));
  }
};

TEST_P(SwallowedBytes, OfASubscribedStreamAreNoticedAndEverythingComesBack) {
  void* const handle = Connect(proxy.Port());
  EXPECT_EQ(Subscribe(handle, {"/plant/drive#/n", "/plant/door#/open"}), 0);
  EXPECT_TRUE(WaitForChange("/plant/drive#/n"));
  // The link pings every second, and a missing pong is news only from a sensor that has answered before.
  std::this_thread::sleep_for(std::chrono::seconds(2));
  EXPECT_EQ(proxy.Ended(), 0u);
  ExpectRecovery(handle);
}

INSTANTIATE_TEST_SUITE_P(Wire, SwallowedBytes,
                         testing::Values(Loss{"ToTheSensor", SwallowingProxy::ToSensor},
                                         Loss{"FromTheSensor", SwallowingProxy::ToClient},
                                         Loss{"BothWays", SwallowingProxy::Both}),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace ZoTest
