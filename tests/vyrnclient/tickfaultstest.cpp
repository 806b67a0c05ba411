// Faults within one item's turn of a tick: it is left as it was, and tried again by the next tick.
#include <gmock/gmock.h>

#include <stdexcept>

#include "qapi/testing.h"
#include "qapi/thread.h"
#include "tests/vyrnclient/grouptest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* hostThread = "TickFaults::Host";

class TickFaults : public GroupTest {
 protected:
  TickFaults() {
    qTest_Reset();
    // The cache's and the registry's workers must not take the failures that are meant for this thread.
    qThread_NameCurrent(hostThread);
    Cached("/r", R"({"a":1,"b":2,"c":3})");
  }
  ~TickFaults() override { qTest_Reset(); }

  // An item that is not valid, pushed once, and held back from then on.
  void HeldBack(const std::string& name, const std::string& pushed) {
    Item(name).valid = false;
    group.AddItem(name);
    ASSERT_THAT(Tick(), ElementsAre(pushed));
    ASSERT_THAT(Tick(), IsEmpty());
  }

  // What gets as far as the host's callback in a tick in which that one raises.
  std::vector<std::string> FailingTick() {
    recorder.OnValue([](const Entry&) { throw std::runtime_error("broken"); });
    const std::vector<std::string> pushed = Tick();
    recorder.OnValue({});
    return pushed;
  }
};

TEST_F(TickFaults, UnchangedItemWhosePushRaisedIsStillForced) {
  HeldBack("/r#/a", "/r#/a 2:1");
  group.ForceUpdate("/r#/a");
  EXPECT_THAT(FailingTick(), ElementsAre("/r#/a 2:1"));
  EXPECT_THAT(FailingTick(), ElementsAre("/r#/a 2:1"));
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(TickFaults, UnforcedItemWhosePushRaisedHasStillChanged) {
  HeldBack("/r#/a", "/r#/a 2:1");
  Cached("/r", R"({"a":5})");
  EXPECT_THAT(FailingTick(), ElementsAre("/r#/a 2:5"));
  EXPECT_THAT(FailingTick(), ElementsAre("/r#/a 2:5"));
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:5"));
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(TickFaults, ValueThatCouldNotBePushedIsNoChangeOnceItIsTakenBack) {
  HeldBack("/r#/a", "/r#/a 2:1");
  Cached("/r", R"({"a":5})");
  EXPECT_THAT(FailingTick(), ElementsAre("/r#/a 2:5"));
  Cached("/r", R"({"a":1})");
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(TickFaults, ItemThatCannotBeLookedUpIsDroppedWithoutALineAndTheOthersGoOn) {
  for (const char* name : {"/r#/a", "/r#/b", "/r#/c"}) {
    Item(name);
  }
  group.AddItem("/r#/a");
  group.AddItem("/r#/c");
  ASSERT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/c 2:3"));
  // The others are known and unchanged, so the first lock of the next tick is that of the registry, for "/r#/b".
  group.AddItem("/r#/b");
  const auto due = group.NextTick();
  qTest_FailOperationIn(hostThread, qOperation::LockEnter, 1, qStatus_System);
  recorder.Clear();
  ASSERT_NO_THROW(group.Tick());
  EXPECT_EQ(qTest_FailureCount(), 1u);
  EXPECT_THAT(recorder.LogLines(), IsEmpty());
  EXPECT_THAT(Pushed(), ElementsAre("/r#/a 2:1", "/r#/c 2:3"));
  EXPECT_EQ(group.NextTick(), due + 1000ms);
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
}

TEST_F(TickFaults, TickWhoseItemsCannotBeLookedUpAtAllAdvancesTheSchedule) {
  for (const char* name : {"/r#/a", "/r#/b", "/r#/c"}) {
    Item(name);
    group.AddItem(name);
  }
  const auto due = group.NextTick();
  qTest_FailOperationIn(hostThread, qOperation::LockEnter, 1, qStatus_System, 0);
  EXPECT_THAT(Tick(), IsEmpty());
  EXPECT_EQ(qTest_FailureCount(), 3u);
  EXPECT_EQ(group.NextTick(), due + 1000ms);
  qTest_Reset();
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
}

}  // namespace
}  // namespace ZoTest
