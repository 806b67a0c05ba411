// Destroying an instance takes milliseconds, whatever it is doing, and it is quiet afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tests/plugin/loopback.h"
#include "tests/plugin/plugintest.h"
#include "tests/plugin/processstate.h"

namespace ZoTest {
namespace {

using std::chrono::milliseconds;

// The promise is 50 ms. A sleeping worker that nobody wakes costs up to a second, so its median shows.
constexpr milliseconds kPromptly{kSanitized ? 500 : 100};

class Destruction : public PluginTest {
 protected:
  // Makes, prepares and destroys some instances, and returns the median time of the last.
  milliseconds MedianOf(const std::function<void*()>& make) {
    std::vector<milliseconds> times;
    for (int round = 0; round < 7; ++round) {
      void* handle = make();
      const Stopwatch watch;
      EXPECT_EQ(Destroy(handle), 0);
      times.push_back(watch.Milliseconds());
    }
    std::sort(times.begin(), times.end());
    RecordProperty("worst_ms", static_cast<int>(times.back().count()));
    return times[times.size() / 2];
  }
};

TEST_F(Destruction, OfAFreshSimulatorIsPrompt) {
  EXPECT_LT(MedianOf([this] { return Create(); }), kPromptly);
}

TEST_F(Destruction, OfASimulatorWithSubscriptionsIsPrompt) {
  EXPECT_LT(MedianOf([this] {
              void* handle = Create();
              std::vector<std::string> names;
              for (int i = 0; i < 200; ++i) {
                names.push_back("res" + std::to_string(i % 10) + "#/int" + std::to_string(i));
              }
              Subscribe(handle, names);
              recorder.Clear();
              EXPECT_TRUE(recorder.WaitForValue(names.back(), 2));
              return handle;
            }),
            kPromptly);
}

TEST_F(Destruction, OfASimulatorThatRanForAWhileIsPrompt) {
  EXPECT_LT(MedianOf([this] {
              void* handle = Create();
              recorder.Clear();
              Subscribe(handle, {"res#/int"});
              EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 0)));
              return handle;
            }),
            kPromptly);
}

TEST_F(Destruction, OfAnUnreachableInstanceIsPrompt) {
  EXPECT_LT(MedianOf([this] { return Create("127.0.0.1", ClosedPort()); }), kPromptly);
}

TEST_F(Destruction, EndsEveryThreadOfTheInstance) {
  const std::size_t before = InitialThreadCount();
  void* simulated = Create();
  void* unreachable = Create("127.0.0.1", ClosedPort());
  EXPECT_TRUE(WaitForThreadNames({"ZoVyrnClient::M", "CacheManager::M", "ItemManager::Ma"}));
  EXPECT_GE(ThreadNames().size(), before + 7);
  EXPECT_EQ(Destroy(simulated), 0);
  EXPECT_EQ(Destroy(unreachable), 0);
  EXPECT_TRUE(WaitForThreadCount(before));
}

TEST_F(Destruction, NothingIsHeardOfAnInstanceAfterwards) {
  const int rounds = kSanitized ? 20 : 50;
  std::vector<std::unique_ptr<Recorder>> hosts;
  std::vector<std::size_t> sizes;
  for (int round = 0; round < rounds; ++round) {
    hosts.push_back(std::make_unique<Recorder>());
    void* handle = Create("simulator", 0, hosts.back()->Param());
    ZoTest::Subscribe(plugin, handle, 0, {"a#/int", "b#/int", "c#/int"});
    EXPECT_TRUE(hosts.back()->WaitForValue("a#/int", 1 + static_cast<std::size_t>(round % 3)));
    EXPECT_EQ(Destroy(handle), 0);
    sizes.push_back(hosts.back()->Size());
  }
  plugin.Unload();
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    EXPECT_EQ(hosts[i]->Size(), sizes[i]) << i;
  }
}

TEST_F(Destruction, LeavesOtherInstancesAlone) {
  Recorder other;
  void* stays = Create("simulator", 0, other.Param());
  ZoTest::Subscribe(plugin, stays, 100, {"res#/int"});
  for (int round = 0; round < 5; ++round) {
    Destroy(Create());
  }
  EXPECT_TRUE(other.WaitForEntry(IsInteger("res#/int", 2)));
  EXPECT_EQ(other.CountMessages("Destroying ZoIoHandler instance."), 0u);
  EXPECT_EQ(Destroy(stays), 0);
}

}  // namespace
}  // namespace ZoTest
