// An answer and a newer push that come together: what the host sees in the end.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/sdk/fakesensor.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "tests/wire/wiretest.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/sensormanager.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoTest {
namespace {

// What brings the newer value.
struct Newer {
  const char* event;
  bool streamed;

  friend void PrintTo(const Newer& newer, std::ostream* out) { *out << newer.event; }
};

class NewestValue : public WireTest, public testing::WithParamInterface<Newer> {
 protected:
  NewestValue() {
    sensor.SetResponder([this](FakePeer& peer, const FakeRequest& request) { Respond(peer, request); });
  }
  ~NewestValue() override { sensor.End(); }

  // Each read is answered by the next even number, and in the same bytes pushes the odd one behind it.
  void Respond(FakePeer& peer, const FakeRequest& request) {
    const auto payload = [](int value) { return ",\"payload\":{\"v\":" + std::to_string(value) + "}"; };
    const std::string granted = "\"status\":1,\"uri\":\"" + request.uri + "\"";
    const std::lock_guard lock(mutex);
    if (request.method == "startStream" && GetParam().streamed) {
      peer.Send(FakeSensor::Answer(request, granted + payload(newest[request.uri])));
    } else if (request.method == "read") {
      int& value = newest[request.uri];
      value += value % 2 + 2;
      const std::string answer = FakeSensor::Answer(request, granted + payload(value));
      ++value;
      const std::string push = std::string("{\"event\":\"") + GetParam().event + "\",\"uri\":\"" +
                               request.uri + "\"" + payload(value) + "}";
      peer.SendBytes(FakePeer::FrameBytes(FakePeer::Text, answer) +
                     FakePeer::FrameBytes(FakePeer::Text, push));
    } else {
      peer.Send(FakeSensor::Answer(request, granted));
    }
  }

  int NewestOf(const std::string& uri) {
    const std::lock_guard lock(mutex);
    return newest[uri];
  }

  std::mutex mutex;
  std::map<std::string, int> newest;  // by resource; guarded by mutex
  FakeSensor sensor;
};

TEST_P(NewestValue, OfAnAnswerAndAPushInOneSegmentIsTheLastToReachTheHost) {
  constexpr int resources = 10;
  constexpr int rounds = 20;  // 200 pairs in all
  std::vector<std::string> uris;
  std::vector<std::string> items;
  for (int i = 0; i < resources; ++i) {
    uris.push_back("/r" + std::to_string(i));
    items.push_back(uris.back() + "#/v");
  }
  void* const handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, items), 0);
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < resources; ++i) {
      ASSERT_EQ(Read(handle, items[i]), 0);
    }
    for (std::size_t i = 0; i < resources; ++i) {
      ASSERT_TRUE(recorder.WaitForEntry(IsInteger(items[i], NewestOf(uris[i]))))
          << items[i] << ", round " << round;
    }
  }
  // All values go through the cache: a tick of each item shows what it holds in the end.
  const Clock::time_point end = Clock::now();
  for (std::size_t i = 0; i < resources; ++i) {
    ASSERT_TRUE(recorder.WaitForEntry(
        [&](const Entry& entry) { return entry.time > end && entry.IsValue(items[i]); }, 2));
    std::int64_t last = -1;
    for (const Entry& entry : recorder.Values(items[i])) {
      ASSERT_EQ(entry.value.type, enumtype_int64) << items[i];
      const std::int64_t value = entry.value.value.int64;
      EXPECT_GE(value, last) << items[i];
      last = value;
    }
    EXPECT_EQ(last, NewestOf(uris[i]));
  }
  EXPECT_GE(sensor.CountRequests("read", "/r0"), static_cast<std::size_t>(rounds));
}

// The machine may stop a thread between taking an answer and storing it, for as long as it likes.
TEST_P(NewestValue, AReaderThatIsHeldUpStoresNoOlderAnswer) {
  const auto other = std::make_shared<FakeSensorManager>(
      std::make_shared<ZoIO::Logger>(recorder.Param().context, recorder.Param().log));
  ZoIO::ZoVyrnClient client{other, other, recorder.Param()};
  ZoIO::SensorManager manager(client, "127.0.0.1", sensor.Port(),
                              std::make_shared<ZoIO::Logger>(recorder.Param().context, recorder.Param().log));
  EXPECT_FALSE((GetParam().streamed ? manager.Stream("/r", true) : manager.Subscribe("/r", true)).Empty());
  const auto cached = [&] { return manager.Cache()->Get("/r", 0).At("v").Get<int>(); };
  for (int round = 0; round < 20; ++round) {
    const ZoJson answer = manager.Read("/r", true).At("payload");
    const int newer = NewestOf("/r");
    EXPECT_EQ(answer.At("v").Get<int>(), newer - 1);
    ASSERT_TRUE(Eventually([&] { return manager.Cache()->Exists("/r") && cached() == newer; })) << round;
    manager.Keep("/r", answer);
    EXPECT_EQ(cached(), newer);
  }
}

