// The simulator's own thread, and how it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <future>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "qapi/testing.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using ZoIO::SensorManagerSimulator;

constexpr const char* workerName = "ZoIO::SensorManagerSimulator::Simulate";
constexpr const char* destructorName = "ZoIO::SensorManagerSimulator::~SensorManagerSimulator";

class SimulatorWorker : public ::testing::Test {
 protected:
  bool WaitForLine(const char* function, std::size_t count = 1) {
    return recorder.WaitForEntry([=](const Entry& entry) { return entry.function == function; }, count);
  }

  // Makes every pass fail.
  void BreakPasses() {
    simulator->Update("/list", ZoJson("[1,2]"), true);
    simulator->PLC()->Item("/list#/x");
  }

  Recorder recorder;
  std::shared_ptr<ZoIO::Logger> logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  std::shared_ptr<SensorManagerSimulator> simulator = std::make_shared<SensorManagerSimulator>(logger);
};

TEST_F(SimulatorWorker, ChangesValuesAboutOnceASecond) {
  const Stopwatch watch;
  simulator->PLC()->Item("/bool#/v");
  const auto cache = simulator->Cache();
  // Two passes apart, at least: the first may have begun with the item.
  ASSERT_TRUE(Eventually([&] { return cache->SizeAt("/bool") >= 3; }));
  EXPECT_GE(watch.Milliseconds().count(), 1500);
}

TEST_F(SimulatorWorker, WarnsOfEachPassThatFailsWithItsTextAndGoesOnASecondLater) {
  BreakPasses();
  ASSERT_TRUE(WaitForLine(workerName, 4));
  std::string expected;
  try {
    simulator->Pass();
  } catch (const ZoJsonError& e) {
    expected = e.what();
  }
  Recorder::Entries lines;
  for (const Entry& entry : recorder.Logs()) {
    if (entry.function == workerName) {
      lines.push_back(entry);
    }
  }
  auto shortest = Clock::duration::max();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].level, 4);
    EXPECT_EQ(lines[i].message, expected);
    if (i > 0) {
      const auto gap = lines[i].time - lines[i - 1].time;
      // A line may have reached the recorder late.
      EXPECT_GE(gap, std::chrono::milliseconds(900)) << i;
      shortest = std::min(shortest, gap);
    }
  }
  EXPECT_LT(shortest, std::chrono::milliseconds(1400));
}

TEST_F(SimulatorWorker, ThreadBearsItsName) {
  std::promise<std::string> shown;
  recorder.OnLog([&, told = false](const Entry& entry) mutable {
    if (entry.function == workerName && !std::exchange(told, true)) {
      std::ifstream file("/proc/thread-self/comm");
      std::string name;
      std::getline(file, name);
      shown.set_value(name);
    }
  });
  // The base library knows the whole name: an operation that fails in the thread of that name fails a pass.
  qTest_FailOperationIn("SensorManagerSimulator::Simulate::Thread", qOperation::LockEnter, 1,
                        qStatus_TimeOut);
  const bool failed = WaitForLine(workerName);
  qTest_Reset();
  ASSERT_TRUE(failed);
  EXPECT_EQ(shown.get_future().get(), "SensorManagerSi");
}

TEST_F(SimulatorWorker, RecoversFromAPassThatFailed) {
  BreakPasses();
  ASSERT_TRUE(WaitForLine(workerName));
  simulator->Update("/list", ZoJson("{}"), true);
  EXPECT_TRUE(Eventually([&] { return simulator->Cache()->Exists("/list"); }));
}

TEST_F(SimulatorWorker, EndsAfterOneLastPass) {
  simulator->PLC()->Item("/int#/v");
  const auto cache = simulator->Cache();
  ASSERT_TRUE(Eventually([&] { return cache->SizeAt("/int") == 1; }));
  // A value of the same millisecond would be dropped.
  const long long before = ZoIO::CacheManager::TimeInMills();
  while (ZoIO::CacheManager::TimeInMills() == before) {
  }
  const std::size_t passes = cache->SizeAt("/int");
  const Stopwatch watch;
  simulator.reset();
  // Woken instead of waited for, and a pass came after the wake-up.
  EXPECT_LT(watch.Milliseconds().count(), 900);
  EXPECT_EQ(cache->SizeAt("/int"), passes + 1);
}

TEST_F(SimulatorWorker, EndTellsOnlyOfTheRegistry) {
  simulator.reset();
  EXPECT_THAT(recorder.LogLines(), ElementsAre("3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
                                               "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."));
}

TEST_F(SimulatorWorker, ManyComeAndGo) {
  const std::uint64_t objects = qTest_LiveObjects();
  const Stopwatch watch;
  for (int i = 0; i < 20; ++i) {
    SensorManagerSimulator other(logger);
    other.PLC()->Item("/int#/v");
  }
  EXPECT_LT(watch.Milliseconds().count(), 10'000);
  EXPECT_EQ(qTest_LiveObjects(), objects);
}

TEST_F(SimulatorWorker, BlockedPassDelaysItsEndByAboutASecondOnly) {
  const std::uint64_t objects = qTest_LiveObjects();
  Gate gate;
  recorder.OnLog([&](const Entry& entry) {
    if (entry.function == workerName) {
      gate.Wait();
    }
  });
  BreakPasses();
  ASSERT_TRUE(gate.WaitForArrivals());
  recorder.Clear();
  const std::weak_ptr<ZoIO::CacheManager> cache = simulator->Cache();
  const Stopwatch watch;
  simulator.reset();
  EXPECT_GE(watch.Milliseconds().count(), 990);
  EXPECT_LT(watch.Milliseconds().count(), 10'000);
  const Recorder::Entries lines = recorder.Logs();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0].level, 5);
  EXPECT_EQ(lines[0].function, destructorName);
  EXPECT_THAT(lines[0].message,
              MatchesRegex("ZoIO::SensorManagerSimulator::~SensorManagerSimulator failed with status -1 "
                           "\\(time-out\\) at "
                           "hmi/zoiohandler/zoiohandler/vyrnclient/sensormanagersimulator:[0-9]+"));
  // What the pass still uses is there, and goes when it ends.
  EXPECT_FALSE(cache.expired());
  gate.Open();
  EXPECT_TRUE(Eventually([&] { return cache.expired(); }));
  // Its own objects are those of the simulator that is gone by now.
  EXPECT_TRUE(Eventually([&] { return qTest_LiveObjects() < objects; }));
}

