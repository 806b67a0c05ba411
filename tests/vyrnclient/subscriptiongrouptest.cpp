// A subscription group, tick by tick.
#include "zoiohandler/vyrnclient/subscriptiongroup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/vyrnclient/grouptest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::system_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SubscriptionGroup : public GroupTest {};

TEST_F(SubscriptionGroup, NewOneIsEmptyAndDueAtOnce) {
  const auto before = system_clock::now();
  const ZoIO::SubscriptionGroup other(feed, 1h);
  EXPECT_TRUE(other.IsEmpty());
  EXPECT_LE(before, other.NextTick());
  EXPECT_LE(other.NextTick(), system_clock::now());
}

TEST_F(SubscriptionGroup, TickOfAnEmptyOnePushesNothing) {
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(SubscriptionGroup, FirstTickPushesEveryItemInTheOrderOfNames) {
  Cached("/r", R"({"a":1,"b":2,"B":3})");
  for (const char* name : {"/r#/b", "/r#/a", "/r#/missing", "/r#/B"}) {
    group.AddItem(name);
  }
  EXPECT_THAT(Tick(), ElementsAre("/r#/B 2:3", "/r#/a 2:1", "/r#/b 2:2", "/r#/missing 5:INVALID"));
}

TEST_F(SubscriptionGroup, ValidItemIsPushedOnEveryTick) {
  Cached("/r", R"({"a":1})");
  group.AddItem("/r#/a");
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  }
}

// A gate that closes during the callback of an item, in a tick that the ones before it lead up to.
class ClosingGate : public GroupTest {
 protected:
  ClosingGate() {
    gated.SetSensor(sensor);
    Cached("/r", R"({"a":1,"b":2,"c":3,"d":"text"})");
    for (const char* name : {"/r#/a", "/r#/b", "/r#/c", "/r#/d"}) {
      members.AddItem(name);
    }
  }

  std::vector<std::string> TickThatClosesAtB() {
    recorder.Clear();
    recorder.OnValue([this](const Entry& entry) {
      if (entry.item == "/r#/b") {
        gate->Close();
      }
    });
    members.Tick();
    return Pushed();
  }

  const std::shared_ptr<ZoIO::CallbackGate> gate = std::make_shared<ZoIO::CallbackGate>();
  ZoIO::ItemFeed gated{parameters, gate, logger};
  ZoIO::SubscriptionGroup members{gated, milliseconds(1000)};
};

TEST_F(ClosingGate, EndsAFirstTick) {
  EXPECT_THAT(TickThatClosesAtB(), ElementsAre("/r#/a 2:1", "/r#/b 2:2"));
}

TEST_F(ClosingGate, EndsATickOfStillDocuments) {
  members.Tick();
  EXPECT_THAT(TickThatClosesAtB(), ElementsAre("/r#/a 2:1", "/r#/b 2:2"));
}

TEST_F(ClosingGate, EndsATickOfNewValues) {
  members.Tick();
  Cached("/r", R"({"a":4,"b":5,"c":6,"d":"other"})");
  EXPECT_THAT(TickThatClosesAtB(), ElementsAre("/r#/a 2:4", "/r#/b 2:5"));
}

TEST_F(ClosingGate, EndsATickOfNewDocumentsWithTheSameValues) {
  members.Tick();
  Cached("/r", R"({"a":1,"b":2,"c":3,"d":"text"})");
  EXPECT_THAT(TickThatClosesAtB(), ElementsAre("/r#/a 2:1", "/r#/b 2:2"));
}

TEST_F(ClosingGate, LetsNoLaterTickCallBack) {
  gate->Close();
  members.Tick();
  EXPECT_THAT(Pushed(), IsEmpty());
}

TEST_F(SubscriptionGroup, StatusOfPushedValuesIs0) {
  Cached("/r", R"({"a":1})");
  group.AddItem("/r#/a");
  group.Tick();
  ASSERT_EQ(recorder.Values("/r#/a").size(), 1u);
  EXPECT_EQ(recorder.Values("/r#/a")[0].value.status, 0);
}

TEST_F(SubscriptionGroup, StatusIs0WhetherThereIsAValueOrNot) {
  Cached("/r", R"({"a":1})");
  Item("/empty#/a").valid = true;
  for (const char* name : {"/empty#/a", "/r#/a", "/r#/missing"}) {
    group.AddItem(name);
  }
  group.Tick();
  for (const char* name : {"/empty#/a", "/r#/a", "/r#/missing"}) {
    ASSERT_EQ(recorder.Values(name).size(), 1u) << name;
    EXPECT_EQ(recorder.Values(name)[0].value.status, 0) << name;
  }
}

