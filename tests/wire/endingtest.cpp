// Destroying an instance in every state that its link may be in: promptly, silently and completely.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <list>
#include <thread>

#include "tests/plugin/processstate.h"
#include "tests/sdk/fakesensor.h"
#include "tests/wire/emulator.h"
#include "tests/wire/wiretest.h"

namespace ZoTest {
namespace {

class Ending : public WireTest {
 protected:
  // With the sensor's threads, which are there by then (and a sanitizer's own, which came with them).
  static std::size_t ThreadCount() { return ThreadNames().size(); }

  // Destroys, unloads, and looks at what is left. threads: how many there were before the instance.
  void ExpectACleanEnd(const char* state, void* handle, std::size_t threads) {
    const Stopwatch watch;
    EXPECT_EQ(Destroy(handle), 0);
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(watch.Elapsed()).count();
    const std::size_t callbacks = recorder.Size();
    std::cout << "destroyed " << state << ": " << static_cast<double>(microseconds) / 1000 << " ms\n";
    RecordProperty("destroy_us", static_cast<int>(microseconds));
    // The promise is 50 ms; what is left is for a loaded machine. A thread that nobody wakes takes longer.
    EXPECT_LT(microseconds, 1000000);
    EXPECT_TRUE(WaitForThreadCount(threads));
    plugin.Unload();
    EXPECT_FALSE(plugin.IsMapped());
    EXPECT_EQ(recorder.Size(), callbacks);
    EXPECT_EQ(recorder.CountMessages("Item manager destroyed."), 1u);
    EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level == 6; }), 0u);
  }

  // Grants everything but what the test keeps silent about.
  static FakeSensor::Responder MuteFor(std::string method, std::string uri) {
    return [method = std::move(method), uri = std::move(uri)](FakePeer& peer, const FakeRequest& request) {
      if (request.method != method || request.uri != uri) {
        FakeSensor::Grant(peer, request);
      }
    };
  }
  static void Deny(FakePeer& peer, const FakeRequest& request) {
    peer.Send(FakeSensor::Answer(request, R"("status":-404,"payload":null,"error":"not here")"));
  }
};

TEST_F(Ending, WhileTheLinkIsIdle) {
  Emulator sensor(R"({"resources": {"/r": {"content": {"v": 1}}}})");
  const std::size_t threads = ThreadCount();
  void* handle = Connect(sensor.Port());
  EXPECT_EQ(Read(handle, "/r#/v"), 0);
  ExpectACleanEnd("idle", handle, threads);
}

TEST_F(Ending, WhileStreamsFlowAThousandTimesASecond) {
  Emulator sensor(R"({"rate_hz": 1000, "resources": {"/r{00..19}":
    {"content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}}}})");
  const std::size_t threads = ThreadCount();
  void* handle = Connect(sensor.Port());
  std::vector<std::string> names;
  for (int i = 10; i < 20; ++i) {
    names.push_back("/r" + std::to_string(i) + "#/n");
  }
  EXPECT_EQ(Subscribe(handle, names), 0);
  EXPECT_TRUE(WaitForChange(names.back()));
  ExpectACleanEnd("with streams", handle, threads);
}

TEST_F(Ending, AfterARequestThatAMuteSensorNeverAnswered) {
  FakeSensor sensor;
  const std::size_t threads = ThreadCount();
  void* handle = Connect(sensor.Port());
  sensor.SetResponder(MuteFor("call", "/mute"));
  EXPECT_EQ(Call(handle, "Call", R"({"uri":"/mute","args":"1"})"), 0);
  EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level == 5; }), 1u);
  ExpectACleanEnd("after an unanswered request", handle, threads);
}

TEST_F(Ending, WhileTheRegistryWaitsForAMuteResource) {
  FakeSensor sensor;
  const std::size_t threads = ThreadCount();
  sensor.SetResponder(Deny);
  void* handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/mute#/v"}), 0);
  sensor.SetResponder(MuteFor("read", "/mute"));
  ASSERT_TRUE(sensor.WaitForRequest("read", "/mute", 2));
  ExpectACleanEnd("with the registry waiting", handle, threads);
}

