// Memory that runs out between the push of a text and the note that it was pushed.
#include <gmock/gmock.h>

#include <optional>

#include "tests/qapi/failingnew.h"
#include "tests/vyrnclient/grouptest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TickMemory : public GroupTest {
 protected:
  const std::string first = "a text that is longer than what fits without memory";
  const std::string second = "another text that is longer than what fits without memory";

  TickMemory() {
    Text(first);
    for (const char* name : {"/r#/a", "/r#/b"}) {
      Item(name).valid = false;
      group.AddItem(name);
    }
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 0:" + first, "/r#/b 2:0"));
    EXPECT_THAT(Tick(), IsEmpty());
  }

  // The text of "/r#/a"; each one goes with a new number of "/r#/b".
  void Text(const std::string& text) {
    Cached("/r", R"({"a":")" + text + R"(","b":)" + std::to_string(number++) + "}");
  }

  // A tick in which the first allocation after the push of "/r#/a" fails.
  std::vector<std::string> TickWithoutMemory() {
    std::optional<FailingNew> failing;
    recorder.OnValue([&failing](const Entry& entry) {
      if (entry.item == "/r#/a") {
        failing.emplace(1);
      }
    });
    recorder.Clear();
    const auto due = group.NextTick();
    group.Tick();
    const bool failed = failing && failing->HasFailed();
    failing.reset();
    recorder.OnValue({});
    EXPECT_TRUE(failed);
    EXPECT_EQ(group.NextTick(), due + 1000ms);
    return Pushed();
  }

 private:
  int number = 0;
};

TEST_F(TickMemory, TextThatCouldNotBeNotedIsPushedAgainAndTheOthersGoOn) {
  Text(second);
  for (int i = 0; i < 2; ++i) {
    const std::vector<std::string> pushed = TickWithoutMemory();
    ASSERT_FALSE(pushed.empty());
    EXPECT_EQ(pushed.front(), "/r#/a 0:" + second);
    EXPECT_EQ(pushed.size(), i == 0 ? 2u : 1u);
    EXPECT_EQ(pushed.back(), i == 0 ? "/r#/b 2:1" : "/r#/a 0:" + second);
  }
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 0:" + second));
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(TickMemory, ForcedItemWhoseTextCouldNotBeNotedIsStillForced) {
  Text(second);
  group.ForceUpdate("/r#/a");
  EXPECT_THAT(TickWithoutMemory(), ElementsAre("/r#/a 0:" + second, "/r#/b 2:1"));
  // The text that was noted last: no change, so only the force pushes it.
  Text(first);
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 0:" + first, "/r#/b 2:2"));
  EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(TickMemory, UnforcedItemWhoseTextCouldNotBeNotedKeepsTheOneBefore) {
  Text(second);
  TickWithoutMemory();
  Text(first);
  EXPECT_THAT(Tick(), ElementsAre("/r#/b 2:2"));
}

// The rows of a group are made by the first tick after an item came or went.
TEST_F(TickMemory, TickWithoutMemoryForItsRowsPushesEveryItemAllTheSame) {
  Cached("/s", R"({"a":1,"b":true})");
  for (const char* name : {"/s#/a", "/s#/b"}) {
    Item(name).valid = true;
    group.AddItem(name);
  }
  for (int i = 0; i < 2; ++i) {
    recorder.Clear();
    FailingNew failing(1);
    group.Tick();
    EXPECT_TRUE(failing.HasFailed());
  }
  EXPECT_THAT(Pushed(), ElementsAre("/s#/a 2:1", "/s#/b 1:1"));
  EXPECT_THAT(Tick(), ElementsAre("/s#/a 2:1", "/s#/b 1:1"));
}

}  // namespace
}  // namespace ZoTest
