// Subscribing and unsubscribing hold the instance lock to the end, so no group ticks meanwhile.
#include <gmock/gmock.h>

#include "tests/support/recorder.h"
#include "tests/vyrnclient/faulttest.h"
#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;

constexpr const char* monitorThread = "ZoVyrnClient::Monitor::Thread";
constexpr const char* ticking = "/ticking#/a";

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

  // The monitor was there all the time, and goes on.
  void ExpectTicks() {
    const std::size_t before = Pushes();
    EXPECT_TRUE(recorder.WaitForValue(ticking, before + 2));
  }

  Recorder recorder;
  Gate gate;
  int looks = 0;
  const std::shared_ptr<FakeSensorManager> sensor =
      std::make_shared<FakeSensorManager>(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
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

}  // namespace
}  // namespace ZoTest
