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

TEST_F(EntryLock, IsHeldFromTheFirstLineOfARead) {
  void* const handle = Create();
  recorder.OnLog(StandingAt("Reading item res#"));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Read(handle, "res#"), 0); });
}

TEST_F(EntryLock, IsHeldWhileAnItemIsWritten) {
  void* const handle = Create();
  recorder.OnLog(StandingAt("Writing to item res#/int"));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Write(handle, "res#/int", IntegerValue(1)), 0); });
}

TEST_F(EntryLock, IsHeldFromTheFirstLineOfASubscribe) {
  void* const handle = Create();
  recorder.OnLog(StandingAt("Subscribing items."));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Subscribe(handle, {"res#/int"}), 0); });
}

TEST_F(EntryLock, IsHeldUntilTheLastLineOfASubscribe) {
  void* const handle = Create();
  recorder.OnLog(StandingAt("Resource subscribed successfully."));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Subscribe(handle, {"res#/int"}), 0); });
}

TEST_F(EntryLock, IsHeldFromTheFirstLineOfAnUnsubscribe) {
  void* const handle = Create();
  EXPECT_EQ(Subscribe(handle, {"res#/int"}), 0);
  recorder.OnLog(StandingAt("Unsubscribing items."));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Unsubscribe(handle, {"res#/int"}), 0); });
}

TEST_F(EntryLock, IsHeldUntilTheLastLineOfAnUnsubscribe) {
  void* const handle = Create();
  EXPECT_EQ(Subscribe(handle, {"res#/int"}), 0);
  recorder.OnLog(StandingAt("Stopping stream res"));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Unsubscribe(handle, {"res#/int"}), 0); });
}

TEST_F(EntryLock, IsHeldFromTheFirstLineOfACall) {
  void* const handle = Create();
  recorder.OnLog(StandingAt("Calling method RunSensor"));
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Call(handle, "RunSensor", "{}"), 0); });
}

TEST_F(EntryLock, IsHeldWhileTheHostHasTheResultOfACall) {
  void* const handle = Create();
  recorder.OnResult([this](const Entry&) { gate.Wait(); });
  ExpectEveryExportToWaitFor([this, handle] { EXPECT_EQ(Call(handle, "RunSensor", "{}"), 0); });
}

// A monitor takes its own instance's lock and never this one.
TEST_F(EntryLock, OthersSubscribedValuesArriveWhileACallStandsInACallback) {
  EXPECT_EQ(Subscribe(other, {"sub#/int"}), 0);
  EXPECT_TRUE(otherHost.WaitForValue("sub#/int"));
  void* const handle = Create();
  const auto isLine = [](const char* line) {
    return [line](const Entry& entry) { return entry.IsLog(line); };
  };
  const struct {
    const char* name;
    Recorder::Matcher callback;
    std::function<void()> call;
  } standing[] = {{"CreateIoInstance", isLine("Creating simulator."), [this] { Create(); }},
                  {"ReadItem", [](const Entry& entry) { return entry.IsValue("res#"); },
                   [this, handle] { EXPECT_EQ(Read(handle, "res#"), 0); }},
                  {"WriteItem", isLine("Writing to item res#/int"),
                   [this, handle] { EXPECT_EQ(Write(handle, "res#/int", IntegerValue(1)), 0); }},
                  {"SubscribeItems", isLine("Subscribing items."),
                   [this, handle] { EXPECT_EQ(Subscribe(handle, {"res#/int"}), 0); }},
                  {"UnsubscribeItems", isLine("Unsubscribing items."),
                   [this, handle] { EXPECT_EQ(Unsubscribe(handle, {"res#/int"}), 0); }},
                  {"CallMethod", [](const Entry& entry) { return entry.kind == Entry::Kind::Result; },
                   [this, handle] { EXPECT_EQ(Call(handle, "RunSensor", "{}"), 0); }},
                  {"DestroyIoInstance", isLine("Destroying ZoIoHandler instance."),
                   [this, handle] { EXPECT_EQ(Destroy(handle), 0); }}};
  for (const auto& each : standing) {
    SCOPED_TRACE(each.name);
    Gate held;
    const Recorder::Hook hook = [&](const Entry& entry) {
      if (each.callback(entry)) {
        held.Wait();
      }
    };
    recorder.OnValue(hook);
    recorder.OnResult(hook);
    recorder.OnLog(hook);
    auto call = std::async(std::launch::async, each.call);
    EXPECT_TRUE(held.WaitForArrivals());
    EXPECT_TRUE(otherHost.WaitForValue("sub#/int", otherHost.CountValues("sub#/int") + 3));
    EXPECT_EQ(call.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    held.Open();
    call.get();
    recorder.OnValue({});
    recorder.OnResult({});
    recorder.OnLog({});
    if (HasFailure()) {
      return;  // each of the others would take its time to say the same
    }
  }
}

// Reads without a pause, on a thread of its own; each read stands in its log callback for a while.
class Polling {
 public:
  Polling(Recorder& host, const std::function<void()>& read)
      : thread([this, &host, read] {
          host.OnLog([](const Entry& entry) {
            if (entry.IsLog("Reading item res#")) {
              std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
          });
          while (!ends) {
            read();
            ++reads;
          }
          host.OnLog({});
        }) {}
  Polling(const Polling&) = delete;
  Polling& operator=(const Polling&) = delete;
  ~Polling() {
    ends = true;
    thread.join();
  }

  int Reads() const { return reads; }
  void AwaitReads(int more) const {
    for (const int wanted = reads + more; reads < wanted;) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  std::atomic<bool> ends = false;
  std::atomic<int> reads = 0;
  std::thread thread;
};

TEST_F(EntryLock, CallIsNotPassedByAThreadThatCallsWithoutAPause) {
  void* const handle = Create();
  const Polling polling(recorder, [this, handle] { EXPECT_EQ(Read(handle, "res#"), 0); });
  polling.AwaitReads(1);
  for (int call = 0; call < 20; ++call) {
    const int before = polling.Reads();
    EXPECT_NE(plugin.getIoInfo(), nullptr);
    // The read that was under way, and one that was waiting already; with one more, should the count come late.
    EXPECT_LE(polling.Reads() - before, 3);
  }
}

TEST_F(EntryLock, SubscriptionsGoOnWhileAThreadCallsWithoutAPause) {
  void* const handle = Create();
  EXPECT_EQ(Subscribe(handle, {"sub#/int"}), 0);
  const Polling polling(recorder, [this, handle] { EXPECT_EQ(Read(handle, "res#"), 0); });
  const auto passes = [this] { return recorder.CountValues("sub#/int"); };
  const std::size_t before = passes();
  polling.AwaitReads(200);  // a second at least, which is ten passes
  EXPECT_GE(passes() - before, 8U);
}

}  // namespace
}  // namespace ZoTest
