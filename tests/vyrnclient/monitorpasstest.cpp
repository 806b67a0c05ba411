// One pass of the monitor, at a time that the test gives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "qapi/lock.h"
#include "qapi/testing.h"
#include "qapi/thread.h"
#include "tests/vyrnclient/feedtest.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/serving.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TimePoint = ZoIO::SubscriptionGroup::TimePoint;

// Gives its times one after the other, then the last one again and again.
class ListedClock {
 public:
  explicit ListedClock(std::vector<TimePoint> times) : times(std::move(times)) {}

  TimePoint operator()() const { return times[std::min(reads++, times.size() - 1)]; }
  std::size_t Reads() const { return reads; }

 private:
  const std::vector<TimePoint> times;
  mutable std::size_t reads = 0;
};

class MonitorPass : public FeedTest {
 protected:
  MonitorPass() : serving(parameters, nullptr, logger) {
    EXPECT_EQ(qLock_Construct(serving.lock.Out(), "MonitorPass", Zo::LockRank_Instance), qStatus_Success);
    serving.feed.SetSensor(sensor);
    Cached("/r", R"({"a":1,"b":2,"c":3,"d":4,"e":5})");
  }

  // Subscribes an item, and gives the time at which its group is due first.
  TimePoint Group(milliseconds interval, const std::string& name) {
    Zo::Locker held(serving.lock);
    ZoIO::SubscriptionGroup& group = serving.GetSubscriptionGroup(interval);
    group.AddItem(name);
    return group.NextTick();
  }

  TimePoint NextTick(milliseconds interval) {
    Zo::Locker held(serving.lock);
    return serving.GetSubscriptionGroup(interval).NextTick();
  }

  void Remove(const std::string& name) {
    Zo::Locker held(serving.lock);
    serving.RemoveFromGroups(name);
  }

  std::vector<milliseconds> Intervals() {
    Zo::Locker held(serving.lock);
    std::vector<milliseconds> intervals;
    for (const auto& [interval, group] : serving.subscriptionGroups) {
      intervals.push_back(interval);
    }
    return intervals;
  }

  // The names that one pass pushes, in order.
  template <typename Clock>
  std::vector<std::string> Pass(const Clock& clock) {
    recorder.Clear();
    serving.Pass(clock);
    std::vector<std::string> names;
    for (const Entry& entry : recorder.All()) {
      if (entry.kind == Entry::Kind::Value) {
        names.push_back(entry.item);
      }
    }
    return names;
  }
  std::vector<std::string> PassAt(TimePoint time) {
    return Pass([time] { return time; });
  }

  ZoIO::ZoVyrnClient::Serving serving;
};

TEST_F(MonitorPass, ReadsTheClockOnceHoweverManyGroupsThereAre) {
  const ListedClock idle({TimePoint::max()});
  EXPECT_THAT(Pass(idle), IsEmpty());
  EXPECT_EQ(idle.Reads(), 1u);

  int groups = 0;
  for (const char* name : {"/r#/a", "/r#/b", "/r#/c", "/r#/d", "/r#/e"}) {
    Group(milliseconds(++groups), name);
    const ListedClock clock({TimePoint::max()});
    EXPECT_EQ(Pass(clock).size(), static_cast<std::size_t>(groups));
    EXPECT_EQ(clock.Reads(), 1u);
  }
}

TEST_F(MonitorPass, ReadsTheClockOnceWhenNoGroupIsDue) {
  Group(1s, "/r#/a");
  Group(2s, "/r#/b");
  const ListedClock clock({TimePoint::min()});
  EXPECT_THAT(Pass(clock), IsEmpty());
  EXPECT_EQ(clock.Reads(), 1u);
}

// How often a pass enters which locks, seen from this thread, which makes the pass: the others have locks of their own.
TEST_F(MonitorPass, EntersTheInstanceLockAndNoOtherWhenNoGroupIsDue) {
  constexpr const char* passThread = "MonitorPass::Test";
  qThread_NameCurrent(passThread);
  const auto expectOneLock = [&] {
    std::uint64_t entered = 0;
    qStatus inside = qStatus_Success;
    qTest_FailOperationIn(passThread, qOperation::LockEnter, 0, qStatus_System);
    EXPECT_THAT(Pass([&] {
                  entered = qTest_CallCount();
                  inside = qLock_EnterEx(serving.lock.Get(), 0);
                  return TimePoint::min();
                }),
                IsEmpty());
    EXPECT_EQ(qTest_CallCount(), 1u);
    EXPECT_EQ(entered, 1u);
    EXPECT_EQ(inside, qStatus_Deadlock) << "the one that was entered is the instance's";
    // Nothing else is asked of the base library, in whichever way: entered and left.
    qTest_FailOperationIn(passThread, qOperation::Any, 0, qStatus_System);
    EXPECT_THAT(PassAt(TimePoint::min()), IsEmpty());
    EXPECT_EQ(qTest_CallCount(), 2u);
    qTest_Reset();
  };
  expectOneLock();
  int groups = 0;
  for (const char* name : {"/r#/a", "/r#/b", "/r#/c"}) {
    Group(std::chrono::seconds(++groups), name);
    expectOneLock();
  }
  // What has ticked before has looked its items up, and is asked no more of either.
  EXPECT_EQ(PassAt(TimePoint::max()).size(), 3u);
  expectOneLock();
}

TEST_F(MonitorPass, EveryGroupSeesTheFirstTimeThatTheClockGives) {
  Group(1s, "/r#/a");
  const TimePoint last = Group(2s, "/r#/b");
  // A second look at the clock would take the second group out of this pass, and into the next one.
  EXPECT_THAT(Pass(ListedClock({last, TimePoint::min()})), ElementsAre("/r#/a", "/r#/b"));
  EXPECT_THAT(Pass(ListedClock({last, TimePoint::max()})), IsEmpty());
}

