// The simulator's thread, seen through the random numbers that it draws for its texts: how it seeds the generator, when
// its passes come, and how it ends out of the middle of one.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

namespace {

std::mutex mutex;
std::function<void()> onDraw;                              // guarded by mutex
std::vector<std::chrono::steady_clock::time_point> drawn;  // guarded by mutex
std::vector<unsigned> seeds;                               // guarded by mutex

}  // namespace

// The C library's generator, replaced in this program.
extern "C" int rand() noexcept {
  std::function<void()> hook;
  {
    const std::lock_guard held(mutex);
    drawn.push_back(std::chrono::steady_clock::now());
    hook = onDraw;
  }
  if (hook) {
    hook();
  }
  return 1;
}
extern "C" void srand(unsigned seed) noexcept {
  const std::lock_guard held(mutex);
  seeds.push_back(seed);
}

namespace ZoTest {
namespace {

using std::chrono::milliseconds;
using ZoIO::SensorManagerSimulator;

constexpr const char* destructorName = "ZoIO::SensorManagerSimulator::~SensorManagerSimulator";

class SimulatorRandom : public ::testing::Test {
 protected:
  SimulatorRandom() {
    const std::lock_guard held(mutex);
    drawn.clear();
    seeds.clear();
  }
  ~SimulatorRandom() override { OnDraw({}); }

  void OnDraw(std::function<void()> hook) {
    const std::lock_guard held(mutex);
    onDraw = std::move(hook);
  }

  // A simulator whose every pass draws one number.
  void Make() {
    simulator = std::make_shared<SensorManagerSimulator>(logger);
    simulator->Update("/string", ZoJson(R"({"v":"x"})"), true);
    simulator->PLC()->Item("/string#/v");
  }

  std::vector<std::chrono::steady_clock::time_point> WaitForPasses(std::size_t count) {
    EXPECT_TRUE(Eventually([&] {
      const std::lock_guard held(mutex);
      return drawn.size() >= count;
    }));
    const std::lock_guard held(mutex);
    return drawn;
  }

  Entry OnlyLineAbove(int level) {
    std::vector<Entry> lines;
    for (const Entry& entry : recorder.Logs()) {
      if (entry.level > level) {
        lines.push_back(entry);
      }
    }
    EXPECT_EQ(lines.size(), 1u);
    return lines.empty() ? Entry{} : lines[0];
  }

  Recorder recorder;
  std::shared_ptr<ZoIO::Logger> logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  std::shared_ptr<SensorManagerSimulator> simulator;
};

TEST_F(SimulatorRandom, GeneratorIsSeededOnceWithTheTimeInSeconds) {
  const std::time_t before = std::time(nullptr);
  Make();
  WaitForPasses(2);
  const std::time_t after = std::time(nullptr);
  simulator->Pass();
  simulator.reset();
  const std::lock_guard held(mutex);
  ASSERT_EQ(seeds.size(), 1u);
  EXPECT_GE(seeds[0], static_cast<unsigned>(before));
  EXPECT_LE(seeds[0], static_cast<unsigned>(after));
}

TEST_F(SimulatorRandom, PassesComeASecondApartAndTheFirstASecondAfterTheCreation) {
  const auto start = std::chrono::steady_clock::now();
  Make();
  auto times = WaitForPasses(4);
  times.resize(4);
  times.insert(times.begin(), start);
  auto shortest = std::chrono::steady_clock::duration::max();
  for (std::size_t i = 1; i < times.size(); ++i) {
    const auto gap = times[i] - times[i - 1];
    // A pass begins a moment before its number is drawn, and that may take longer for the earlier one.
    EXPECT_GE(gap, i == 1 ? milliseconds(1000) : milliseconds(900)) << i;
    shortest = std::min(shortest, gap);
  }
  // A busy machine makes some late, hardly all.
  EXPECT_LT(shortest, milliseconds(1400));
}

TEST_F(SimulatorRandom, PassThatTakesLongerThanASecondIsWaitedForAndNoFault) {
  std::atomic<bool> underWay = false;
  std::atomic<bool> ending = false;
  OnDraw([&] {
    if (!underWay.exchange(true)) {
      EXPECT_TRUE(Eventually([&] { return ending.load(); }));
      const Stopwatch watch;
      EXPECT_TRUE(Eventually([&] { return watch.Milliseconds().count() >= 1500; }));
    }
  });
  Make();
  ASSERT_TRUE(Eventually([&] { return underWay.load(); }));
  const std::weak_ptr<ZoIO::CacheManager> cache = simulator->Cache();
  ending = true;
  simulator.reset();
  // The worker, which would keep it, has ended; the last pass came, too.
  ASSERT_TRUE(cache.expired());
  EXPECT_EQ(WaitForPasses(2).size(), 2u);
  for (const Entry& entry : recorder.Logs()) {
    EXPECT_LE(entry.level, 3) << entry.text;
  }
}

TEST_F(SimulatorRandom, EndInAPassOfItsOwnThreadIsADeadlockThatIsToldAndSurvived) {
  std::atomic<bool> ended = false;
  Make();
  const std::weak_ptr<ZoIO::CacheManager> cache = simulator->Cache();
  // From here on the simulator is its own thread's.
  OnDraw([&] {
    if (simulator != nullptr) {
      simulator.reset();
      ended = true;
    }
  });
  ASSERT_TRUE(Eventually([&] { return ended.load(); }));
  // What the pass still uses goes with the thread.
  EXPECT_TRUE(Eventually([&] { return cache.expired(); }));
  const Entry line = OnlyLineAbove(3);
  EXPECT_EQ(line.level, 5);
  EXPECT_EQ(line.function, destructorName);
  EXPECT_EQ(line.message, std::system_error(EDEADLK, std::generic_category()).what());
  EXPECT_EQ(recorder.Logs().back().message, "Item manager destroyed.");
}

}  // namespace
}  // namespace ZoTest