// The lock over all exports is the reading thread's until its time is up; only then it is the destruction's turn.
TEST_F(Ending, WaitsForAHostsReadAndForNothingElse) {
  FakeSensor sensor;
  const std::size_t threads = ThreadCount();
  void* handle = Connect(sensor.Port());
  EXPECT_EQ(Read(handle, "/r#/value"), 0);
  const std::size_t before = sensor.CountRequests("read", "/r");
  sensor.SetResponder(MuteFor("read", "/r"));
  Clock::time_point returned;
  std::thread reader([&] {
    Read(handle, "/r#/value");
    returned = Clock::now();
  });
  EXPECT_TRUE(sensor.WaitForRequest("read", "/r", before + 1));
  EXPECT_EQ(Destroy(handle), 0);
  const Clock::time_point destroyed = Clock::now();
  reader.join();
  EXPECT_LT(destroyed - returned, std::chrono::seconds(1));
  EXPECT_TRUE(WaitForThreadCount(threads));
}

TEST_F(Ending, WhileTheSensorIsSilent) {
  FakeSensor sensor;
  const std::size_t threads = ThreadCount();
  void* handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/r#/value"}), 0);
  sensor.FallSilent();
  ExpectACleanEnd("with a silent sensor", handle, threads);
}

TEST_F(Ending, WhileTheLinkIsDown) {
  FakeSensor sensor;
  void* handle = nullptr;
  const std::size_t threads = ThreadCount() - 1;  // the listener's ends, too
  handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/r#/value"}), 0);
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(WaitConnected(handle, false));
  ExpectACleanEnd("with the link down", handle, threads);
}

TEST_F(Ending, WhileTheLinkIsDownAndTheRegistryWaitsForIt) {
  FakeSensor sensor;
  const std::size_t threads = ThreadCount() - 1;
  sensor.SetResponder(Deny);
  void* handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/late#/v"}), 0);
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(WaitConnected(handle, false));
  // A pass falls into the second after the last one; nothing tells when.
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));
  ExpectACleanEnd("with the link down and the registry waiting", handle, threads);
}

TEST_F(Ending, WhileTheLinkConnectsToAPeerThatSaysNothing) {
  FakeSensor sensor;
  const std::size_t threads = ThreadCount();
  void* handle = Connect(sensor.Port());
  sensor.SetScript([](FakePeer& peer) { peer.Swallow(); });
  sensor.DropAll();
  ASSERT_TRUE(sensor.WaitForConnections(2));
  ExpectACleanEnd("while reconnecting", handle, threads);
}

TEST_F(Ending, DuringTheRestore) {
  FakeSensor sensor;
  const std::size_t threads = ThreadCount();
  void* handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/r#/value"}), 0);
  sensor.SetResponder(MuteFor("startStream", "/r"));
  sensor.DropAll();
  ASSERT_TRUE(sensor.WaitForRequest("startStream", "/r", 2));
  ExpectACleanEnd("during the restore", handle, threads);
}

TEST_F(Ending, OfAHundredInstancesOnOneSensor) {
  constexpr std::size_t Count = 100;
  Emulator sensor(R"({"rate_hz": 20, "resources": {"/r":
    {"content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}}}})");
  const std::size_t threads = ThreadCount();
  std::list<Recorder> hosts;
  std::vector<void*> handles;
  for (std::size_t i = 0; i < Count; ++i) {
    handles.push_back(Connect(sensor.Port(), hosts.emplace_back()));
    EXPECT_EQ(Subscribe(handles.back(), {"/r#/n"}), 0);
  }
  for (const Recorder& host : hosts) {
    EXPECT_TRUE(WaitForChange(host, "/r#/n", Clock::time_point{}));
  }
  Clock::duration slowest{};
  const Stopwatch all;
  for (void* handle : handles) {
    const Stopwatch watch;
    EXPECT_EQ(Destroy(handle), 0);
    slowest = std::max(slowest, watch.Elapsed());
  }
  std::cout << "destroyed " << Count << " instances: " << all.Milliseconds().count() << " ms, the slowest "
            << std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count() << " ms\n";
  EXPECT_LT(slowest, std::chrono::seconds(1));
  EXPECT_TRUE(WaitForThreadCount(threads));
}

}  // namespace
}  // namespace ZoTest
