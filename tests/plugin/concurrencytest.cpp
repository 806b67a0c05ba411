// Many host threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <csignal>
#include <functional>
#include <thread>

#include "tests/plugin/loopback.h"
#include "tests/plugin/plugintest.h"
#include "tests/plugin/processstate.h"

namespace ZoTest {
namespace {

class Threads : public PluginTest {
 protected:
  static constexpr int kRounds = kSanitized ? 40 : 150;

  // Runs body(0) … body(count - 1) on threads of their own that start together.
  static void RunTogether(int count, const std::function<void(int)>& body) {
    std::barrier start(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
      threads.emplace_back([&start, &body, i] {
        start.arrive_and_wait();
        body(i);
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }

  // One round of everything on one instance.
  void UseEverything(void* handle, const std::string& item, const void* token) {
    EXPECT_NE(plugin.getIoInfo(), nullptr);
    EXPECT_EQ(Read(handle, item), 0);
    EXPECT_EQ(Write(handle, item, IntegerValue(7)), 0);
    EXPECT_EQ(Subscribe(handle, {item, "shared#/int"}, 100), 0);
    EXPECT_EQ(Call(handle, "Update", R"({"uri":"shared","args":"{\"int\":5}"})", token), 0);
    EXPECT_EQ(Call(handle, "Read", R"({"uri":"shared"})", token), 0);
    EXPECT_EQ(Unsubscribe(handle, {item, "shared#/int"}), 0);
  }
};

TEST_F(Threads, OfThePluginLeaveTheProcessesSignalsToTheHost) {
  InitialThreadCount();
  const std::vector<std::string> before = ThreadsThatTake(SIGINT);
  EXPECT_FALSE(before.empty());
  void* handle = Create();
  ASSERT_TRUE(WaitForThreadNames({"ZoVyrnClient::M", "SensorManagerSi"}));
  EXPECT_EQ(ThreadsThatTake(SIGINT), before);
  EXPECT_EQ(Destroy(handle), 0);
}

TEST_F(Threads, MayAllUseOneInstance) {
  void* handle = Create();
  recorder.Clear();
  const int tokens[4] = {};
  RunTogether(4, [&](int thread) {
    const std::string item = "own" + std::to_string(thread) + "#/int";
    for (int round = 0; round < kRounds; ++round) {
      UseEverything(handle, item, &tokens[thread]);
    }
  });
  for (int thread = 0; thread < 4; ++thread) {
    EXPECT_GE(recorder.CountValues("own" + std::to_string(thread) + "#/int"),
              static_cast<std::size_t>(kRounds));
    EXPECT_EQ(recorder.Count([&](const Entry& entry) {
      return entry.kind == Entry::Kind::Result && entry.token == &tokens[thread];
    }),
              2u * kRounds);
  }
  EXPECT_EQ(recorder.CountMessages("shared#/int created."), 1u);
  for (const Entry& log : recorder.Logs()) {
    ASSERT_EQ(log.text, "[" + log.function + "](" + std::to_string(log.thread) + ")" + log.message + "\n");
  }
}

TEST_F(Threads, MayUseInstancesOfTheirOwn) {
  RunTogether(4, [&](int thread) {
    Recorder own;
    void* handle = Create("simulator", static_cast<unsigned short>(thread), own.Param());
    for (int round = 0; round < kRounds; ++round) {
      UseEverything(handle, "res#/int", &own);
    }
    EXPECT_EQ(own.Results().size(), 2u * kRounds);
    EXPECT_EQ(Destroy(handle), 0);
    const std::size_t size = own.Size();
    plugin.getIoInfo();
    EXPECT_EQ(own.Size(), size);
  });
}

TEST_F(Threads, MayCreateAndDestroyWhileOthersWork) {
  const std::size_t before = InitialThreadCount();
  void* steady = Create();
  Subscribe(steady, {"steady#/int"});
  std::atomic<int> churning{3};
  RunTogether(5, [&](int thread) {
    if (thread < 3) {
      for (int round = 0; round < kRounds / 4; ++round) {
        Recorder own;
        void* handle = thread == 2 ? Create("127.0.0.1", ClosedPort(), own.Param())
                                   : Create("simulator", 0, own.Param());
        EXPECT_EQ(Read(handle, "res#"), thread == 2 ? 1 : 0);
        Subscribe(handle, {"a#/int", "b#/int"}, 0);
        EXPECT_EQ(Destroy(handle), 0);
      }
      --churning;
    } else {
      while (churning > 0) {
        UseEverything(steady, "own" + std::to_string(thread) + "#/int", nullptr);
      }
    }
  });
  const std::size_t values = recorder.CountValues("steady#/int");
  EXPECT_TRUE(recorder.WaitForValue("steady#/int", values + 3));
  EXPECT_EQ(Destroy(steady), 0);
  EXPECT_TRUE(WaitForThreadCount(before));
}

// The library itself is made on first use, whoever comes first.
TEST_F(Threads, MayRaceForTheFirstUse) {
  const ioInfo* infos[8] = {};
  RunTogether(8, [&](int thread) {
    if (thread % 2 == 0) {
      Create();
    }
    infos[thread] = plugin.getIoInfo();
  });
  for (const ioInfo* info : infos) {
    EXPECT_EQ(info, infos[0]);
  }
}

TEST_F(Threads, DestructionWaitsForACallInProgress) {
  void* handle = Create();
  Gate gate;
  std::atomic<bool> readReturned{false};
  recorder.OnValue([&gate](const Entry&) { gate.Wait(); });
  std::thread reader([&] {
    EXPECT_EQ(Read(handle, "res#"), 0);
    readReturned = true;
  });
  ASSERT_TRUE(gate.WaitForArrivals());
  std::atomic<bool> destroying{false};
  std::thread destroyer([&] {
    destroying = true;
    EXPECT_EQ(Destroy(handle), 0);
  });
  while (!destroying) {
    std::this_thread::yield();
  }
  gate.Open();
  reader.join();
  destroyer.join();
  // Not a line of the destruction came before the value was delivered and the read over.
  const auto all = recorder.All();
  const auto value =
      std::find_if(all.begin(), all.end(), [](const Entry& entry) { return entry.IsValue("res#"); });
  const auto end = std::find_if(all.begin(), all.end(), [](const Entry& entry) {
    return entry.IsLog("Destroying ZoIoHandler instance.");
  });
  EXPECT_LT(value, end);
  EXPECT_NE(end, all.end());
  EXPECT_EQ(recorder.CountMessages("ZoVyrnClient::Monitor thread joined."), 1u);
  EXPECT_TRUE(readReturned);
}

}  // namespace
}  // namespace ZoTest