TEST_F(MonitorPass, GroupIsDueAtItsNextTickAndNotBefore) {
  const TimePoint due = Group(1s, "/r#/a");
  EXPECT_THAT(PassAt(due - TimePoint::duration(1)), IsEmpty());
  EXPECT_EQ(NextTick(1s), due);
  EXPECT_THAT(PassAt(due), ElementsAre("/r#/a"));
  EXPECT_EQ(NextTick(1s), due + 1s);
  EXPECT_THAT(PassAt(due + 1s - TimePoint::duration(1)), IsEmpty());
  EXPECT_THAT(PassAt(due + 1s), ElementsAre("/r#/a"));
}

TEST_F(MonitorPass, GroupThatIsNotDueDoesNotHoldUpTheOthers) {
  Group(100ms, "/r#/a");
  Group(250ms, "/r#/b");
  const TimePoint start = Group(300ms, "/r#/c");
  EXPECT_THAT(PassAt(start), ElementsAre("/r#/a", "/r#/b", "/r#/c"));
  EXPECT_THAT(PassAt(start + 100ms), ElementsAre("/r#/a"));
  EXPECT_THAT(PassAt(start + 200ms), ElementsAre("/r#/a"));
  EXPECT_THAT(PassAt(start + 300ms), ElementsAre("/r#/a", "/r#/b", "/r#/c"));
}

TEST_F(MonitorPass, GroupsTickInTheOrderOfTheirIntervals) {
  Group(300ms, "/r#/a");
  Group(100ms, "/r#/b");
  const TimePoint last = Group(200ms, "/r#/c");
  EXPECT_THAT(PassAt(last), ElementsAre("/r#/b", "/r#/c", "/r#/a"));
}

TEST_F(MonitorPass, GroupThatFellBehindTicksOnceAPass) {
  const TimePoint due = Group(100ms, "/r#/a");
  const TimePoint late = due + 350ms;
  for (int missed = 1; missed <= 4; ++missed) {
    EXPECT_THAT(PassAt(late), ElementsAre("/r#/a"));
    EXPECT_EQ(NextTick(100ms), due + missed * 100ms);
  }
  EXPECT_THAT(PassAt(late), IsEmpty());
}

TEST_F(MonitorPass, GroupThatLostItsLastItemIsGoneAndANewOneOfItsIntervalIsDueAtOnce) {
  const TimePoint due = Group(24h, "/r#/a");
  Group(24h, "/r#/b");
  EXPECT_THAT(PassAt(due), ElementsAre("/r#/a", "/r#/b"));
  Remove("/r#/a");
  EXPECT_EQ(NextTick(24h), due + 24h) << "one item is left";
  Remove("/r#/b");
  EXPECT_THAT(Intervals(), IsEmpty());
  EXPECT_THAT(PassAt(TimePoint::max()), IsEmpty());

  const TimePoint before = std::chrono::system_clock::now();
  const TimePoint again = Group(24h, "/r#/a");
  EXPECT_GE(again, before);
  EXPECT_LE(again, std::chrono::system_clock::now());
  EXPECT_THAT(PassAt(again), ElementsAre("/r#/a"));
}

TEST_F(MonitorPass, RemovedItemLeavesTheGroupsThatHaveOthers) {
  for (const milliseconds interval : {1s, 2s, 3s}) {
    Group(interval, "/r#/a");
  }
  Group(2s, "/r#/b");
  Remove("/r#/a");
  EXPECT_THAT(Intervals(), ElementsAre(2s));
}

TEST_F(MonitorPass, RemovedItemTakesAGroupThatNeverHadAnItemWithIt) {
  Group(1s, "/r#/a");
  Group(2s, "/r#/b");
  NextTick(3s);  // makes the group
  Remove("/r#/b");
  EXPECT_THAT(Intervals(), ElementsAre(1s));
}

TEST_F(MonitorPass, ClockIsReadUnderTheInstanceLock) {
  // Entering a lock that the thread holds is refused instead of waited for.
  qStatus inside = qStatus_Success;
  serving.Pass([&] {
    inside = qLock_EnterEx(serving.lock.Get(), 0);
    return TimePoint::min();
  });
  EXPECT_EQ(inside, qStatus_Deadlock);
  EXPECT_EQ(qLock_EnterEx(serving.lock.Get(), 0), qStatus_Success);
  EXPECT_EQ(qLock_Exit(serving.lock.Get()), qStatus_Success);
}

TEST_F(MonitorPass, HostGetsItsValuesUnderTheInstanceLock) {
  const TimePoint due = Group(1s, "/r#/a");
  std::vector<qStatus> inside;
  recorder.OnValue([&](const Entry&) { inside.push_back(qLock_EnterEx(serving.lock.Get(), 0)); });
  EXPECT_THAT(PassAt(due), ElementsAre("/r#/a"));
  EXPECT_THAT(inside, ElementsAre(qStatus_Deadlock));
}

TEST_F(MonitorPass, WhatRaisesAbandonsThePassAndLeavesTheLock) {
  const TimePoint due = Group(1s, "/r#/a");
  EXPECT_THROW(serving.Pass([]() -> TimePoint { throw std::runtime_error("no time"); }), std::runtime_error);
  EXPECT_EQ(NextTick(1s), due);
  EXPECT_THAT(PassAt(due), ElementsAre("/r#/a"));
}

}  // namespace
}  // namespace ZoTest
