// Each fault of the sensor in turn: every request of the SDK ends in the right value or in a clear error, and when
// the fault is over the link, its streams and its subscriptions are there again.
#include <gtest/gtest.h>

#include <ostream>

#include "tests/wire/faultysensor.h"

namespace ZoTest {
namespace {

struct FaultCase {
  const char* name;
  std::vector<std::pair<std::string, std::string>> settings;
  Outcome outcome;      // of each request
  bool silent = false;  // whether requests are not answered in time

  friend void PrintTo(const FaultCase& each, std::ostream* out) { *out << each.name; }
};

class EachFault : public FaultySensor, public testing::WithParamInterface<FaultCase> {
 protected:
  static std::vector<Outcome> All(Outcome outcome) { return std::vector<Outcome>(ReadCount, outcome); }

  // Waiting longer would bring nothing.
  void ExpectSilence() { limit = second / 10; }
  void ExpectAnswers() { limit = patience; }
};

TEST_P(EachFault, AtRunTimeGivesRightValuesOrClearErrorsAndPasses) {
  Begin();
  ExpectAllIsWell();
  SwitchOn(GetParam().settings);
  if (GetParam().silent) {
    ExpectSilence();
  }
  EXPECT_EQ(ReadAll(), All(GetParam().outcome));
  EXPECT_EQ(ReadAll(), All(GetParam().outcome));
  SwitchOff();
  ExpectAnswers();
  ExpectAllIsWell();
}

TEST_P(EachFault, FromTheStartGivesRightValuesOrClearErrorsAndPasses) {
  Begin(GetParam().settings);
  if (GetParam().silent) {
    ExpectSilence();
  }
  EXPECT_EQ(ReadAll(), All(GetParam().outcome));
  // What has never answered is not waited for again: the link refuses it at once.
  EXPECT_EQ(ReadAll(), All(GetParam().silent ? Outcome::Refused : GetParam().outcome));
  SwitchOff();
  ExpectAnswers();
  if (GetParam().silent) {
    // Until something is heard of it; a subscription is quicker than the link's own probes.
    Client().Sub("/r/*", ZoJson(), ZoJson()).GetResponse(patience);
  }
  ExpectAllIsWell();
}

INSTANTIATE_TEST_SUITE_P(
    All, EachFault,
    testing::Values(
        FaultCase{"late", {{"latency_ms", "20"}, {"jitter_ms", "30"}}, Outcome::Right},
        FaultCase{"much_too_late", {{"latency_ms", "2000"}, {"only", "/r/*"}}, Outcome::Failed, true},
        FaultCase{"lost", {{"lose", "1"}, {"only", "/r/*"}}, Outcome::Failed, true},
        FaultCase{"refused", {{"error", "1"}, {"error_status", "-503"}, {"only", "/r/*"}}, Outcome::Refused},
        FaultCase{"garbage", {{"garbage", "1"}, {"only", "/r/*"}}, Outcome::Failed},
        FaultCase{"truncated", {{"truncate", "1"}, {"only", "/r/*"}}, Outcome::Failed},
        FaultCase{"duplicated", {{"duplicate", "1"}}, Outcome::Right},
        FaultCase{"reordered", {{"reorder", "1"}}, Outcome::Right},
        FaultCase{"duplicated_and_reordered", {{"duplicate", "1"}, {"reorder", "1"}}, Outcome::Right},
        FaultCase{"cut", {{"cut_every_requests", "1"}, {"only", "/r/*"}}, Outcome::Failed},
        FaultCase{"stalled",
                  {{"stall_every_requests", "4"}, {"stall_s", "0.1"}, {"only", "/r/*"}},
                  Outcome::Right}),
    [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace ZoTest
