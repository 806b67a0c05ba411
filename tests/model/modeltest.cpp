// The plug-in beside its model: whatever happens, in whatever order, both must tell the same story.
//
// The histories are the same in every run. RC_PARAMS overrides that, in RapidCheck's own words:
//   RC_PARAMS="seed=5 max_success=20000" ...      others, and more
//   RC_PARAMS="reproduce=..." ...                 those that a failure has printed
// A history that fails is shrunk, and printed with what the two told of its last step.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <set>
#include <stdexcept>

#include "tests/model/anyhistory.h"
#include "tests/model/steppedinstance.h"

namespace ZoModel {
namespace {

constexpr long long start = 1'700'000'000'000'000;  // µs since the epoch

// Plays a history on both. Returns the first difference, or nothing.
std::string Play(const History& history) {
  SteppedInstance plugin(start);
  ReferenceModel model(start);
  for (std::size_t i = 0; i < history.size(); ++i) {
    const Outcome expected = model.Perform(history[i]);
    const std::string difference = Outcome::Compare(plugin.Perform(history[i]), expected);
    if (!difference.empty()) {
      return "step " + std::to_string(i + 1) + ": " + Describe(history[i]) + "\n" + difference;
    }
  }
  const std::string difference = Outcome::Compare(plugin.End(), model.End());
  return difference.empty() ? "" : "destruction\n" + difference;
}

// Before RapidCheck reads it. What the caller has set stands last, and so counts.
const bool prepared = [] {
  const char* const given = std::getenv("RC_PARAMS");
#if defined(NDEBUG) && defined(__OPTIMIZE__)
  const std::string histories = "1500";
#else
  const std::string histories = "250";  // each takes several times as long
#endif
  const std::string params = "seed=20250314 max_success=" + histories + " " + (given == nullptr ? "" : given);
  return setenv("RC_PARAMS", params.c_str(), 1) == 0;
}();

void Check(const History& history) {
  const std::string difference = Play(history);
  if (!difference.empty()) {
    throw std::runtime_error(difference);  // RapidCheck shows what it says as it is
  }
}

RC_GTEST_PROP(Model, TellsWhatTheInstanceDoes, ()) {
  Check(*AnyHistory(Clocks::OnlyForwards, 200));
}

RC_GTEST_PROP(Model, TellsWhatTheInstanceDoesWhenTheClockIsSetBack, ()) {
  Check(*AnyHistory(Clocks::AlsoBackwards, 100));
}

// Histories that once told the two apart.

constexpr long long millisecond = 1000;  // µs

Document Member(const std::string& name, const std::string& text) {
  return Nest({name}, Document(text));
}

TEST(NamedHistory, ItemIsLookedAtAnewWhenTheClockWasSetBack) {
  EXPECT_EQ(Play({Subscribe{0, {"/r#/a"}, true}, Clock{40 * millisecond}, Push{"/r", Member("a", "older")},
                  Clock{60 * millisecond}, Push{"/r", Member("a", "newest")}, MonitorPass{},
                  Clock{-70 * millisecond}, MonitorPass{}}),
            "");
}

TEST(NamedHistory, ItemsOfOneResourceAgreeAfterTheClockWasSetBack) {
  EXPECT_EQ(Play({Subscribe{100, {"/r#/a"}, true}, Push{"/r", Member("a", "older")}, Clock{100 * millisecond},
                  Push{"/r", Member("a", "newest")}, MonitorPass{}, Clock{-3000 * millisecond},
                  Subscribe{0, {"/r#a"}, true}, MonitorPass{}}),
            "");
}

TEST(NamedHistory, RefusedUnsubscriptionLeavesTheCountOfItsPatternBelowZero) {
  EXPECT_EQ(
      Play({Answers{"StopStream", Mood::Silent}, Unsubscribe{{"/r/x#a"}}, Subscribe{100, {"/r/y#/a"}, true}}),
      "");
}

// Agreement says nothing about what never comes up.
TEST(AnyHistory, ComesByEverythingThatTheModelTells) {
  std::set<std::string> missing = {" 0:text status",
                                   " 1:1 status",
                                   " 2:-3 status",
                                   " 3:0.1",
                                   " 4:9223372036854775808 status",
                                   " 5:INVALID status",
                                   "result 0: 0",
                                   "result 0: 2",
                                   "result 1: 6",
                                   "result 1: untouched",
                                   "result 1",
                                   "result Broken.",
                                   "result The link is down.",
                                   "result Asked often enough.",
                                   " does not exist. Creating.",
                                   " value updated.",
                                   "Adding item ",
                                   " does not exists.",
                                   "Could not subscribe resource.",
                                   "Resource already subscribed.Skipping.",
                                   "Resource subscribed successfully.",
                                   "Resource streamed successfully.",
                                   "Stream attempt failed.Attempting to subscribe.",
                                   "Stopping stream ",
                                   "Invalid item name. Skipping.",
                                   "UpdateResource: JSON value: nothing at",
                                   "Write: JSON value: a string",
                                   "Subscribe: Broken.",
                                   "SensorCall: JSON value: nothing at",
                                   "request Read /r/x  quietly",
                                   "request Unsubscribe ",
                                   "request StopStream ",
                                   "request Update ",
                                   "Already running.",
                                   "Not running",
                                   "response ",
                                   " waits",
                                   " is cached 2 times",
                                   ", valid, subscribed, type 1, kind 0"};
  rc::Random random(1);
  for (int i = 0; i < 400 && !missing.empty(); ++i) {
    ReferenceModel model(start);
    for (const Step& step : AnyHistory(Clocks::OnlyForwards, 200)(random.split(), 100).value()) {
      const Outcome outcome = model.Perform(step);
      std::string all = "result " + outcome.result + "\n";
      for (const std::string& line : outcome.events) {
        all += line + "\n";
      }
      for (const std::string& line : outcome.state) {
        all += line + "\n";
      }
      std::erase_if(missing, [&](const std::string& text) { return all.find(text) != std::string::npos; });
    }
  }
  EXPECT_TRUE(missing.empty()) << ::testing::PrintToString(missing);
}

}  // namespace
}  // namespace ZoModel
