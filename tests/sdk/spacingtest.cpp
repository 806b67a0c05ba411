// Values of one resource keep their order and their distance.
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <string>
#include <thread>

#include "tests/sdk/linkfixture.h"

namespace ZoTest {
namespace {

class Spacing : public LinkTest {};

std::string ReadAnswer(const FakeRequest& request, int value) {
  return FakeSensor::Answer(
      request, "\"status\":1,\"uri\":\"" + request.uri + "\",\"payload\":" + std::to_string(value));
}

TEST_F(Spacing, NotificationBehindAnAnswerInOneSegmentComesTwoMillisecondsLater) {
  std::mutex mutex;
  std::vector<Clock::time_point> sent;
  const EndFirst endFirst(*this);
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("/res")), "");
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    const int value = request.document.At("id").Get<int>() * 2;
    {
      const std::lock_guard lock(mutex);
      sent.push_back(Clock::now());
    }
    peer.SendBytes(FakePeer::FrameBytes(FakePeer::Text, ReadAnswer(request, value)) +
                   FakePeer::FrameBytes(FakePeer::Text,
                                        PushText("notification", request.uri, std::to_string(value + 1))));
  });
  for (std::size_t i = 0; i < 200; ++i) {
    const int answered = Read("/res").GetResponse(patience).Payload().Get<int>();
    ASSERT_TRUE(pushes.WaitForCount(i + 1));
    const Arrival arrival = pushes.All()[i];
    EXPECT_EQ(arrival.payload.Get<int>(), answered + 1) << "the newer value is the last to come";
    const std::lock_guard lock(mutex);
    EXPECT_GE(arrival.time - sent[i], std::chrono::milliseconds(2));
  }
}

TEST_F(Spacing, BurstIsThinnedAndItsNewestValueArrives) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  std::string burst;
  const EndFirst endFirst(*this);
  for (int i = 0; i <= 500; ++i) {
    burst += FakePeer::FrameBytes(FakePeer::Text, PushText("stream", "/s", std::to_string(i)));
  }
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest&) { peer.SendBytes(burst); });
  const Stopwatch watch;
  system.Client().Call("/burst", ZoJson(), ZoJson());
  ASSERT_TRUE(pushes.WaitFor(
      [](const std::vector<Arrival>& all) { return !all.empty() && all.back().payload.Get<int>() == 500; }));
  const auto took = watch.Elapsed();
  const std::vector<Arrival> all = pushes.All();
  for (std::size_t i = 1; i < all.size(); ++i) {
    EXPECT_GT(all[i].payload.Get<int>(), all[i - 1].payload.Get<int>());
  }
  // At least 2 ms apart: so many fit into the time that it took, and no more.
  EXPECT_LE(all.size(), static_cast<std::size_t>(took / std::chrono::milliseconds(2)) + 2);
}

}  // namespace
}  // namespace ZoTest
