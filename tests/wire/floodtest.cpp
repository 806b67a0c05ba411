// A sensor that pushes as much as the socket takes.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <string>
#include <thread>

#include "tests/sdk/fakesensor.h"
#include "tests/support/memorynow.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/wire/wiretest.h"

namespace ZoTest {
namespace {

class Flood : public WireTest {
 protected:
  // Subscribes the item at a sensor that streams nothing, and so to all that is below its resource.
  void* SubscribeBelow(FakeSensor& sensor, const std::string& uri) {
    sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
      if (request.method == "startStream") {
        peer.Send(FakeSensor::Answer(request, R"("status":-405,"error":"no stream")"));
      } else {
        FakeSensor::Grant(peer, request);
      }
    });
    void* const handle = Connect(sensor.Port());
    EXPECT_EQ(Subscribe(handle, {uri + "#/value"}), 0);
    EXPECT_TRUE(sensor.WaitForRequest("sub", uri + "/*"));
    return handle;
  }

  static std::string Notification(const std::string& uri, const std::string& payload) {
    return R"({"event":"notification","uri":")" + uri + R"(","payload":)" + payload + "}";
  }
};

TEST_F(Flood, OfHugeDocumentsCostsBoundedMemoryWhichIsGivenBack) {
  constexpr std::size_t size = std::size_t{8} << 20;
  FakeSensor sensor;
  void* const handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/huge#/value"}), 0);
  ASSERT_TRUE(sensor.WaitForRequest("startStream", "/huge"));
  const std::string head = R"({"event":"stream","uri":"/huge","payload":{"value":)";
  const std::string tail = R"(,"text":")" + std::string(size, 'x') + "\"}}";
  std::size_t peak = 0;
  const std::size_t before = MemoryNow();
  std::int64_t pushes = 0;
  // Long enough to fill a history without a limit: some tens of documents a second come through, and a few where a
  // sanitizer reads along.
  const Deadline flood(std::chrono::seconds(4));
  while (!flood.Expired() || pushes <= 8) {
    ASSERT_TRUE(sensor.Push(head + std::to_string(++pushes) + tail));
    peak = std::max(peak, MemoryNow());
  }
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/huge#/value", pushes))) << "the newest is not lost";
  std::cout << pushes << " documents of 8 MiB, at most " << (peak - std::min(peak, before)) / (1 << 20)
            << " MiB more\n";
  EXPECT_GT(pushes, 8) << "too few to show anything";
  EXPECT_EQ(Destroy(handle), 0);
  if (!kSanitized) {  // sanitizers keep freed memory
    EXPECT_LT(peak, before + (std::size_t{256} << 20));
    EXPECT_TRUE(Eventually([&] { return MemoryNow() < before + (std::size_t{32} << 20); })) << MemoryNow();
  }
}

TEST_F(Flood, OfInventedResourcesCostsBoundedMemoryAndItemsGoOn) {
  // More than the host may keep; under the sanitizers, which see no memory anyway, more than the cache may.
  constexpr int count = kSanitized ? 60 : 150;
  const std::string text = "\"" + std::string(std::size_t{2} << 20, 'x') + "\"";
  const auto content = [&](int value) {
    return "{\"value\":" + std::to_string(value) + ",\"text\":" + text + "}";
  };
  FakeSensor sensor;
  void* const handle = SubscribeBelow(sensor, "/m");
  const std::size_t before = MemoryNow();
  ASSERT_TRUE(sensor.Push(Notification("/m/5", R"({"value":2})")));
  for (int i = 10; i < 10 + count; ++i) {
    ASSERT_TRUE(sensor.Push(Notification("/m/" + std::to_string(i), text)));
  }
  // Larger than before: what has an item is stored, what has none yet is not.
  ASSERT_TRUE(sensor.Push(Notification("/m", content(3))));
  ASSERT_TRUE(sensor.Push(Notification("/m/5", content(3))));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/m#/value", 3)));
  // Pushes come in their order: behind this one that of "/m/5" has been through, too.
  ASSERT_TRUE(sensor.Push(Notification("/m", R"({"value":4})")));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/m#/value", 4)));
  const auto tellsOfIt = [](const Entry& entry) {
    return entry.level == 4 &&
           entry.IsLog("Values of resources without an item are left out: they are too many.");
  };
  EXPECT_TRUE(recorder.WaitForEntry(tellsOfIt));
  if (!kSanitized) {  // sanitizers keep freed memory
    EXPECT_LT(MemoryNow(), before + (std::size_t{256} << 20));
  }
  // Its old value is no longer shown; the sensor is asked.
  EXPECT_EQ(Subscribe(handle, {"/m/5#/value"}), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/m/5#/value", 1)));
  EXPECT_EQ(recorder.Count(IsInteger("/m/5#/value", 2)), 0u);
  ASSERT_TRUE(sensor.Push(Notification("/m/5", content(4))));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/m/5#/value", 4)));
  EXPECT_EQ(Destroy(handle), 0);
  EXPECT_EQ(recorder.Count(tellsOfIt), 1u) << "of dozens of values";
}

TEST_F(Flood, OfSlashesHoldsUpNoCall) {
  const std::string slashes(std::size_t{1} << 20, '/');
  FakeSensor sensor;
  void* const handle = SubscribeBelow(sensor, "/m");
  ASSERT_TRUE(sensor.Push(Notification("/m" + slashes, "1")));
  ASSERT_TRUE(sensor.Push(Notification("/x" + slashes, "1")));
  ASSERT_TRUE(sensor.Push(Notification("/m", R"({"value":7})")));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/m#/value", 7)));
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(Destroy(handle), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(1));
}

}  // namespace
}  // namespace ZoTest