TEST_F(SubscriptionGroup, ValuesComeFromTheCacheNotFromTheSensor) {
  Cached("/r", R"({"a":1})");
  group.AddItem("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cached("/r", R"({"a":2})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:2"));
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(SubscriptionGroup, ItemThatIsNotValidIsPushedOnceAndThenHeldBack) {
  group.AddItem("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
  EXPECT_THAT(Tick(), IsEmpty());
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(SubscriptionGroup, ForcedItemIsPushedOnceMore) {
  group.AddItem("/r#/a");
  Tick();
  group.ForceUpdate("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(SubscriptionGroup, ForcingAnUnknownItemDoesNothing) {
  group.ForceUpdate("/r#/a");
  EXPECT_TRUE(group.IsEmpty());
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(SubscriptionGroup, ItemThatIsNotValidIsPushedWhenItsValueChanges) {
  Cached("/r", R"({"a":1})");
  Item("/r#/a").valid = false;
  group.AddItem("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  EXPECT_THAT(Tick(), IsEmpty());
  Cached("/r", R"({"a":2})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:2"));
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(SubscriptionGroup, ChangeIsJudgedByTheVariantNotByTheType) {
  Cached("/r", R"({"a":1})");
  Item("/r#/a").valid = false;
  group.AddItem("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  // The same payload as another type: an equal variant, which is no change.
  Cached("/r", R"({"a":null})");
  EXPECT_THAT(Tick(), IsEmpty());
  Cached("/r", R"({"a":true})");
  EXPECT_THAT(Tick(), IsEmpty());
  Cached("/r", R"({"a":"1"})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 0:1"));
}

TEST_F(SubscriptionGroup, ItemIsPushedOnEveryTickFromWhenItsValueAppears) {
  group.AddItem("/r#/a");
  Tick();
  EXPECT_THAT(Tick(), IsEmpty());
  Cached("/r", R"({"a":5})");
  Registry().RetryInvalidItems();
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:5"));
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:5"));
}

TEST_F(SubscriptionGroup, ValidItemWithAnEmptyCacheIsPushedAsInvalid) {
  Item("/r#/a").valid = true;
  group.AddItem("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
  Cached("/r", R"({"a":5})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:5"));
}

TEST_F(SubscriptionGroup, AddingAnItemAgainKeepsItsState) {
  group.AddItem("/r#/a");
  Tick();
  group.AddItem("/r#/a");
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(SubscriptionGroup, AddingAForcedItemAgainKeepsItForced) {
  group.AddItem("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
  EXPECT_THAT(Tick(), IsEmpty());
  group.ForceUpdate("/r#/a");
  group.AddItem("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(SubscriptionGroup, RemovedItemIsNotPushedAndStartsAnew) {
  group.AddItem("/r#/a");
  Tick();
  group.RemoveItem("/r#/a");
  EXPECT_TRUE(group.IsEmpty());
  EXPECT_THAT(Tick(), IsEmpty());
  group.AddItem("/r#/a");
  EXPECT_FALSE(group.IsEmpty());
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
}

TEST_F(SubscriptionGroup, RemovingAnUnknownItemDoesNothing) {
  group.AddItem("/r#/a");
  group.RemoveItem("/r#/b");
  EXPECT_FALSE(group.IsEmpty());
}

TEST_F(SubscriptionGroup, TickTellsNothing) {
  Cached("/r", R"({"a":1})");
  Item("/r#/a");
  recorder.Clear();
  group.AddItem("/r#/a");
  group.Tick();
  EXPECT_THAT(recorder.LogLines(), IsEmpty());
}

TEST_F(SubscriptionGroup, ExceptionOfOneItemIsDroppedAndTheOthersGoOn) {
  Cached("/r", R"({"a":1,"b":2,"c":3})");
  for (const char* name : {"/r#/a", "/r#/b", "/r#/c"}) {
    Item(name);
    group.AddItem(name);
  }
  recorder.Clear();
  // The host's callback stands for anything that may raise within one item.
  bool broken = true;
  recorder.OnValue([&](const Entry& entry) {
    if (broken && entry.item == "/r#/b") {
      throw std::runtime_error("broken");
    }
  });
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
  EXPECT_THAT(recorder.LogLines(), IsEmpty());
}

TEST_F(SubscriptionGroup, ItemThatRaisedIsStillForcedOnTheNextTick) {
  Cached("/r", R"({"a":1})");
  Item("/r#/a").valid = false;
  group.AddItem("/r#/a");
  bool broken = true;
  recorder.OnValue([&](const Entry&) {
    if (broken) {
      throw std::runtime_error("broken");
    }
  });
  group.Tick();
  broken = false;
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(SubscriptionGroup, FailingTickAdvancesTheScheduleToo) {
  group.AddItem("/r#/a");
  recorder.OnValue([](const Entry&) { throw std::runtime_error("broken"); });
  const auto due = group.NextTick();
  group.Tick();
  EXPECT_EQ(group.NextTick(), due + 1000ms);
}

TEST_F(SubscriptionGroup, ScheduleGoesFromDueTimeToDueTime) {
  const auto first = group.NextTick();
  for (int i = 1; i <= 5; ++i) {
    group.Tick();
    EXPECT_EQ(group.NextTick(), first + i * 1000ms);
  }
}

TEST_F(SubscriptionGroup, ScheduleIsTheGroupsAndNotItsItems) {
  for (const milliseconds interval : {milliseconds(1h), milliseconds(-1h)}) {
    ZoIO::SubscriptionGroup other(feed, interval);
    // An hour from now, which no item that looks at the clock can hit.
    other.Tick();
    const auto due = other.NextTick();
    for (int i = 0; i < 2; ++i) {
      other.AddItem("/r#/a");
      EXPECT_EQ(other.NextTick(), due);
    }
    for (const char* name : {"/r#/a", "/r#/unknown"}) {
      other.ForceUpdate(name);
      EXPECT_EQ(other.NextTick(), due);
      other.RemoveItem(name);
      EXPECT_EQ(other.NextTick(), due);
    }
    other.AddItem("/r#/b");
    EXPECT_EQ(other.NextTick(), due);
  }
}

TEST_F(SubscriptionGroup, IntervalThatNoClockHoldsIsNeverDueAgain) {
  for (const milliseconds interval : {milliseconds::max(), milliseconds(9'223'372'036'855),
                                      milliseconds(std::numeric_limits<std::int64_t>::max() / 2)}) {
    ZoIO::SubscriptionGroup endless(feed, interval);
    for (int i = 0; i < 3; ++i) {
      endless.Tick();
      EXPECT_EQ(endless.NextTick(), system_clock::time_point::max());
    }
  }
}

TEST_F(SubscriptionGroup, IntervalThatReachesTheEndOfTheClockStaysThere) {
  ZoIO::SubscriptionGroup lengthy(feed, std::chrono::hours(24) * 365 * 200);
  for (int i = 0; i < 5; ++i) {
    const auto due = lengthy.NextTick();
    lengthy.Tick();
    EXPECT_GE(lengthy.NextTick(), due);
  }
  EXPECT_EQ(lengthy.NextTick(), system_clock::time_point::max());
}

TEST_F(SubscriptionGroup, NegativeIntervalStaysDue) {
  for (const milliseconds interval : {milliseconds(-1), milliseconds(-10'000'000'000'000),
                                      milliseconds(-9'223'372'036'855), milliseconds::min()}) {
    ZoIO::SubscriptionGroup eager(feed, interval);
    const auto first = eager.NextTick();
    for (int i = 0; i < 3; ++i) {
      eager.Tick();
      EXPECT_LT(eager.NextTick(), first);
    }
  }
}

TEST_F(SubscriptionGroup, LeastIntervalThatTheClockHoldsIsKeptToTheTick) {
  constexpr auto least = std::chrono::duration_cast<milliseconds>(system_clock::duration::min());
  ZoIO::SubscriptionGroup eager(feed, least);
  const auto first = eager.NextTick();
  eager.Tick();
  EXPECT_EQ(eager.NextTick(), first + least);
}

TEST_F(SubscriptionGroup, IntervalOf0KeepsTheDueTime) {
  ZoIO::SubscriptionGroup always(feed, 0ms);
  const auto first = always.NextTick();
  always.Tick();
  EXPECT_EQ(always.NextTick(), first);
}

}  // namespace
}  // namespace ZoTest