TEST_P(NewestValue, OfTwoReadersTheOneThatWasAnsweredFirstStoresNothingOverTheOther) {
  const auto other = std::make_shared<FakeSensorManager>(
      std::make_shared<ZoIO::Logger>(recorder.Param().context, recorder.Param().log));
  ZoIO::ZoVyrnClient client{other, other, recorder.Param()};
  ZoIO::SensorManager manager(client, "127.0.0.1", sensor.Port(),
                              std::make_shared<ZoIO::Logger>(recorder.Param().context, recorder.Param().log));
  // Nothing is subscribed, so no push of this resource is expected, and none is stored for it.
  for (int round = 0; round < 20; ++round) {
    const std::string uri = "/r" + std::to_string(round);
    const ZoJson first = manager.Read(uri, true).At("payload");
    ZoJson second;
    std::thread([&] {
      second = manager.Read(uri, true).At("payload");
      manager.Keep(uri, second);
    }).join();
    // In another millisecond, as the cache would keep the first value of this one in any case.
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    manager.Keep(uri, first);
    EXPECT_GT(second.At("v").Get<int>(), first.At("v").Get<int>());
    EXPECT_EQ(manager.Cache()->Get(uri, 0).At("v").Get<int>(), second.At("v").Get<int>());
  }
}

INSTANTIATE_TEST_SUITE_P(Wire, NewestValue,
                         testing::Values(Newer{"notification", false}, Newer{"stream", true}),
                         [](const auto& each) { return std::string(each.param.event); });

// A sensor manager over the sensor, and no host that reads.
class StoredValue : public WireTest {
 protected:
  ZoIO::CacheManager& Cache() { return *manager.Cache(); }

  FakeSensor sensor;
  const std::shared_ptr<ZoIO::Logger> logger =
      std::make_shared<ZoIO::Logger>(recorder.Param().context, recorder.Param().log);
  // The manager asks an instance to bring its items back.
  const std::shared_ptr<FakeSensorManager> other = std::make_shared<FakeSensorManager>(logger);
  ZoIO::ZoVyrnClient client{other, other, recorder.Param()};
  ZoIO::SensorManager manager{client, "127.0.0.1", sensor.Port(), logger};
};

TEST_F(StoredValue, OfAnItemThatTheRegistryFindsByItselfIsNewerThanWhatWasReadBefore) {
  const auto content = [this](const std::string& json) {
    sensor.SetResponder([json](FakePeer& peer, const FakeRequest& request) {
      peer.Send(FakeSensor::Answer(request, "\"status\":1,\"payload\":" + json));
    });
  };
  content("null");
  const ZoIO::ItemInfo& item = manager.PLC()->Item("/r#/v");
  EXPECT_FALSE(item.valid);
  const ZoJson before = manager.Read("/r", true).At("payload");
  EXPECT_TRUE(before.IsNull());
  content(R"({"v":1})");
  ASSERT_TRUE(Eventually([&] { return bool(item.valid); }));
  ASSERT_TRUE(Cache().Exists("/r"));
  const ZoJson found = ZoJson::ParseString(R"({"v":1})");
  EXPECT_EQ(Cache().Get("/r", 0), found);
  // In another millisecond, as the cache would keep the first value of this one in any case.
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  manager.Keep("/r", before);
  EXPECT_EQ(Cache().Get("/r", 0), found);
}

TEST_F(StoredValue, OfAPushThatMeetsATakenMillisecondIsInOneOfTheNext) {
  constexpr int pushes = 100;
  // Each seventh millisecond is taken, for longer than this lasts: some pushes meet one, and none meets only such.
  constexpr int spacing = 7;
  constexpr int taken = -1;
  EXPECT_FALSE(manager.Subscribe("/r", true).Empty());
  Cache().Shutdown();  // nothing is trimmed any more
  const long long start = ZoIO::CacheManager::TimeInMills();
  for (int i = 0; i < 60'000; i += spacing) {
    Cache().AddAt("/r", ZoJson::Of(taken), start + i);
  }
  const ZoIO::CacheManager::Slot* const slot = Cache().Find("/r");
  ASSERT_NE(slot, nullptr);
  const std::uint64_t version = ZoIO::CacheManager::Version(*slot);
  std::vector<int> sent;
  for (int i = 1; i <= pushes; ++i) {
    sent.push_back(i);
    EXPECT_TRUE(sensor.Push(R"({"event":"notification","uri":"/r","payload":)" + std::to_string(i) + "}"));
    ASSERT_TRUE(Eventually([&] {
      return ZoIO::CacheManager::Version(*slot) == version + static_cast<std::uint64_t>(i);
    })) << "push "
        << i;
  }
  std::vector<int> stored;
  const long long end = ZoIO::CacheManager::TimeInMills();
  for (long long time = start; time <= end; ++time) {
    const int value = Cache().GetAt("/r", 0, time).Get<int>();
    if (value != taken && (stored.empty() || stored.back() != value)) {
      stored.push_back(value);
    }
  }
  EXPECT_EQ(stored, sent);
}

}  // namespace
}  // namespace ZoTest
