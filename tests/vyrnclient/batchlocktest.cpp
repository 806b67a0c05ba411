// Subscribing and unsubscribing hold the instance lock to the end, so no group ticks meanwhile; and so do the other
// operations.
#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qapi/thread.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/faulttest.h"
#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;

constexpr const char* monitorThread = "ZoVyrnClient::Monitor::Thread";
constexpr const char* ticking = "/ticking#/a";

// Tells when it is asked whether it is connected, which is what operations ask first.
class AskedSensor : public FakeSensorManager {
 public:
  using FakeSensorManager::FakeSensorManager;
  bool IsConnected() override {
    if (asked) {
      std::exchange(asked, {})();
    }
    return FakeSensorManager::IsConnected();
  }

  std::function<void()>
      asked;  // for the next time; on the test's thread, as the monitor asks for no new item
};

class BatchLock : public FaultTest {
 protected:
  BatchLock() {
    for (const char* uri : {"/ticking", "/r/x", "/s/y"}) {
      sensor->SetResource(uri, R"({"a":1})");
    }
    for (const char* name : {ticking, "/r/x#/a", "/s/y#/a"}) {
      sensor->PLC()->Item(name);
    }
  }

  // Has a group of 0 ms tick, when no other one will. From one of its pushes on, during which the monitor holds
  // the instance lock, the monitor's locks and pushes are counted: a pass enters that one lock and then pushes
  // that one value.
  void CountPasses() {
    recorder.OnValue([this](const Entry&) { gate.Wait(); });
    Subscribe(*client, {ticking}, nullptr, 0ms);
    EXPECT_TRUE(gate.WaitForArrivals());
    recorder.OnValue({});
    qTest_FailOperationIn(monitorThread, qOperation::LockEnter, 0, qStatus_System);
    recorder.Clear();
    gate.Open();
  }

  std::size_t Pushes() const { return recorder.CountValues(ticking); }
  bool MonitorIsAtTheLock() const { return qTest_CallCount() == Pushes() + 1; }

  // For scripts and hooks within a batch.
  void ExpectThatTheMonitorWaits() {
    const std::size_t before = Pushes();
    EXPECT_TRUE(Eventually([&] { return MonitorIsAtTheLock() || Pushes() != before; }));
    // From there it needs but the lock for its push.
    EXPECT_FALSE(recorder.WaitForValue(ticking, before + 1, 100ms));
    ++looks;
  }

  // From now on, looks during each call of verb.
  void LookDuring(const std::string& verb, const std::string& answer) {
    sensor->SetScript(verb, [this, answer](const auto&) {
      ExpectThatTheMonitorWaits();
      return answer.empty() ? ZoJson() : ZoJson(answer);
    });
  }

  // From now on, looks during each log line whose message starts so.
  void LookDuringLines(const std::string& start) {
    recorder.OnLog([this, start](const Entry& entry) {
      if (entry.message.starts_with(start)) {
        ExpectThatTheMonitorWaits();
      }
    });
  }

  // An operation of one item, with a look when it asks whether the sensor is there.
  void ExpectThatItIsHeldWhenTheSensorIsAskedFor(const std::function<int()>& operation) {
    CountPasses();
    sensor->asked = [this] { ExpectThatTheMonitorWaits(); };
    EXPECT_EQ(operation(), 0);
    EXPECT_EQ(looks, 1);
    ExpectTicks();
  }

  // The monitor was there all the time, and goes on.
  void ExpectTicks() {
    const std::size_t before = Pushes();
    EXPECT_TRUE(recorder.WaitForValue(ticking, before + 2));
  }

