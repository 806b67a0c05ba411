// The registry's own thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qapi/testing.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoapi/exception.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

class ItemWorker : public ::testing::Test {
 protected:
  Recorder recorder;
  std::shared_ptr<ZoIO::Logger> logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  std::unique_ptr<FakeSensorManager> sensor =
      std::make_unique<FakeSensorManager>(logger, FakeSensorManager::Worker::Reads);
};

TEST_F(ItemWorker, FindsAnItemAfterItAppeared) {
  ZoIO::ItemInfo& item = sensor->PLC()->Item("/r#/a");
  EXPECT_FALSE(item.valid);
  sensor->SetResource("/r", R"({"a":5})");
  EXPECT_TRUE(Eventually([&] { return bool(item.valid); }));
  EXPECT_TRUE(sensor->PLC()->InvalidItems().empty());
}

TEST_F(ItemWorker, ReadsOnItsOwnThreadWithoutTheOfflineWarning) {
  sensor->PLC()->Item("/r#/a");
  ASSERT_TRUE(sensor->WaitForCalls("Read", 2));
  const FakeSensorManager::Request request = sensor->Calls()[1];
  EXPECT_EQ(request.uri, "/r");
  EXPECT_FALSE(request.logFailure);
  EXPECT_NE(request.thread, std::this_thread::get_id());
}

