// Host callbacks that do not return while their instance is destroyed. The destruction gives each thread a
// second, goes on without it, and whatever the thread does later is not heard any more.
//
// Every scenario runs ten times, in processes side by side.
#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "tests/plugin/plugintest.h"
#include "tests/plugin/processstate.h"
#include "tests/support/childprocess.h"

namespace ZoTest {
namespace {

using std::chrono::milliseconds;

constexpr int kProcesses = 10;

// About a second for each blocked thread; the rest is slack for ten processes on a loaded machine.
constexpr milliseconds kAtLeast{900};
constexpr milliseconds kSlack{kSanitized ? 5000 : 2500};

bool IsSimulatorWarning(const Entry& entry) {
  return entry.kind == Entry::Kind::Log && entry.function == "ZoIO::SensorManagerSimulator::Simulate";
}

// One host with one instance, for use in a child process.
class Scenario {
 public:
  Scenario() : threads(InitialThreadCount()) {
    const ioHandlerParam param = recorder.Param();
    EXPECT_EQ(plugin.createIoInstance("simulator", 0, &param, &handle), 0);
  }

  // Makes every pass of the simulator fail, which it logs on its own thread.
  void MakeSimulatorLog() {
    EXPECT_EQ(Subscribe(plugin, handle, 60'000, {"res#/foo"}), 0);
    EXPECT_EQ(plugin.callMethod(nullptr, nullptr, "Update", R"({"uri":"res","args":"[1,2]"})", handle), 0);
  }

  void Destroy(milliseconds atLeast, milliseconds atMost) {
    const Stopwatch watch;
    EXPECT_EQ(plugin.destroyIoInstance(handle), 0);
    sizeAtReturn = recorder.Size();
    EXPECT_GE(watch.Milliseconds(), atLeast);
    EXPECT_LE(watch.Milliseconds(), atMost);
  }

  void ExpectProcessIsHealthy() {
    Recorder other;
    const ioHandlerParam param = other.Param();
    void* second = nullptr;
    ASSERT_EQ(plugin.createIoInstance("simulator", 0, &param, &second), 0);
    EXPECT_EQ(plugin.readItem("read#", second), 0);
    EXPECT_EQ(Subscribe(plugin, second, 100, {"res#/int"}), 0);
    EXPECT_TRUE(other.WaitForEntry(IsInteger("res#/int", 1)));
    EXPECT_EQ(plugin.destroyIoInstance(second), 0);
    EXPECT_EQ(other.CountMessages("Item manager destroyed."), 1u);
  }

  // Once the callbacks have returned: unloading waits for the stragglers, so nothing can come any more.
  void UnloadAndExpectSilence() {
    plugin.Unload();
    EXPECT_FALSE(plugin.IsMapped());
    EXPECT_TRUE(WaitForThreadCount(threads));
    const auto all = recorder.All();
    EXPECT_EQ(all.size(), sizeAtReturn);
    for (std::size_t i = sizeAtReturn; i < all.size(); ++i) {
      ADD_FAILURE() << "came late: " << all[i].item << all[i].text << all[i].response;
    }
#if defined(__SANITIZE_ADDRESS__)
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
  }

  std::vector<Entry> LinesOfLevel(int level) const {
    std::vector<Entry> lines;
    for (const Entry& log : recorder.Logs()) {
      if (log.level == level) {
        lines.push_back(log);
      }
    }
    return lines;
  }

  void ExpectJoinFailureWasLogged() {
    const auto critical = LinesOfLevel(6);
    ASSERT_EQ(critical.size(), 1u);
    EXPECT_EQ(critical[0].function, "ZoIO::ZoVyrnClient::~ZoVyrnClient");
    EXPECT_FALSE(critical[0].message.empty());
    EXPECT_EQ(recorder.CountMessages("Joining ZoVyrnClient::Monitor thread."), 1u);
    EXPECT_EQ(recorder.CountMessages("ZoVyrnClient::Monitor thread joined."), 0u);
    EXPECT_EQ(recorder.CountMessages("ZoIoHandler instance destroyed successfully."), 0u);
    EXPECT_EQ(recorder.CountMessages("Destroying item manager."), 1u);
    EXPECT_EQ(recorder.CountMessages("Item manager destroyed."), 1u);
  }

  Recorder recorder;
  Gate gate;
  PluginLibrary plugin;
  void* handle = nullptr;
  std::size_t threads;
  std::size_t sizeAtReturn = 0;
};

void RunSideBySide(const std::function<void()>& scenario) {
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (int i = 0; i < kProcesses; ++i) {
    children.push_back(std::make_unique<ChildProcess>(scenario));
  }
  for (int i = 0; i < kProcesses; ++i) {
    const ChildResult result = children[static_cast<std::size_t>(i)]->Wait(std::chrono::seconds(100));
    EXPECT_TRUE(result.Succeeded()) << "process " << i << ": " << result.Describe();
  }
}

TEST(Stragglers, AValueCallbackThatBlocksForThreeSeconds) {
  RunSideBySide([] {
    Scenario scenario;
    scenario.recorder.OnValue([&](const Entry&) { scenario.gate.Wait(std::chrono::seconds(3)); });
    // The second item would follow in the same tick.
    ASSERT_EQ(Subscribe(scenario.plugin, scenario.handle, 100, {"a#/int", "b#/int"}), 0);
    ASSERT_TRUE(scenario.gate.WaitForArrivals());
    scenario.Destroy(kAtLeast, milliseconds(1000) + kSlack);
    scenario.ExpectJoinFailureWasLogged();
    ASSERT_TRUE(scenario.gate.WaitUntilEmpty());
    scenario.UnloadAndExpectSilence();
  });
}

TEST(Stragglers, AValueCallbackThatBlocksUntilAfterTheDestruction) {
  RunSideBySide([] {
    Scenario scenario;
    scenario.recorder.OnValue([&](const Entry&) { scenario.gate.Wait(); });
    ASSERT_EQ(Subscribe(scenario.plugin, scenario.handle, 100, {"a#/int", "b#/int"}), 0);
    ASSERT_TRUE(scenario.gate.WaitForArrivals());
    scenario.Destroy(kAtLeast, milliseconds(1000) + kSlack);
    scenario.ExpectJoinFailureWasLogged();
    scenario.ExpectProcessIsHealthy();
    scenario.gate.Open();
    ASSERT_TRUE(scenario.gate.WaitUntilEmpty());
    scenario.ExpectProcessIsHealthy();
    scenario.UnloadAndExpectSilence();
  });
}

// The simulator's thread logs while it holds the simulator's data.
TEST(Stragglers, ALogCallbackThatBlocksTheSimulatorForThreeSeconds) {
  RunSideBySide([] {
    Scenario scenario;
    scenario.recorder.OnLog([&](const Entry& entry) {
      if (IsSimulatorWarning(entry)) {
        scenario.gate.Wait(std::chrono::seconds(3));
      }
    });
    scenario.MakeSimulatorLog();
    ASSERT_TRUE(scenario.gate.WaitForArrivals());
    scenario.Destroy(kAtLeast, milliseconds(1000) + kSlack);
    EXPECT_EQ(scenario.recorder.CountMessages("ZoIoHandler instance destroyed successfully."), 1u);
    ASSERT_TRUE(scenario.gate.WaitUntilEmpty());
    scenario.UnloadAndExpectSilence();
  });
}

TEST(Stragglers, ALogCallbackThatBlocksTheSimulatorUntilAfterTheDestruction) {
  RunSideBySide([] {
    Scenario scenario;
    scenario.recorder.OnLog([&](const Entry& entry) {
      if (IsSimulatorWarning(entry)) {
        scenario.gate.Wait();
      }
    });
    scenario.MakeSimulatorLog();
    ASSERT_TRUE(scenario.gate.WaitForArrivals());
    scenario.Destroy(kAtLeast, milliseconds(1000) + kSlack);
    EXPECT_EQ(scenario.recorder.CountMessages("ZoIoHandler instance destroyed successfully."), 1u);
    scenario.ExpectProcessIsHealthy();
    scenario.gate.Open();
    ASSERT_TRUE(scenario.gate.WaitUntilEmpty());
    scenario.UnloadAndExpectSilence();
  });
}

#ifdef NDEBUG  // elsewhere the ranks of the locks abort
// Which no host should do. The thread cannot wait for its own end; it is told so, and everything else goes as ever.
TEST(Stragglers, ADestructionInsideTheSimulatorsOwnLogCallback) {
  RunSideBySide([] {
    Scenario scenario;
    scenario.recorder.OnLog([&scenario, begun = false](const Entry& entry) mutable {
      if (IsSimulatorWarning(entry) && !std::exchange(begun, true)) {
        scenario.Destroy(milliseconds(0), milliseconds(1000) + kSlack);
        scenario.gate.Open();
      }
    });
    scenario.MakeSimulatorLog();
    ASSERT_TRUE(scenario.gate.Wait(kLimit));
    EXPECT_EQ(scenario.recorder.CountMessages("ZoIoHandler instance destroyed successfully."), 1u);
    const auto errors = scenario.LinesOfLevel(5);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].function, "ZoIO::SensorManagerSimulator::~SensorManagerSimulator");
    EXPECT_EQ(errors[0].message, "Resource deadlock avoided");
    scenario.ExpectProcessIsHealthy();
    scenario.UnloadAndExpectSilence();
  });
}
#endif

TEST(Stragglers, BothThreadsBlockedAtOnce) {
  RunSideBySide([] {
    Scenario scenario;
    scenario.recorder.OnLog([&](const Entry& entry) {
      if (IsSimulatorWarning(entry)) {
        scenario.gate.Wait();
      }
    });
    Gate& gate = scenario.gate;
    scenario.MakeSimulatorLog();
    ASSERT_TRUE(gate.WaitForArrivals(1));
    scenario.recorder.OnValue([&](const Entry&) { gate.Wait(); });
    ASSERT_EQ(Subscribe(scenario.plugin, scenario.handle, 100, {"a#/int", "b#/int"}), 0);
    ASSERT_TRUE(gate.WaitForArrivals(2));
    scenario.Destroy(kAtLeast, milliseconds(2000) + kSlack);
    scenario.ExpectJoinFailureWasLogged();
    scenario.ExpectProcessIsHealthy();
    gate.Open();
    ASSERT_TRUE(gate.WaitUntilEmpty());
    scenario.UnloadAndExpectSilence();
  });
}

// Ten instances one after the other, each with a straggler of its own, all let go together.
TEST(Stragglers, OfManyInstancesMayPileUp) {
  const ChildResult result = RunInChild([] {
    const std::size_t threads = InitialThreadCount();
    Gate gate;
    std::vector<std::unique_ptr<Recorder>> hosts;
    std::vector<std::size_t> sizes;
    PluginLibrary plugin;
    std::vector<void*> handles;
    for (std::size_t i = 0; i < 10; ++i) {
      hosts.push_back(std::make_unique<Recorder>());
      hosts.back()->OnValue([&gate](const Entry&) { gate.Wait(); });
      const ioHandlerParam param = hosts.back()->Param();
      void* handle = nullptr;
      ASSERT_EQ(plugin.createIoInstance("simulator", 0, &param, &handle), 0);
      ASSERT_EQ(Subscribe(plugin, handle, 100, {"a#/int", "b#/int"}), 0);
      ASSERT_TRUE(gate.WaitForArrivals(i + 1));
      ASSERT_EQ(plugin.destroyIoInstance(handle), 0);
      sizes.push_back(hosts.back()->Size());
    }
    gate.Open();
    ASSERT_TRUE(gate.WaitUntilEmpty());
    plugin.Unload();
    EXPECT_FALSE(plugin.IsMapped());
    EXPECT_TRUE(WaitForThreadCount(threads));
    for (std::size_t i = 0; i < hosts.size(); ++i) {
      EXPECT_EQ(hosts[i]->Size(), sizes[i]) << i;
    }
  });
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
}

// Unloading with a live instance destroys it; a callback that blocks meanwhile is waited for, since its code
// must not be unloaded under it.
TEST(Stragglers, UnloadingWaitsForACallbackThatReturnsLate) {
  RunSideBySide([] {
    Scenario scenario;
    scenario.recorder.OnValue([&](const Entry&) { scenario.gate.Wait(std::chrono::seconds(3)); });
    ASSERT_EQ(Subscribe(scenario.plugin, scenario.handle, 100, {"a#/int", "b#/int"}), 0);
    ASSERT_TRUE(scenario.gate.WaitForArrivals());
    scenario.plugin.Unload();
    EXPECT_TRUE(scenario.gate.WaitUntilEmpty(milliseconds(0)));
    EXPECT_FALSE(scenario.plugin.IsMapped());
    EXPECT_TRUE(WaitForThreadCount(scenario.threads));
    scenario.ExpectJoinFailureWasLogged();
    EXPECT_EQ(scenario.recorder.CountValues("a#/int"), 1u);
    EXPECT_EQ(scenario.recorder.CountValues("b#/int"), 0u);
  });
}

// A callback that is late, but within the second, is simply waited for.
TEST(Stragglers, ACallbackThatReturnsInTimeIsNoStraggler) {
  RunSideBySide([] {
    Scenario scenario;
    scenario.recorder.OnValue([&](const Entry&) { scenario.gate.Wait(milliseconds(300)); });
    ASSERT_EQ(Subscribe(scenario.plugin, scenario.handle, 100, {"a#/int"}), 0);
    ASSERT_TRUE(scenario.gate.WaitForArrivals());
    scenario.Destroy(milliseconds(0), milliseconds(1000) + kSlack);
    EXPECT_TRUE(scenario.LinesOfLevel(6).empty());
    EXPECT_EQ(scenario.recorder.CountMessages("ZoVyrnClient::Monitor thread joined."), 1u);
    scenario.UnloadAndExpectSilence();
  });
}

}  // namespace
}  // namespace ZoTest
