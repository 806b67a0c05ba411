// Links that break: what the host sees meanwhile, and that everything comes back by itself.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <iostream>
#include <thread>

#include "tests/sdk/fakesensor.h"
#include "tests/wire/emulator.h"
#include "tests/wire/wiretest.h"

namespace ZoTest {
namespace {

using std::chrono::milliseconds;

class LinkLoss : public WireTest {
 protected:
  static constexpr const char* Resources = R"({"rate_hz": 50, "resources": {
    "/plant/drive": {"content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
    "/plant/r{0..7}": {"content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
    "/plant/door": {"stream": false, "content": {"open": 0}, "writable": true},
    "/set": {"content": {"v": 0}, "writable": true}}})";

  // What the host may expect of an instance whose sensor is away; each call is quick.
  void ExpectRefusing(void* handle) {
    const Stopwatch watch;
    EXPECT_EQ(Read(handle, "/plant/drive#/n"), 1);
    EXPECT_EQ(Write(handle, "/set#/v", IntegerValue(1)), 1);
    EXPECT_EQ(Call(handle, "Read", R"({"uri":"/set"})"), 1);
    EXPECT_LT(watch.Milliseconds().count(), kSanitized ? 5000 : 1000);
  }

  // Takes the sensor away for a time and brings it back on its port.
  void ExpectRecovery(milliseconds outage) {
    void* handle = Connect(sensor.Port());
    EXPECT_EQ(Subscribe(handle, {"/plant/drive#/n", "/plant/door#/open"}), 0);
    EXPECT_EQ(Read(handle, "/plant/never#/v"), 1);  // the registry has one to ask for
    EXPECT_TRUE(WaitForChange("/plant/drive#/n"));

    sensor.Stop();
    ASSERT_TRUE(WaitConnected(handle, false));
    recorder.Clear();
    const Deadline end(outage);
    while (!end.Expired()) {
      ExpectRefusing(handle);
      std::this_thread::sleep_for(std::min<Clock::duration>(end.Left(), milliseconds(100)));
    }
    const std::size_t logs = recorder.Logs().size();
    EXPECT_LE(logs, 8u) << "a flood of lines";

    sensor.Start();
    const Stopwatch watch;
    EXPECT_TRUE(WaitForChange("/plant/drive#/n"));
    std::cout << "after " << outage.count() << " ms away: " << logs << " log lines, delivers again within "
              << watch.Milliseconds().count() << " ms\n";
    EXPECT_LT(watch.Milliseconds().count(), kSanitized ? 20000 : 6000);
    sensor.Patch("/plant/door", R"({"open":5})");
    EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/plant/door#/open", 5)));
    EXPECT_TRUE(IsConnected(handle));
    EXPECT_EQ(Read(handle, "/set#/v"), 0);
  }

