// A pass that a host holds up, while documents come and before the clock is set back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/model/stoppedtime.h"
#include "tests/vyrnclient/grouptest.h"

namespace ZoModel {
namespace {

using ::testing::ElementsAre;

constexpr long long second = 1'000'000;  // µs

// Made before everything that looks at the clock, and destroyed after it.
struct Stopped {
  StoppedTime time{1'700'000'000 * second};
};

class SlowPass : protected Stopped, public ZoTest::GroupTest {
 protected:
  void Store(const std::string& json) { Cache().Add("/r", ZoJson::ParseString(json)); }

  std::vector<std::string> Pass() {
    feed.NoteTime(std::chrono::system_clock::now());
    return Tick();
  }
};

TEST_F(SlowPass, ClockThatWasSetBackToItsMiddleIsNoticedByTheNext) {
  Cached("/p", R"({"x":1})");
  for (const char* name : {"/p#/x", "/r#/a"}) {
    Item(name).valid = true;
    group.AddItem(name);
  }
  recorder.OnValue([this](const ZoTest::Entry& entry) {
    if (entry.item == "/p#/x") {
      time.Advance(2 * second);
      Store(R"({"a":"first"})");
      time.Advance(second / 2);
      Store(R"({"a":"second"})");
      time.Advance(second / 2);
    }
  });
  EXPECT_THAT(Pass(), ElementsAre("/p#/x 2:1", "/r#/a 0:second"));
  recorder.OnValue({});
  // Both values lie ahead of it then, and the first of them counts.
  time.Advance(-second - second / 2);
  EXPECT_THAT(Pass(), ElementsAre("/p#/x 2:1", "/r#/a 0:first"));
}

}  // namespace
}  // namespace ZoModel