TEST_F(ItemWorker, GoesOnAfterAPassThatFailed) {
  sensor->SetScript("Read", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  sensor->PLC()->Item("/r#/a");
  EXPECT_TRUE(sensor->WaitForCalls("Read", 4));
  EXPECT_EQ(recorder.CountMessages("broken"), 0u);
}

TEST_F(ItemWorker, WaitsBetweenItsPasses) {
  std::atomic<int> reads = 0;
  std::vector<Clock::time_point> times(4);
  sensor->SetScript("Read", [&](const auto&) {
    const int read = reads.fetch_add(1);
    if (read < 4) {
      times[static_cast<std::size_t>(read)] = Clock::now();
    }
    return ZoJson(R"({"status":-404,"payload":null})");
  });
  sensor->PLC()->Item("/r#/a");
  EXPECT_TRUE(sensor->WaitForCalls("Read", 5));
  sensor.reset();  // the worker must not outlive what its reads use
  ASSERT_GE(reads, 4);
  EXPECT_GE(times[2] - times[1], std::chrono::milliseconds(990));
  EXPECT_GE(times[3] - times[2], std::chrono::milliseconds(990));
}

// A busy machine makes passes late, but not all of them.
TEST_F(ItemWorker, WaitsNoLongerThanASecond) {
  std::mutex mutex;
  std::vector<Clock::time_point> times;  // guarded by mutex
  sensor->SetScript("Read", [&](const auto&) {
    const std::lock_guard lock(mutex);
    times.push_back(Clock::now());
    return ZoJson(R"({"status":-404,"payload":null})");
  });
  const auto smallestGap = [&] {
    const std::lock_guard lock(mutex);
    Clock::duration smallest = Clock::duration::max();
    for (std::size_t i = 2; i < times.size(); ++i) {  // the first read is not the worker's
      smallest = std::min(smallest, times[i] - times[i - 1]);
    }
    return smallest;
  };
  sensor->PLC()->Item("/r#/a");
  EXPECT_TRUE(Eventually([&] { return smallestGap() < std::chrono::milliseconds(1500); }));
  sensor.reset();  // the worker must not outlive what its reads use
}

TEST_F(ItemWorker, ItemWaitsWhileAResourceIsAskedForWithoutPause) {
  std::atomic<bool> answer = false;
  sensor->SetScript("Read", [&](const auto&) {
    std::this_thread::yield();
    return answer ? ZoJson(R"({"status":1,"payload":{"a":1}})") : ZoJson();
  });
  sensor->PLC()->Item("/r#/a");
  // More reads than passes: the worker is in its tight loop.
  ASSERT_TRUE(sensor->WaitForCalls("Read", 1000));
  std::atomic<bool> returned = false;
  std::thread asker([&] {
    EXPECT_TRUE(sensor->PLC()->Item("/r#/a").valid);
    returned = true;
  });
  const std::size_t before = sensor->CallCount("Read");
  EXPECT_TRUE(sensor->WaitForCalls("Read", before + 1000));
  EXPECT_FALSE(returned);
  answer = true;
  asker.join();
  EXPECT_TRUE(returned);
  sensor.reset();  // the worker must not outlive what its reads use
}

TEST_F(ItemWorker, TightLoopEndsWhenTheRegistryIsGivenUp) {
  sensor->SetScript("Read", [](const auto&) { return ZoJson(); });
  sensor->PLC()->Item("/r#/a");
  ASSERT_TRUE(sensor->WaitForCalls("Read", 1000));
  recorder.Clear();
  sensor.reset();
  EXPECT_THAT(recorder.LogLines(), ElementsAre("3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
                                               "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."));
}

TEST_F(ItemWorker, WorksUntilTheLineOfItsEndIsWritten) {
  sensor->SetScript("Read", [](const auto&) {
    std::this_thread::yield();
    return ZoJson();
  });
  sensor->PLC()->Item("/r#/a");
  // More reads than passes: the worker is in its tight loop.
  ASSERT_TRUE(sensor->WaitForCalls("Read", 1000));
  bool worked = false;
  recorder.OnLog([&](const Entry& entry) {
    if (entry.message == "Destroying item manager.") {
      worked = sensor->WaitForCalls("Read", sensor->CallCount("Read") + 1000);
    }
  });
  sensor->PLC()->Shutdown();
  recorder.OnLog({});
  EXPECT_TRUE(worked);
}

TEST_F(ItemWorker, EndsWhileItSleeps) {
  const Stopwatch watch;
  for (int i = 0; i < 20; ++i) {
    FakeSensorManager other(logger);
  }
  // Waiting out the sleeps would take a second each.
  EXPECT_LT(watch.Milliseconds().count(), 10'000);
  EXPECT_EQ(recorder.CountMessages("Item manager destroyed."), 20u);
}

// Whether to go on is looked at before a sleep alone. The counts tell which sleeps a pass came after.
TEST_F(ItemWorker, MakesOneFullPassMoreWhenItsSleepIsCutShortByTheEnd) {
  sensor->PLC()->Shutdown();  // from here on the worker's name is that of the one under test
  qTest_FailOperationIn("ItemManager::ManageInvalidItems::Thread", qOperation::ThreadSleep, 0,
                        qStatus_Success);
  std::atomic<std::uint64_t> passes = 0;
  ZoIO::ItemManager::Source source;
  source.begin = [&] { ++passes; };
  source.read = [](const std::string&) { return ZoJson(R"({"status":-404,"payload":null})"); };
  source.keep = [](const std::string&, const ZoJson&) {};
  ZoIO::ItemManager registry(*sensor, false, source);
  for (const char* name : {"/a#/x", "/b#/x", "/a#/missing"}) {
    EXPECT_FALSE(registry.Item(name).valid) << name;
  }
  EXPECT_TRUE(Eventually([] { return qTest_CallCount() >= 1; }));
  sensor->Cache()->Add("/a", ZoJson(R"({"x":1})"));
  sensor->Cache()->Add("/b", ZoJson(R"({"x":1})"));
  registry.Shutdown();
  const std::uint64_t sleeps = qTest_CallCount();
  qTest_Reset();
  EXPECT_EQ(passes, sleeps);
  EXPECT_TRUE(registry.Item("/a#/x").valid);
  EXPECT_TRUE(registry.Item("/b#/x").valid);
  EXPECT_THAT(registry.InvalidItems(), ElementsAre("/a#/missing"));
  EXPECT_EQ(recorder.CountMessages("Item manager destroyed."), 2u);
}

// A manager that is only asked for what a registry needs at its beginning; the worker's reads go elsewhere.
TEST(ItemWorkerTimeOut, IsLoggedAtErrorAndTheWorkerTouchesNothingThatIsGone) {
  Recorder recorder;
  const auto logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  auto sensor = std::make_unique<FakeSensorManager>(logger);
  // Owned by the worker's read, so that the test can see when the worker lets go of everything.
  const auto gate = std::make_shared<Gate>();
  std::weak_ptr<int> heldByWorker;
  {
    const auto held = std::make_shared<int>(0);
    heldByWorker = held;
    ZoIO::ItemManager::Source source;
    source.begin = [] {};
    source.read = [gate, held](const std::string&) {
      gate->Wait();
      return ZoJson(R"({"status":1,"payload":{"a":1}})");
    };
    source.keep = [cache = sensor->Cache()](const std::string& uri, const ZoJson& payload) {
      cache->Add(uri, payload);
    };
    auto registry = std::make_unique<ZoIO::ItemManager>(*sensor, false, std::move(source));
    registry->Item("/r#/a");
    ASSERT_TRUE(gate->WaitForArrivals());
    recorder.Clear();
    const Stopwatch watch;
    registry.reset();
    EXPECT_GE(watch.Milliseconds().count(), 990);
  }
  const Recorder::Entries lines = recorder.Logs();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, "Destroying item manager.");
  EXPECT_EQ(lines[1].level, 5);
  EXPECT_EQ(lines[1].function, "ZoIO::ItemManager::~ItemManager");
  EXPECT_THAT(lines[1].message, StartsWith("ZoIO::ItemManager::~ItemManager failed with status -1 "));
  sensor.reset();
  gate->Open();
  // The worker ends by itself and frees what it owned; the sanitizers watch what it touched.
  EXPECT_TRUE(Eventually([&] { return heldByWorker.expired(); }));
}

// A busy machine makes an end late, but not all of them.
TEST(ItemWorkerTimeOut, ComesAfterASecond) {
  Recorder recorder;
  FakeSensorManager sensor(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
  Clock::duration shortest = Clock::duration::max();
  const Deadline deadline;
  while (shortest >= std::chrono::milliseconds(1500) && !deadline.Expired()) {
    const auto gate = std::make_shared<Gate>();
    ZoIO::ItemManager::Source source;
    source.begin = [] {};
    source.read = [gate](const std::string&) {
      gate->Wait();
      return ZoJson(R"({"status":1,"payload":null})");
    };
    source.keep = [](const std::string&, const ZoJson&) {};
    auto registry = std::make_unique<ZoIO::ItemManager>(sensor, false, std::move(source));
    registry->Item("/r#/a");
    EXPECT_TRUE(gate->WaitForArrivals());
    const Stopwatch watch;
    registry.reset();
    shortest = std::min(shortest, watch.Elapsed());
    gate->Open();
    // What the worker owns goes with its thread.
    EXPECT_TRUE(Eventually([&] { return gate.use_count() == 1; }));
  }
  EXPECT_GE(shortest, std::chrono::milliseconds(990));
  EXPECT_LT(shortest, std::chrono::milliseconds(1500));
}

}  // namespace
}  // namespace ZoTest