  Emulator sensor{Resources};
};

TEST_F(LinkLoss, ASensorThatIsAwayForASecondDeliversAgain) {
  ExpectRecovery(milliseconds(1000));
}

TEST_F(LinkLoss, ASensorThatIsAwayForFiveSecondsDeliversAgain) {
  ExpectRecovery(milliseconds(5000));
}

TEST_F(LinkLoss, EightThreadsSurviveTwentyCutsAndEverySubscriptionDelivers) {
  void* handle = Connect(sensor.Port());
  std::vector<std::string> lasting;
  for (int i = 0; i < 4; ++i) {
    lasting.push_back("/plant/r" + std::to_string(i) + "#/n");
  }
  lasting.push_back("/plant/drive#/n");
  EXPECT_EQ(Subscribe(handle, lasting), 0);

  std::atomic<bool> working = true;
  std::atomic<int> granted = 0;
  const std::function<int(int)> works[] = {
      [&](int) { return Read(handle, "/plant/drive#/n"); },
      [&](int i) { return Write(handle, "/set#/v", IntegerValue(i)); },
      [&](int i) {
        return Subscribe(handle, {"/plant/r" + std::to_string(4 + i % 4) + "#/n"}, 100 * (1 + i % 3));
      },
      [&](int i) { return Unsubscribe(handle, {"/plant/r" + std::to_string(4 + i % 4) + "#/n"}); },
      [&](int) { return Call(handle, "Read", R"({"uri":"/set"})"); },
      [&](int i) { return Read(handle, "/plant/none" + std::to_string(i % 5) + "#/v"); },
      [&](int) { return Read(handle, "/plant/door#/open"); },
      [&](int i) {
        return Call(handle, i % 2 == 0 ? "RunSensor" : "Update", R"({"uri":"/set","args":"{\"v\":1}"})");
      }};
  std::vector<std::thread> threads;
  for (const auto& work : works) {
    threads.emplace_back([&working, &granted, &work] {
      for (int i = 0; working; ++i) {
        granted += work(i) == 0 ? 1 : 0;
        std::this_thread::sleep_for(milliseconds(1));
      }
    });
  }
  for (int cut = 0; cut < 20; ++cut) {
    EXPECT_TRUE(WaitConnected(handle, true)) << "there is something to cut";
    sensor.Post("/faults/cut");
    std::this_thread::sleep_for(milliseconds(100));
    recorder.Clear();
  }
  working = false;
  const Stopwatch watch;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_LT(watch.Milliseconds().count(), 10000);
  EXPECT_GT(granted, 0);
  for (const std::string& name : lasting) {
    EXPECT_TRUE(WaitForChange(name)) << name;
  }
  EXPECT_TRUE(WaitConnected(handle, true));
  EXPECT_TRUE(WaitReadable(handle, "/plant/door#/open")) << "its first read may have met a cut";
  EXPECT_EQ(ValueOf(handle, "/plant/door#/open"), "2:0");
  EXPECT_EQ(Destroy(handle), 0);
}

class LongOutage : public WireTest {};

// The batch goes on and says 0; what it could not ask for in time was never asked for again.
TEST_F(LongOutage, ThatBeginsWhileItemsAreBeingSubscribedLosesNone) {
  FakeSensor sensor;
  std::atomic<bool> going = true;
  std::promise<void> gone;
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (request.method == "startStream" && going.exchange(false)) {
      sensor.StopListening();
      peer.Drop();
      gone.set_value();
    } else if (request.method == "startStream") {
      peer.Send(FakeSensor::Answer(request, R"("status":-405,"payload":null,"error":"It is not streamed.")"));
    } else {
      FakeSensor::Grant(peer, request);
    }
  });
  void* handle = Connect(sensor.Port());
  EXPECT_EQ(Read(handle, "/a#/value"), 0);
  EXPECT_EQ(Read(handle, "/b#/value"), 0);
  EXPECT_EQ(Subscribe(handle, {"/a#/value", "/b#/value"}), 0);
  EXPECT_EQ(recorder.CountMessages("Could not subscribe resource."), 2U);
  gone.get_future().wait();
  sensor.Listen();
  for (const std::string uri : {"/a", "/b"}) {
    EXPECT_TRUE(sensor.WaitForRequest("sub", uri + "/*"));
    EXPECT_TRUE(sensor.Push(R"({"event":"notification","uri":")" + uri + R"(","payload":{"value":9}})"));
    EXPECT_TRUE(recorder.WaitForEntry(IsInteger(uri + "#/value", 9)));
  }
  EXPECT_EQ(Destroy(handle), 0);
}

class SilentSensor : public WireTest {};

TEST_F(SilentSensor, IsNoticedWithoutAnyRequest) {
  FakeSensor sensor;
  void* handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/r#/value"}), 0);
  sensor.FallSilent();
  const Stopwatch watch;
  EXPECT_TRUE(WaitConnected(handle, false));
  std::cout << "silence noticed after " << watch.Milliseconds().count() << " ms\n";
  EXPECT_LT(watch.Milliseconds().count(), kSanitized ? 15000 : 6000);
  EXPECT_EQ(Read(handle, "/r#/value"), 1);
}

}  // namespace
}  // namespace ZoTest
