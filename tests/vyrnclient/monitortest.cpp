// The monitor thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "qapi/thread.h"
#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;

class MonitorThread : public FakeInstanceTest {
 protected:
  MonitorThread() {
    sensor->SetResource("/r", R"({"a":1,"b":2,"c":3})");
    for (const char* name : {"/r#/a", "/r#/b", "/r#/c"}) {
      Item(name);
    }
    recorder.Clear();
  }
};

TEST_F(MonitorThread, PushesSubscribedItemsOnItsOwnThread) {
  Subscribe(*client, {"/r#/a"}, nullptr, 100ms);
  ASSERT_TRUE(recorder.WaitForValue("/r#/a", 3));
  const Recorder::Entries values = recorder.Values("/r#/a");
  EXPECT_NE(values[0].thread, qThread_CurrentId());
  EXPECT_EQ(values[0].thread, values[2].thread);
  EXPECT_EQ(values[0].value.value.int64, 1);
}

TEST_F(MonitorThread, BearsItsName) {
  std::string name;
  Gate seen;
  recorder.OnValue([&](const Entry& entry) {
    if (!seen.IsOpen()) {
      std::ifstream file("/proc/self/task/" + std::to_string(entry.thread) + "/comm");
      std::getline(file, name);
      seen.Open();
    }
  });
  Subscribe(*client, {"/r#/a"}, nullptr, 100ms);
  ASSERT_TRUE(seen.Wait());
  recorder.OnValue({});
  // As much of it as the system keeps.
  EXPECT_EQ(name, std::string("ZoVyrnClient::Monitor::Thread").substr(0, 15));
}

TEST_F(MonitorThread, PassesAre100MillisecondsApart) {
  Subscribe(*client, {"/r#/a"}, nullptr, 0ms);
  ASSERT_TRUE(recorder.WaitForValue("/r#/a", 4));
  const Recorder::Entries values = recorder.Values("/r#/a");
  for (std::size_t i = 1; i < 4; ++i) {
    EXPECT_GE(values[i].time - values[i - 1].time, 90ms);
  }
}

// A machine under load can only lengthen a gap, so among many the shortest tells the period.
TEST_F(MonitorThread, PassesAreNoFurtherApartThanTheirSleep) {
  Subscribe(*client, {"/r#/a"}, nullptr, 0ms);
  Clock::time_point last{};
  std::size_t seen = 0;
  Clock::duration shortest = Clock::duration::max();
  EXPECT_TRUE(recorder.WaitFor([&](const Recorder::Entries& all) {
    for (; seen < all.size(); ++seen) {
      if (all[seen].kind == Entry::Kind::Value) {
        if (last != Clock::time_point{}) {
          shortest = std::min(shortest, all[seen].time - last);
        }
        last = all[seen].time;
      }
    }
    return shortest < 125ms;
  })) << std::chrono::duration_cast<std::chrono::milliseconds>(shortest).count()
      << " ms";
}

TEST_F(MonitorThread, KeepsTheIntervalsOfItsGroups) {
  const auto start = Clock::now();
  Subscribe(*client, {"/r#/a"}, nullptr, 500ms);
  ASSERT_TRUE(recorder.WaitForValue("/r#/a", 4));
  // The first comes at once, the fourth three intervals later.
  EXPECT_GE(recorder.Values("/r#/a")[3].time - start, 1450ms);
}

// The last letters of what each pass pushed, from "/r#/a" to "a". At least 100 ms lie between two passes.
std::vector<std::string> LettersOfPasses(const Recorder::Entries& all) {
  std::vector<std::string> passes;
  Clock::time_point last{};
  for (const Entry& entry : all) {
    if (entry.kind != Entry::Kind::Value) {
      continue;
    }
    if (passes.empty() || entry.time - last >= 90ms) {
      passes.emplace_back();
    }
    passes.back() += entry.item.back();
    last = entry.time;
  }
  return passes;
}

TEST_F(MonitorThread, GroupsTickInTheOrderOfTheirIntervals) {
  Subscribe(*client, {"/r#/c"}, nullptr, 300ms);
  Subscribe(*client, {"/r#/a"}, nullptr, 100ms);
  Subscribe(*client, {"/r#/b"}, nullptr, 200ms);
  EXPECT_TRUE(recorder.WaitFor([](const Recorder::Entries& all) {
    const std::vector<std::string> passes = LettersOfPasses(all);
    return std::count(passes.begin(), passes.end(), "abc") >= 2;
  }));
  for (const std::string& letters : LettersOfPasses(recorder.All())) {
    EXPECT_TRUE(std::is_sorted(letters.begin(), letters.end())) << letters;
  }
}

TEST_F(MonitorThread, GroupThatFellBehindCatchesUpWithoutSkipping) {
  Gate gate;
  recorder.OnValue([&](const Entry&) { gate.Wait(); });
  const Stopwatch watch;
  Subscribe(*client, {"/r#/a"}, nullptr, 200ms);
  ASSERT_TRUE(gate.WaitForArrivals());
  while (watch.Elapsed() < 1500ms) {
    std::this_thread::sleep_for(10ms);
  }
  recorder.OnValue({});
  // Seven ticks were due meanwhile; they come on consecutive passes.
  const Stopwatch catchingUp;
  gate.Open();
  ASSERT_TRUE(recorder.WaitForValue("/r#/a", 8));
  EXPECT_GE(catchingUp.Elapsed(), 500ms);
}

TEST_F(MonitorThread, NothingIsToldOfItsTicks) {
  Subscribe(*client, {"/r#/a"}, nullptr, 0ms);
  recorder.Clear();
  ASSERT_TRUE(recorder.WaitForValue("/r#/a", 3));
  EXPECT_TRUE(recorder.Logs().empty());
}

TEST_F(MonitorThread, WaitsWhileTheInstanceWorks) {
  Subscribe(*client, {"/r#/a"}, nullptr, 0ms);
  ASSERT_TRUE(recorder.WaitForValue("/r#/a"));
  bool pushedMeanwhile = true;
  sensor->SetScript("Read", [&](const auto&) {
    const std::size_t before = recorder.CountValues("/r#/a");
    std::this_thread::sleep_for(350ms);
    pushedMeanwhile = recorder.CountValues("/r#/a") != before;
    return ZoJson(R"({"status":1,"payload":{"b":2}})");
  });
  EXPECT_EQ(client->Read("/r#/b"), 0);
  EXPECT_FALSE(pushedMeanwhile);
  // And goes on afterwards.
  const std::size_t count = recorder.CountValues("/r#/a");
  EXPECT_TRUE(recorder.WaitForValue("/r#/a", count + 1));
}

}  // namespace
}  // namespace ZoTest
