// One lock holds all exports apart, over all instances and for the whole of each call: while one call stands
// still, no other gets in.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

class EntryLock : public PluginTest {
 protected:
  struct NamedCall {
    const char* name;
    std::function<void()> call;
  };

  EntryLock() : other(Create("simulator", 0, otherHost.Param())) {}
  ~EntryLock() override {
    // Their host ends before the fixture that would destroy them.
    for (void* const handle : {other, made}) {
      if (handle != nullptr) {
        EXPECT_EQ(Destroy(handle), 0);
      }
    }
  }

  // A hook that stands at the gate when the line comes.
  Recorder::Hook StandingAt(const std::string& line) {
    return [this, line](const Entry& entry) {
      if (entry.IsLog(line)) {
        gate.Wait();
      }
    };
  }

  // Every export, on an instance that the call which stands still has nothing to do with.
  std::vector<NamedCall> EveryExport() {
    void* const doomed = Create("simulator", 0, otherHost.Param());
    return {{"CreateIoInstance", [this] { made = Create("simulator", 0, otherHost.Param()); }},
            {"DestroyIoInstance", [this, doomed] { EXPECT_EQ(Destroy(doomed), 0); }},
            {"GetIoInfo", [this] { EXPECT_NE(plugin.getIoInfo(), nullptr); }},
            {"ReadItem", [this] { EXPECT_EQ(Read(other, "res#"), 0); }},
            {"WriteItem", [this] { EXPECT_EQ(Write(other, "res#/int", IntegerValue(1)), 0); }},
            {"SubscribeItems", [this] { EXPECT_EQ(Subscribe(other, {"sub#/int"}), 0); }},
            {"UnsubscribeItems", [this] { EXPECT_EQ(Unsubscribe(other, {"never#/int"}), 0); }},
            {"CallMethod", [this] { EXPECT_EQ(Call(other, "RunSensor", "{}"), 0); }}};
  }

  // Runs body on a thread of its own until it stands at the gate, then every export; expects that none of
  // them ends before the gate is opened.
  void ExpectEveryExportToWaitFor(const std::function<void()>& body) {
    const std::vector<NamedCall> calls = EveryExport();
    auto standing = std::async(std::launch::async, body);
    const bool arrived = gate.WaitForArrivals();
    EXPECT_TRUE(arrived);

    std::atomic<std::size_t> begun = 0;
    std::vector<std::future<Clock::time_point>> ends;
    for (const NamedCall& named : calls) {
      ends.push_back(std::async(std::launch::async, [&begun, &named] {
        ++begun;
        named.call();
        return Clock::now();
      }));
    }
    while (begun < calls.size()) {
      std::this_thread::yield();
    }
    // Long enough that an unhindered call would be over; it can only hide a fault, not make one.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto opened = Clock::now();
    gate.Open();
    standing.get();
    for (std::size_t i = 0; i < calls.size(); ++i) {
      EXPECT_GE(ends[i].get(), opened) << calls[i].name;
    }
  }

  Recorder otherHost;
  Gate gate;
  void* const other;
  void* made = nullptr;
};

TEST_F(EntryLock, IsHeldWhileAnInstanceIsMade) {
  recorder.OnLog(StandingAt("Creating simulator."));
  ExpectEveryExportToWaitFor([this] { Create(); });
}

TEST_F(EntryLock, IsHeldUntilTheLastLineOfAnInstancesMaking) {
  recorder.OnLog(StandingAt("Sensor  control port: 4711"));
  ExpectEveryExportToWaitFor([this] { Create("simulator", 4711); });
}

TEST_F(EntryLock, IsHeldWhileAnInstanceIsDestroyed) {
  void* const handle = Create();
  recorder.OnLog(StandingAt("Destroying ZoIoHandler instance."));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Destroy(handle), 0); });
}

TEST_F(EntryLock, IsHeldUntilTheLastLineOfAnInstancesDestruction) {
  void* const handle = Create();
  recorder.OnLog(StandingAt("Item manager destroyed."));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Destroy(handle), 0); });
}

TEST_F(EntryLock, KeepsTwoInstancesFromReadingAtTheSameTime) {
  void* const handle = Create();
  recorder.OnValue([this](const Entry&) { gate.Wait(); });
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Read(handle, "res#"), 0); });
}

}  // namespace
}  // namespace ZoTest
