// When the values of a subscription come.
#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

using std::chrono::milliseconds;

// A group is due by the system clock and measured here by the steady one; they may differ by this much.
constexpr milliseconds kClocks{20};

class Ticks : public PluginTest {
 protected:
  Ticks() : handle(Create()) { recorder.Clear(); }

  std::vector<Entry> WaitForTicks(const std::string& item, std::size_t count) {
    EXPECT_TRUE(recorder.WaitForValue(item, count)) << item;
    return recorder.Values(item);
  }

  void* handle;
};

TEST_F(Ticks, ANewItemIsPushedOnTheNextPass) {
  const Stopwatch watch;
  Subscribe(handle, {"a#/int"}, 60'000);
  const auto values = WaitForTicks("a#/int", 1);
  ASSERT_FALSE(values.empty());
  EXPECT_LT(watch.Milliseconds().count(), kSanitized ? 2000 : 1000);
}

TEST_F(Ticks, AValidItemIsPushedOnEveryTickWhetherItChangedOrNot) {
  Subscribe(handle, {"a#/int"}, 100);
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("a#/int", 3)));
  const auto values = recorder.Values("a#/int");
  const auto steps = StepsOf(values);
  // Ten ticks to a change; even a slow machine repeats most of them.
  EXPECT_GT(values.size(), 2 * steps.size());
}

TEST_F(Ticks, AnItemWithoutValuesIsPushedAsInvalidOnEveryTickUntilTheyCome) {
  Subscribe(handle, {"a#/int"}, 100);
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("a#/int", 0)));
  const auto values = recorder.Values("a#/int");
  std::size_t invalid = 0;
  while (values[invalid].value.type == enumtype_invalid) {
    EXPECT_EQ(values[invalid].valueText, "INVALID");
    EXPECT_EQ(values[invalid].value.status, 0);
    EXPECT_EQ(values[invalid].value.reserved, 0u);
    ++invalid;
  }
  EXPECT_GE(invalid, 2u);
  for (std::size_t i = invalid; i < values.size(); ++i) {
    EXPECT_NE(values[i].value.type, static_cast<std::uint32_t>(enumtype_invalid));
  }
}

TEST_F(Ticks, NeverComeBeforeTheyAreDue) {
  for (const int interval : {100, 250, 400}) {
    const std::string item = "a" + std::to_string(interval) + "#/int";
    const auto start = Clock::now();
    Subscribe(handle, {item}, interval);
    const auto values = WaitForTicks(item, 8);
    for (std::size_t i = 0; i < values.size(); ++i) {
      EXPECT_GE(values[i].time, start + i * milliseconds(interval) - kClocks) << interval << " " << i;
    }
  }
}

// The schedule counts from the creation of the group: after a delay the group ticks on every pass until it
// has caught up, and no tick is left out.
TEST_F(Ticks, AreCaughtUpAfterADelay) {
  constexpr milliseconds kInterval{400};
  Gate gate;
  const auto start = Clock::now();
  Subscribe(handle, {"a#/int"}, kInterval.count());
  ASSERT_TRUE(recorder.WaitForValue("a#/int", 2));
  recorder.OnValue([&gate](const Entry&) { gate.Wait(milliseconds(2400)); });
  ASSERT_TRUE(gate.WaitForArrivals());
  ASSERT_TRUE(gate.WaitUntilEmpty());  // the callback has lost six ticks
  recorder.OnValue({});
  gate.Open();
  const std::size_t before = recorder.CountValues("a#/int");
  ASSERT_LE(before, 6u);
  // Caught up means: some later tick comes close to the time that the schedule gives it.
  EXPECT_TRUE(recorder.WaitFor([&](const Recorder::Entries& all) {
    std::size_t ticks = 0;
    for (const Entry& entry : all) {
      if (entry.IsValue("a#/int")) {
        if (ticks > before && entry.time < start + ticks * kInterval + milliseconds(300)) {
          return true;
        }
        ++ticks;
      }
    }
    return false;
  }));
  const auto values = recorder.Values("a#/int");
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_GE(values[i].time, start + i * kInterval - kClocks) << i;
  }
}

