// Passes and reads around a clock that is set back: one that a host holds up while documents come, and others.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "qapi/testing.h"
#include "qapi/thread.h"
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

class ClockSetBack : public SlowPass {
 protected:
  // Two values, of which the item shows the newest.
  ClockSetBack() {
    time.Advance(second);
    Store(R"({"a":"first"})");
    time.Advance(second);
    Store(R"({"a":"second"})");
    Item("/r#/a").valid = true;
  }

  // To where both values lie ahead of it, so that the first of them counts.
  void SetBack() { time.Advance(-second - second / 2); }
};

TEST_F(ClockSetBack, IsNoticedByAReadBeforeAnyPass) {
  EXPECT_EQ(feed.UpdateItemFromCache(Item("/r#/a")).text(), "second");
  SetBack();
  EXPECT_EQ(feed.UpdateItemFromCache(Item("/r#/a")).text(), "first");
}

TEST_F(ClockSetBack, ItemThatCouldNotBeLookedAtThenIsLookedAtByTheNextPass) {
  constexpr const char* hostThread = "ClockSetBack::Host";
  qThread_NameCurrent(hostThread);
  group.AddItem("/r#/a");
  EXPECT_THAT(Pass(), ElementsAre("/r#/a 0:second"));
  SetBack();
  // The cache's lock is the first of this thread's: the item is known.
  qTest_FailOperationIn(hostThread, qOperation::LockEnter, 1, qStatus_System);
  EXPECT_THAT(Pass(), ElementsAre("/r#/a 0:second"));
  EXPECT_EQ(qTest_FailureCount(), 1u);
  qTest_Reset();
  EXPECT_THAT(Pass(), ElementsAre("/r#/a 0:first"));
}

}  // namespace
}  // namespace ZoModel