// Its last pass comes after all that waited for it. A busy machine makes an end late, but not all of them.
TEST_F(SimulatorWorker, BlockedLastPassDelaysItsEndByASecond) {
  Clock::duration shortest = Clock::duration::max();
  const Deadline deadline;
  while (shortest >= std::chrono::milliseconds(1500) && !deadline.Expired()) {
    Gate gate;
    simulator = std::make_shared<SensorManagerSimulator>(logger);
    recorder.Clear();
    BreakPasses();
    ASSERT_TRUE(WaitForLine(workerName));
    // From here on the worker waits, unless the machine is slow.
    recorder.OnLog([&](const Entry& entry) {
      if (entry.function == workerName) {
        gate.Wait(kLimit);
      }
    });
    const std::weak_ptr<ZoIO::CacheManager> cache = simulator->Cache();
    const Stopwatch watch;
    simulator.reset();
    shortest = std::min(shortest, watch.Elapsed());
    EXPECT_TRUE(gate.WaitForArrivals());
    gate.Open();
    EXPECT_TRUE(Eventually([&] { return cache.expired(); }));
    recorder.OnLog({});
  }
  EXPECT_GE(shortest, std::chrono::milliseconds(990));
  EXPECT_LT(shortest, std::chrono::milliseconds(1500));
}

TEST_F(SimulatorWorker, ShutdownEndsTheCacheThenTheRegistryWhoeverHoldsThem) {
  const auto cache = simulator->Cache();
  const auto registry = simulator->PLC();
  const std::uint64_t before = qTest_LiveObjects();
  std::uint64_t between = 0;
  recorder.OnLog([&](const Entry& entry) {
    if (entry.message == "Destroying item manager.") {
      between = qTest_LiveObjects();
    }
  });
  simulator->Shutdown();
  recorder.OnLog({});
  // Of each go its thread and the thread's handle.
  EXPECT_EQ(between, before - 2);
  EXPECT_EQ(qTest_LiveObjects(), before - 4);
}

#ifdef NDEBUG  // elsewhere the ranks of the locks abort: what a callback must not do is found early
TEST_F(SimulatorWorker, EndInItsOwnLogCallbackIsADeadlockThatIsToldAndSurvived) {
  std::atomic<bool> ended = false;
  BreakPasses();
  const std::weak_ptr<ZoIO::CacheManager> cache = simulator->Cache();
  // From here on the simulator is its own thread's.
  recorder.OnLog([&](const Entry& entry) {
    if (entry.function == workerName && simulator != nullptr) {
      simulator.reset();
      ended = true;
    }
  });
  ASSERT_TRUE(Eventually([&] { return ended.load(); }));
  EXPECT_TRUE(Eventually([&] { return cache.expired(); }));
  const std::string text = std::system_error(EDEADLK, std::generic_category()).what();
  EXPECT_EQ(recorder.Count([&](const Entry& entry) {
    return entry.level == 5 && entry.function == destructorName && entry.message == text;
  }),
            1u);
  EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level >= 4; }), 2u);
}
#endif

TEST_F(SimulatorWorker, UpdateDoesNotWaitForAPass) {
  Gate gate;
  recorder.OnLog([&](const Entry& entry) {
    if (entry.function == workerName) {
      gate.Wait();
    }
  });
  BreakPasses();
  ASSERT_TRUE(gate.WaitForArrivals());
  // The pass holds its mutex at the gate: Update comes back all the same, while Read has to wait.
  simulator->Update("/other", ZoJson::Of(1), true);
  std::atomic<bool> read = false;
  std::thread reader([&] {
    simulator->Read("/other", true);
    read = true;
  });
  simulator->Update("/other", ZoJson::Of(2), true);
  EXPECT_FALSE(read);
  recorder.OnLog({});
  gate.Open();
  reader.join();
  EXPECT_TRUE(read);
}

TEST_F(SimulatorWorker, ThreadsMayUseItDuringPasses) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([this, t] {
      const std::string uri = "/int" + std::to_string(t);
      for (int i = 0; i < 200; ++i) {
        simulator->PLC()->Item(uri + "#/v" + std::to_string(i % 10));
        simulator->Update(uri, ZoJson(R"({"v0":1})"), true);
        simulator->Read(uri, true);
        simulator->Create(uri, {}, true);
        simulator->Delete(uri, true);
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    simulator->Pass();
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  simulator->Pass();
  EXPECT_EQ(simulator->PLC()->Snapshot().size(), 30u);
  EXPECT_EQ(simulator->Cache()->Size(), 3u);
}

}  // namespace
}  // namespace ZoTest