TEST_F(Ticks, OfOneGroupComeInTheByteOrderOfTheNames) {
  const std::vector<std::string> names = {"b", "a", "Z", "\xc3\xa9", "a b", "a#/x", "10", "9", ""};
  std::vector<std::string> sorted = names;
  std::sort(sorted.begin(), sorted.end(), [](const std::string& left, const std::string& right) {
    return std::lexicographical_compare(
        left.begin(), left.end(), right.begin(), right.end(),
        [](char a, char b) { return static_cast<unsigned char>(a) < static_cast<unsigned char>(b); });
  });
  Subscribe(handle, names, 100);
  ASSERT_TRUE(recorder.WaitForValue("\xc3\xa9", 3));
  std::size_t next = 0;
  for (const Entry& entry : recorder.All()) {
    if (entry.kind == Entry::Kind::Value) {
      EXPECT_EQ(entry.item, sorted[next % sorted.size()]) << next;
      ++next;
    }
  }
}

TEST_F(Ticks, OfShorterIntervalsComeFirst) {
  Subscribe(handle, {"short#/int"}, 100);
  Subscribe(handle, {"long#/int"}, 200);
  ASSERT_TRUE(recorder.WaitForValue("long#/int", 5));
  // A pass at which the longer one is due finds the shorter one due too.
  std::string previous;
  for (const Entry& entry : recorder.All()) {
    if (entry.kind == Entry::Kind::Value) {
      if (entry.item == "long#/int") {
        EXPECT_EQ(previous, "short#/int");
      }
      previous = entry.item;
    }
  }
}

TEST_F(Ticks, ComeOnOneThreadThatIsNotTheCallers) {
  Subscribe(handle, {"a#/int"}, 100);
  Subscribe(handle, {"b#/int"}, 300);
  ASSERT_TRUE(recorder.WaitForValue("b#/int", 3));
  Read(handle, "c#");
  const auto caller = recorder.Values("c#").at(0).thread;
  const auto monitor = recorder.Values("a#/int").at(0).thread;
  EXPECT_NE(caller, monitor);
  for (const Entry& entry : recorder.All()) {
    if (entry.IsValue("a#/int") || entry.IsValue("b#/int")) {
      EXPECT_EQ(entry.thread, monitor);
    }
  }
}

TEST_F(Ticks, AnItemAtTwoIntervalsIsPushedByBoth) {
  Subscribe(handle, {"a#/int", "fast#/int"}, 100);
  Subscribe(handle, {"a#/int", "slow#/int"}, 300);
  ASSERT_TRUE(recorder.WaitForValue("slow#/int", 5));
  // Its pushes are those of its two groups.
  const auto all = recorder.All();
  const auto count = [&all](const std::string& item) {
    return std::count_if(all.begin(), all.end(), [&item](const Entry& entry) { return entry.IsValue(item); });
  };
  EXPECT_LE(std::abs(count("a#/int") - count("fast#/int") - count("slow#/int")), 1);
}

// Intervals at the ends of what the argument can hold. Those that lie in the past are due on every pass,
// those in the far future never again after the first push.
TEST_F(Ticks, IntervalsOfEverySizeAreServed) {
  using Limits = std::numeric_limits<long long>;
  const long long everyPass[] = {
      0, 1, 99, -1, -100, -1'000'000'000'000, Limits::min() / 1'000'000, Limits::min() + 1, Limits::min()};
  const long long onlyOnce[] = {100'000'000,
                                Limits::max() / 1'000'000'000,
                                Limits::max() / 1'000'000,
                                Limits::max() / 1'000'000 + 1,
                                Limits::max() / 1000,
                                Limits::max() - 1,
                                Limits::max()};
  const auto nameOf = [](long long interval) { return "every" + std::to_string(interval) + "#/int"; };
  for (const long long interval : everyPass) {
    EXPECT_EQ(Subscribe(handle, {nameOf(interval)}, interval), 0) << interval;
  }
  for (const long long interval : onlyOnce) {
    EXPECT_EQ(Subscribe(handle, {nameOf(interval)}, interval), 0) << interval;
  }
  Subscribe(handle, {"ordinary#/int"}, 100);
  EXPECT_TRUE(recorder.WaitForValue("ordinary#/int", 10));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("ordinary#/int", 1)));
  for (const long long interval : everyPass) {
    EXPECT_TRUE(recorder.WaitForValue(nameOf(interval), 8)) << interval;
  }
  for (const long long interval : onlyOnce) {
    EXPECT_EQ(recorder.CountValues(nameOf(interval)), 1u) << interval;
  }
  for (const long long interval : everyPass) {
    EXPECT_EQ(Unsubscribe(handle, {nameOf(interval)}), 0);
  }
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("ordinary#/int", 3)));
  EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level >= 4; }), 0u);
}

}  // namespace
}  // namespace ZoTest