  Recorder recorder;
  Gate gate;
  int looks = 0;
  const std::shared_ptr<AskedSensor> sensor =
      std::make_shared<AskedSensor>(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
  std::unique_ptr<ZoIO::ZoVyrnClient> client =
      std::make_unique<ZoIO::ZoVyrnClient>(sensor, sensor, recorder.Param());
};

TEST_F(BatchLock, IsHeldWhileTheSensorIsAskedForStreamsAndSubscriptions) {
  CountPasses();
  LookDuring("Stream", "");
  LookDuring("Subscribe", R"({"status":1})");
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a", "/s/y#/a"}), 0);
  EXPECT_EQ(looks, 4);
  ExpectTicks();
}

TEST_F(BatchLock, IsHeldFromTheFirstLineOfASubscribe) {
  CountPasses();
  LookDuringLines("Subscribing items.");
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a", "/s/y#/a"}), 0);
  EXPECT_EQ(looks, 1);
  ExpectTicks();
}

TEST_F(BatchLock, IsHeldToTheLastLineOfASubscribe) {
  sensor->SetScript("Stream", [](const auto&) { return ZoJson(R"({"status":1,"payload":{"a":1}})"); });
  CountPasses();
  LookDuringLines("Resource streamed successfully.");
  EXPECT_EQ(Subscribe(*client, {"/r/x#/a", "/s/y#/a"}), 0);
  EXPECT_EQ(looks, 2);
  ExpectTicks();
}

TEST_F(BatchLock, IsHeldWhileStreamsAndSubscriptionsAreEnded) {
  sensor->SetScript("Stream", [](const auto&) { return ZoJson(); });
  Subscribe(*client, {"/r/x#/a", "/s/y#/a"});
  // The one tick of their group, which is due again tomorrow.
  ASSERT_TRUE(recorder.WaitForValue("/s/y#/a"));
  CountPasses();
  LookDuring("StopStream", "");
  LookDuring("Unsubscribe", R"({"status":1})");
  EXPECT_EQ(Unsubscribe(*client, {"/r/x#/a", "/s/y#/a"}), 0);
  EXPECT_EQ(looks, 4);
  ExpectTicks();
}

TEST_F(BatchLock, IsHeldFromTheFirstLineOfAnUnsubscribe) {
  CountPasses();
  LookDuringLines("Unsubscribing items.");
  EXPECT_EQ(Unsubscribe(*client, {"/r/x#/a", "/s/y#/a"}), 0);
  EXPECT_EQ(looks, 1);
  ExpectTicks();
}

TEST_F(BatchLock, IsHeldWhenAReadAsksWhetherTheSensorIsThere) {
  ExpectThatItIsHeldWhenTheSensorIsAskedFor([this] { return client->Read("/r/x#/a"); });
}

TEST_F(BatchLock, IsHeldWhenAWriteAsksWhetherTheSensorIsThere) {
  ExpectThatItIsHeldWhenTheSensorIsAskedFor([this] { return client->Write("/r/x#/a", 0, IntegerValue(5)); });
}

TEST_F(BatchLock, IsHeldWhenABatchAsksWhetherTheSensorIsThere) {
  ExpectThatItIsHeldWhenTheSensorIsAskedFor([this] { return Subscribe(*client, {"/r/x#/a"}); });
}

TEST_F(BatchLock, IsHeldWhenAnUnsubscribeAsksWhetherTheSensorIsThere) {
  ExpectThatItIsHeldWhenTheSensorIsAskedFor([this] { return Unsubscribe(*client, {"/r/x#/a"}); });
}

TEST_F(BatchLock, IsHeldWhenACallAsksWhetherTheSensorIsThere) {
  ExpectThatItIsHeldWhenTheSensorIsAskedFor([this] { return client->Call(nullptr, "RunSensor", "{}"); });
}

// A lock that cannot be left is left all the same and says so, on the spot.
TEST_F(BatchLock, IsHeldUntilARefusedWriteHasGoneBackToTheValueBefore) {
  constexpr const char* hostThread = "BatchLock::Host";
  qThread_NameCurrent(hostThread);
  const ZoIO::ItemInfo& item = sensor->PLC()->Item("/r/x#/a");
  ASSERT_EQ(client->Write("/r/x#/a", 0, IntegerValue(7)), 0);
  sensor->SetScript("Update", [&](const auto&) {
    EXPECT_EQ(item.value, xhmi::variant_value(8LL));
    // The next lock that this thread leaves is the instance's.
    qTest_FailOperationIn(hostThread, qOperation::LockExit, 1, qStatus_System);
    return ZoJson(R"({"status":-1})");
  });
  std::vector<xhmi::variant_value> values;
  auto sink = Zo::Logging::SetDebugLogSink([&](const auto&) { values.push_back(item.value); });
  EXPECT_EQ(client->Write("/r/x#/a", 0, IntegerValue(8)), 0);
  Zo::Logging::SetDebugLogSink(std::move(sink));
  EXPECT_EQ(qTest_FailureCount(), 1u);
  ASSERT_FALSE(values.empty());
  EXPECT_EQ(values.front(), xhmi::variant_value(7LL));
}

}  // namespace
}  // namespace ZoTest
