// How long a verb waits at least.
#include <algorithm>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/vyrnclient/eventually.h"
#include "tests/wire/sensormanagertest.h"

namespace ZoTest {
namespace {

using std::chrono::milliseconds;
using ZoIO::SensorManager;

constexpr milliseconds late{2500};
constexpr milliseconds limit{3000};

class LateAnswer : public SensorManagerTest {
 protected:
  struct Arrival {
    FakeRequest request;
    Clock::time_point time;
  };

  LateAnswer() {
    sensor.SetResponder([this](FakePeer&, const FakeRequest& request) {
      const std::lock_guard lock(mutex);
      arrivals.push_back({request, Clock::now()});
    });
  }

  std::vector<Arrival> Arrivals() {
    const std::lock_guard lock(mutex);
    return arrivals;
  }

  // Runs all verbs side by side and gives each its answer so late. False when this machine was so slow that one of them
  // may have had its time out by then: that says nothing.
  bool RunAll(SensorManager& manager) {
    {
      const std::lock_guard lock(mutex);
      arrivals.clear();
    }
    answers.assign(verbs.size(), {});
    std::vector<Clock::time_point> starts(verbs.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < verbs.size(); ++i) {
      threads.emplace_back([&, i] {
        starts[i] = Clock::now();
        answers[i] = verbs[i].call(manager, std::string("/late/") + verbs[i].name, true);
      });
    }
    EXPECT_TRUE(Eventually([this] { return Arrivals().size() >= verbs.size(); }));
    for (const Arrival& arrival : Arrivals()) {
      std::this_thread::sleep_until(arrival.time + late);
      EXPECT_TRUE(sensor.Push(FakeSensor::Answer(
          arrival.request, R"("status":1,"uri":")" + arrival.request.uri + R"(","payload":"late")")));
    }
    const Clock::time_point sent = Clock::now();
    for (std::thread& thread : threads) {
      thread.join();
    }
    return sent < *std::min_element(starts.begin(), starts.end()) + limit - milliseconds(100);
  }

  std::mutex mutex;
  std::vector<Arrival> arrivals;  // guarded by mutex
  std::vector<ZoJson> answers;
};

TEST_F(LateAnswer, IsTakenByEveryVerbTwoAndAHalfSecondsAfterItsRequest) {
  const auto manager = Make(sensor.Port());
  ASSERT_TRUE(manager->IsConnected());
  int rounds = 1;
  recorder.Clear();
  while (!RunAll(*manager) && rounds < 5) {
    ++rounds;
    recorder.Clear();
  }
  for (std::size_t i = 0; i < verbs.size(); ++i) {
    ASSERT_FALSE(answers[i].Empty()) << verbs[i].name;
    EXPECT_EQ(answers[i].At("payload").ToString(), R"("late")") << verbs[i].name;
  }
  EXPECT_THAT(Lines(), testing::IsEmpty());
}

}  // namespace
}  // namespace ZoTest
