// Faults that are more than a wrong answer: cut links, stalls, silence, and requests that were done or were not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/wire/faultysensor.h"

namespace ZoTest {
namespace {

using testing::HasSubstr;

class SdkFaults : public FaultySensor {
 protected:
  void WaitForSample(int sample) const {
    const Deadline deadline;
    while (SamplesOfSensor() < sample && !deadline.Expired()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  // Whether samples come: none has, when the sensor is twenty further.
  bool Streams() const {
    const int from = SamplesOfSensor();
    WaitForSample(from + 20);
    const std::vector<Arrival> all = pushes.All();
    return std::any_of(all.begin(), all.end(), [&](const Arrival& each) {
      return each.stream && each.payload.At("n").Get<int>() > from;
    });
  }
  std::string ContentOfSet() const { return AskSensor("GET", "/set").At("payload").ToString(); }
  ZoTransaction WriteSet(const char* patch) {
    return Client().Update("/set", ZoJson::ParseString(patch), ZoJson());
  }
};

TEST_F(SdkFaults, ACutLinkComesBackWithItsStreamAndSubscription) {
  Begin();
  for (int i = 0; i < 3; ++i) {
    SwitchOn({{"latency_ms", "60000"}, {"only", "/r/0"}});
    const ZoTransaction underWay = Client().Read("/r/0", ZoJson(), ZoJson());
    const Stopwatch watch;
    AskSensor("POST", "/faults/cut");
    EXPECT_EQ(OutcomeOf(underWay, ""), Outcome::Failed);
    EXPECT_LT(watch.Milliseconds().count(), 20000) << "not the cut ended it";
    SwitchOff();
    ExpectAllIsWell();
  }
}

TEST_F(SdkFaults, LinksThatAreCutByTheClockGoOnServingMeanwhile) {
  Begin();
  SwitchOn({{"cut_every_s", "0.2"}});
  int right = 0;
  const Deadline end(std::chrono::seconds(1));
  while (!end.Expired()) {
    for (const Outcome outcome : ReadAll()) {
      EXPECT_NE(outcome, Outcome::Refused);
      right += outcome == Outcome::Right ? 1 : 0;
    }
  }
  EXPECT_GT(right, 0);
  SwitchOff();
  ExpectAllIsWell();
}

TEST_F(SdkFaults, AShortStallDelaysAnswersAndCostsNoSession) {
  Begin();
  AskSensor("POST", "/faults/stall", R"({"seconds":0.3})");
  const Deadline end(std::chrono::milliseconds(600));
  while (!end.Expired()) {
    EXPECT_EQ(ReadAll(), std::vector<Outcome>(ReadCount, Outcome::Right));
    EXPECT_TRUE(system.IsConnected());
  }
  ExpectAllIsWell();
}

TEST_F(SdkFaults, AStallThatTheLinkDoesNotWaitForIsALossAndIsRepaired) {
  Begin();
  AskSensor("POST", "/faults/stall", R"({"seconds":5.5})");
  const Deadline deadline;
  while (system.IsConnected() && !deadline.Expired()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_FALSE(system.IsConnected());
  EXPECT_NE(OutcomeOf(Client().Read("/r/0", ZoJson(), ZoJson()), R"({"v":100})"), Outcome::Refused);
  ExpectAllIsWell();
}

TEST_F(SdkFaults, MutedPushesCostNoRequestAndFlowAgain) {
  Begin();
  SwitchOn({{"mute_pushes", "true"}});
  const int from = SamplesOfSensor();
  WaitForSample(from + 20);
  EXPECT_EQ(ReadAll(), std::vector<Outcome>(ReadCount, Outcome::Right));
  SwitchOff();
  ExpectAllIsWell();
  for (const Arrival& each : pushes.All()) {
    if (each.stream) {
      const int sample = each.payload.At("n").Get<int>();
      EXPECT_FALSE(from < sample && sample < from + 20) << sample;
    }
  }
}

TEST_F(SdkFaults, ARefusedStartIsAClearErrorAndAStartLaterIsNot) {
  Begin({{"refuse_start", "true"}});
  system.Stop();
  EXPECT_EQ(system.RunningState(), ZoSystem::Stopped);
  try {
    system.Start();
    ADD_FAILURE() << "it started";
  } catch (const ZoRequestError& error) {
    EXPECT_EQ(error.GetResponse().Raw().At("status").ToString(), "-503");
    EXPECT_THAT(error.what(), HasSubstr("-503"));
  }
  EXPECT_EQ(system.RunningState(), ZoSystem::Stopped);
  SwitchOff();
  system.Start();
  EXPECT_EQ(system.RunningState(), ZoSystem::Running);
  ExpectAllIsWell();
}

TEST_F(SdkFaults, AWriteWhoseAnswerIsLostFailsAlthoughItWasDone) {
  Begin();
  SwitchOn({{"lose", "1"}, {"only", "/set"}});
  limit = second / 5;
  EXPECT_EQ(OutcomeOf(WriteSet(R"({"v":-5})"), "null"), Outcome::Failed);
  limit = patience;
  SwitchOff();
  EXPECT_EQ(ContentOfSet(), R"({"v":-5})");
  ExpectAllIsWell();
}

TEST_F(SdkFaults, AWriteThatIsRefusedWasNotDone) {
  Begin();
  SwitchOn({{"error", "1"}, {"error_status", "-422"}, {"only", "/set"}});
  EXPECT_EQ(OutcomeOf(WriteSet(R"({"v":-5})"), "null"), Outcome::Refused);
  SwitchOff();
  EXPECT_EQ(ContentOfSet(), R"({"v":0})");
  ExpectAllIsWell();
}

TEST_F(SdkFaults, AStreamThatCannotBeRestoredAtOnceComesBackLater) {
  Begin();
  // The link comes back without it, and goes on asking.
  SwitchOn({{"error", "1"}, {"error_status", "-503"}, {"only", "/wave"}});
  AskSensor("POST", "/faults/cut");
  const Deadline deadline;
  while (Streams() && !deadline.Expired()) {
  }
  EXPECT_FALSE(deadline.Expired());
  EXPECT_TRUE(system.IsConnected());
  EXPECT_EQ(ReadAll(), std::vector<Outcome>(ReadCount, Outcome::Right));
  SwitchOff();
  ExpectAllIsWell();
}

}  // namespace
}  // namespace ZoTest
