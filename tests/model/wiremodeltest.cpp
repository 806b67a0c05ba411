// The plug-in with its link and a socket, beside a model of all that: whatever happens, in whatever order, host, sensor
// and model must tell the same story.
//
// The histories are the same in every run; RC_PARAMS overrides that as in modeltest.cpp. A history that fails is printed,
// shrunk, and printed again, with what was told of its last step.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/model/anywirehistory.h"
#include "tests/model/wireinstance.h"
#include "tests/model/wiremodel.h"

namespace ZoModel {
namespace {

constexpr long long start = 1'700'000'000'000'000;  // µs since the epoch
constexpr int fewBreaks = 3;                        // of sessions, in one history

#ifdef NDEBUG
constexpr int histories = 110;
constexpr int steps = 250;
#else
constexpr int histories = 40;  // each takes several times as long; under the thread sanitizer the most
constexpr int steps = 100;
#endif

// For what must come. Only a failure ever waits so long, and while it is shrunk it need not do so again and again.
std::chrono::milliseconds Patience(bool failed) {
  return failed ? std::chrono::milliseconds(1000) : std::chrono::milliseconds(10'000);
}

std::string Difference(const std::string& what, const Outcome& plugin, const Outcome& model) {
  const std::string difference = Outcome::Compare(plugin, model);
  return difference.empty() ? "" : what + "\n" + difference;
}

// Plays a history on both. Returns the first difference, or nothing.
std::string Play(const WireHistory& history, int mostBreaks = fewBreaks) {
  static bool failed = false;
  WireInstance plugin(start, Patience(failed), mostBreaks);
  WireModel model(start, "127.0.0.1", plugin.Port(), mostBreaks);
  std::string difference = Difference("creation", plugin.Begin(), model.Begin());
  for (std::size_t i = 0; i < history.size() && difference.empty(); ++i) {
    const Outcome expected = model.Perform(history[i]);
    difference = Difference("step " + std::to_string(i + 1) + ": " + Describe(history[i]),
                            plugin.Perform(history[i], model.Expects()), expected);
  }
  if (difference.empty()) {
    difference = Difference("destruction", plugin.End(), model.End());
  }
  if (!difference.empty() && !std::exchange(failed, true)) {
    // As it was seen: what is shrunk from a difference that luck had a part in tells little.
    std::cerr << "The first difference, of " << history.size() << " steps:\n";
    showValue(history, std::cerr);
    std::cerr << difference << "\n";
  }
  return difference;
}

// Before RapidCheck reads it. What the caller has set stands last, and so counts.
const bool prepared = [] {
  const char* const given = std::getenv("RC_PARAMS");
  const std::string params =
      "seed=20250601 max_success=" + std::to_string(histories) + " " + (given == nullptr ? "" : given);
  return setenv("RC_PARAMS", params.c_str(), 1) == 0;
}();

RC_GTEST_PROP(WireModel, TellsWhatHostAndSensorSee, ()) {
  const std::string difference = Play(*AnyWireHistory(steps));
  if (!difference.empty()) {
    throw std::runtime_error(difference);  // RapidCheck shows what it says as it is
  }
}

// Histories whose ends are easily got wrong: each told the two apart when a fault was put in on purpose.

Document Member(const std::string& name, const std::string& text) {
  return Nest({name}, Document(text));
}

TEST(NamedWireHistory, SubscriptionComesBackWithTheNextSession) {
  EXPECT_EQ(
      Play({Subscribe{100, {"/r/x#/a"}, true}, Cut{}, Hold{"/r/x", Member("a", "after")}, MonitorPass{}}),
      "");
}

TEST(NamedWireHistory, EndOfSubscriptionThatWaitsToComeBackIsNotSent) {
  EXPECT_EQ(Play({Subscribe{100, {"/r/y#/a"}, true}, Answers{"Subscribe", Mood::Payloads}, Cut{},
                  Answers{"StopStream", Mood::Silent}, Unsubscribe{{"/r/y#/a"}}}),
            "");
}

TEST(NamedWireHistory, RefusedStreamIsNotListenedTo) {
  EXPECT_EQ(Play({Answers{"Subscribe", Mood::Refuses}, Subscribe{100, {"/r/x#/a"}, true},
                  StrayPush{true, "/r/x", Member("a", "stray")}}),
            "");
}

TEST(NamedWireHistory, StreamIsListenedToInEitherSpelling) {
  EXPECT_EQ(Play({Hold{"r", Member("a", "first")}, Subscribe{100, {"r#/a"}, true}, Clock{1000},
                  StrayPush{false, "/r", Member("a", "second")}}),
            "");
}

TEST(NamedWireHistory, FailedReadIsToldOnceHoweverManyWaitForIt) {
  EXPECT_EQ(
      Play({Read{"/r/x#/b"}, Read{"/r/x#/a"}, Answers{"Read", Mood::Payloads}, RetryPass{}, RetryPass{}}),
      "");
}

TEST(NamedWireHistory, StreamThatIsGrantedTooLateComesBackAllTheSame) {
  EXPECT_EQ(Play({Hold{"/r/x", Member("a", "value")}, Read{"/r/x#/a"}, LeaveUnanswered{true},
                  Subscribe{100, {"/r/x#/a"}, true}, Clock{1000}, Cut{}, MonitorPass{}}),
            "");
}

TEST(NamedWireHistory, ResourceThatNeverAnsweredIsNotReadUntilItSpeaks) {
  EXPECT_EQ(Play({LeaveUnanswered{false}, Read{"/r/x#/a"}, Read{"/r/x#/b"}, RetryPass{},
                  StrayPush{true, "/r/x", Member("a", "spoken")}, Read{"/r/x#/c/d"}, RetryPass{}}),
            "");
}

TEST(NamedWireHistory, SensorIsAskedAboutItselfAfterTwoRequestsWithoutAnswer) {
  EXPECT_EQ(Play({LeaveUnanswered{false}, Read{"/r/x#/a"}, LeaveUnanswered{false}, Read{"/r/y#/a"},
                  LeaveUnanswered{false}, Read{"/list#/1"}, Read{"/r#/a"}}),
            "");
}

TEST(NamedWireHistory, WriteWhoseAnswerIsLostIsNotSentAgain) {
  EXPECT_EQ(Play({Hold{"/r/x", Member("a", "value")}, Subscribe{100, {"/r/x#/a"}, true}, LoseAnswer{},
                  Write{"/r/x#/a", Text, 0, "written"}, MonitorPass{}, Read{"/r/x#/a"}}),
            "");
}

TEST(NamedWireHistory, StreamWhoseStartWasLostIsAskedForInTheNextSession) {
  EXPECT_EQ(
      Play({Hold{"/r/x", Member("a", "before")}, LoseStart{true}, Subscribe{100, {"/r/x#/a"}, true},
            Clock{100'000}, Hold{"/r/x", Member("a", "after")}, MonitorPass{}, Unsubscribe{{"/r/x#/a"}}}),
      "");
}

TEST(NamedWireHistory, SubscriptionWhoseStartWasLostComesBehindWhatWasGranted) {
  EXPECT_EQ(Play({Subscribe{100, {"/list#/1"}, true}, LoseStart{false}, Subscribe{100, {"/r/x#/a"}, true},
                  Subscribe{100, {"/r/y#/a"}, true}, Subscribe{100, {"r#/a"}, true}, Cut{},
                  Hold{"/r/x", Member("a", "x")}}),
            "");
}

TEST(NamedWireHistory, LostStartThatTheNextSessionRefusesIsForgotten) {
  EXPECT_EQ(Play({Answers{"Subscribe", Mood::Refuses}, LoseStart{false}, Subscribe{100, {"/r/x#/a"}, true},
                  Answers{"Subscribe", Mood::Obeys}, StrayPush{false, "/r/x", Member("a", "stray")}, Cut{}}),
            "");
}

TEST(NamedWireHistory, StreamThatEndedTwoSessionsDoesNotComeBack) {
  for (const Unusable how : {Unusable::Broken, Unusable::Deep, Unusable::List}) {
    EXPECT_EQ(Play({Hold{"/r/x", Member("a", "x")}, Hold{"/r/y", Member("a", "y")},
                    Subscribe{100, {"/r/x#/a", "/r/y#/a"}, true}, UnusablePush{true, "/r/x", how},
                    UnusablePush{false, "/r/x", how}, Hold{"/r/x", Member("a", "unseen")},
                    Unsubscribe{{"/r/x#/a"}}, Cut{}}),
              "");
  }
}

TEST(NamedWireHistory, PatternSharesTheFateOfAResource) {
  EXPECT_EQ(Play({Subscribe{100, {"/r/x#/a", "/list#/1"}, true}, UnusablePush{true, "/r/y", Unusable::Broken},
                  UnusablePush{true, "/r/y", Unusable::Deep}, Hold{"/r/x", Member("a", "unseen")}}),
            "");
}

TEST(NamedWireHistory, StreamWhoseStartEndedTheSessionIsNotAskedForAgain) {
  EXPECT_EQ(
      Play({Hold{"/r/x", Member("a", "x")}, Spoil{"/r/x", Unusable::Deep}, Subscribe{100, {"/r/x#/a"}, true},
            Clock{1000}, StrayPush{true, "/r/x", Member("a", "stray")}, Cut{}}),
      "");
}

TEST(NamedWireHistory, ResourceWhoseAnswersEndedTwoSessionsIsReadOnceInAWhile) {
  const Call read{"Read", std::nullopt, "/r/x", std::nullopt};
  EXPECT_EQ(Play({Spoil{"/r/x", Unusable::List}, read, read, read, RetryPass{}, Clock{4'900'000}, read,
                  Clock{100'000}, read, Clock{5'000'000}, read, Clock{5'000'000}, read, read}),
            "");
}

TEST(NamedWireHistory, LastValueStaysOfAResourceWhoseAnswersEndSessions) {
  EXPECT_EQ(Play({Hold{"/r/x", Member("a", "x")}, Read{"/r/x#/a"}, Spoil{"/r/x", Unusable::Broken},
                  Read{"/r/x#/a"}, Read{"/r/x#/a"}, Read{"/r/x#/a"}, Spoil{"/r/x", std::nullopt},
                  Read{"/r/x#/a"}, Clock{5'000'000}, Read{"/r/x#/a"}, Read{"/r/x#/a"}}),
            "");
}

TEST(NamedWireHistory, OneAtATimeIsReadOfResourcesWhoseAnswersEndSessions) {
  const Call readX{"Read", std::nullopt, "/r/x", std::nullopt};
  const Call readY{"Read", std::nullopt, "/r/y", std::nullopt};
  EXPECT_EQ(Play({Spoil{"/r/x", Unusable::List}, Spoil{"/r/y", Unusable::Deep}, readX, readX, readY, readY,
                  Clock{5'000'000}, readY, readX, Clock{4'900'000}, readX, Clock{100'000}, readX},
                 4),
            "");
}

TEST(NamedWireHistory, WriteWhoseAnswerIsUnusableIsBlamedOnTheStream) {
  EXPECT_EQ(Play({Hold{"/r/x", Member("a", "x")}, Subscribe{100, {"/r/x#/a"}, true},
                  Spoil{"/r/x", Unusable::Broken}, Write{"/r/x#/a", Text, 0, "y"},
                  UnusablePush{true, "/r/x", Unusable::List}}),
            "");
}

TEST(NamedWireHistory, SensorThatStaysAwayIsHeldByItsLastValues) {
  EXPECT_EQ(Play({Hold{"/r/x", Member("a", "value")}, Subscribe{100, {"/r/x#/a"}, true}, MonitorPass{},
                  Connection{false}, Clock{100'000}, MonitorPass{}, Read{"/r/x#/a"}, RetryPass{},
                  Connection{true}, Read{"/r/x#/a"}}),
            "");
}

// Agreement says nothing about what never comes up.

std::size_t CountOf(const Outcome& outcome, const std::string& beginning) {
  return static_cast<std::size_t>(
      std::count_if(outcome.events.begin(), outcome.events.end(),
                    [&](const auto& event) { return event.starts_with(beginning); }));
}

bool Breaks(const WireStep& step) {
  return !std::holds_alternative<Subscribe>(step) && !std::holds_alternative<Unsubscribe>(step);
}

using Sights = std::map<std::string, std::function<bool(const WireStep&, const Outcome&)>>;

// What is seen in more than a word.
Sights LongSights() {
  Sights sights;
  sights["three come back at once"] = [](const WireStep& step, const Outcome& outcome) {
    return Breaks(step) && CountOf(outcome, "request startStream") + CountOf(outcome, "request sub") >= 3;
  };
  sights["a stream is refused to come back"] = [](const WireStep& step, const Outcome& outcome) {
    return std::holds_alternative<Restart>(step) && CountOf(outcome, "request startStream") > 0;
  };
  sights["the end of a stream that waits to come back is no matter of the sensor's"] =
      [](const WireStep& step, const Outcome& outcome) {
        return std::holds_alternative<Unsubscribe>(step) &&
               CountOf(outcome, "log 2 ZoIO::ZoVyrnClient::Unsubscribe: Stopping stream") >
                   CountOf(outcome, "request stopStream");
      };
  sights["a stray push that nobody asked for"] = [](const WireStep& step, const Outcome& outcome) {
    return std::holds_alternative<StrayPush>(step) && outcome.state.back().starts_with("sensor ");
  };
  sights["one pass asks for several resources"] = [](const WireStep& step, const Outcome& outcome) {
    return std::holds_alternative<RetryPass>(step) && CountOf(outcome, "request read") >= 3;
  };
  sights["two who wait for one answer are told once that it failed"] = [](const WireStep& step,
                                                                          const Outcome& outcome) {
    return std::holds_alternative<RetryPass>(step) && CountOf(outcome, "request read /r/x") == 1 &&
           CountOf(outcome, "log 5 ZoIO::SensorManager::ResponseToZoJson: /r/x[1]") == 1 &&
           std::count(outcome.state.begin(), outcome.state.end(), "/r/x#/a waits") +
                   std::count(outcome.state.begin(), outcome.state.end(), "/r/x#/b waits") ==
               2;
  };
  sights["the sensor is asked about itself"] = [](const WireStep& step, const Outcome& outcome) {
    return !std::holds_alternative<Call>(step) && CountOf(outcome, "request read /system ") > 0;
  };
  sights["a stream that is granted late"] = [](const WireStep& step, const Outcome& outcome) {
    return std::holds_alternative<Subscribe>(step) &&
           CountOf(outcome,
                   "log 5 ZoIO::SensorManager::ResponseToZoJson: /r/x[8]: The sensor did not answer") > 0 &&
           std::count(outcome.state.begin(), outcome.state.end(), "sensor streams /r/x") > 0;
  };
  sights["a stream whose start was lost comes back beside the subscription that took its place"] =
      [](const WireStep& step, const Outcome& outcome) {
        return std::holds_alternative<Subscribe>(step) &&
               CountOf(outcome, "request startStream /r/x ") == 2 &&
               std::count(outcome.state.begin(), outcome.state.end(), "sensor streams /r/x") > 0 &&
               std::count(outcome.state.begin(), outcome.state.end(), "sensor notifies of /r/*") > 0;
      };
  sights["a subscription whose start was lost comes back"] = [](const WireStep& step,
                                                                const Outcome& outcome) {
    return std::holds_alternative<Subscribe>(step) && CountOf(outcome, "request sub /r/* ") == 2 &&
           std::count(outcome.state.begin(), outcome.state.end(), "sensor notifies of /r/*") > 0;
  };
  sights["a lost start is refused"] = [](const WireStep& step, const Outcome& outcome) {
    return std::holds_alternative<Subscribe>(step) && CountOf(outcome, "request startStream /r/x ") == 2 &&
           std::count(outcome.state.begin(), outcome.state.end(), "sensor streams /r/x") == 0;
  };
  sights["what ended one session comes back"] = [](const WireStep& step, const Outcome& outcome) {
    const auto* push = std::get_if<UnusablePush>(&step);
    return push != nullptr && CountOf(outcome, "request startStream " + push->uri + " ") > 0;
  };
  sights["what ended two sessions does not come back with the others"] =
      [before = std::vector<std::string>()](const WireStep& step, const Outcome& outcome) mutable {
        const std::vector<std::string> had = std::exchange(before, outcome.state);
        const auto* push = std::get_if<UnusablePush>(&step);
        return push != nullptr && std::count(had.begin(), had.end(), "sensor streams " + push->uri) > 0 &&
               CountOf(outcome, "request ") > 0 &&
               CountOf(outcome, "request startStream " + push->uri + " ") == 0;
      };
  sights["a start that ended its session is not asked for again"] = [](const WireStep& step,
                                                                       const Outcome& outcome) {
    return std::holds_alternative<Subscribe>(step) && CountOf(outcome, "request startStream ") == 1 &&
           CountOf(outcome, "request ") > 1 &&
           std::any_of(outcome.events.begin(), outcome.events.end(), [](const auto& event) {
             return event.find(
                        "[8]: The link to the sensor broke before the answer came: the sensor sent a") !=
                    std::string::npos;
           });
  };
  sights["a braked read"] = [](const WireStep& step, const Outcome& outcome) {
    return std::holds_alternative<Read>(step) &&
           CountOf(outcome, "log 2 ZoIO::ItemManager::Item: Retrieving") > 0 &&
           CountOf(outcome, "request ") == 0;
  };
  sights["a value without a link"] = [](const WireStep& step, const Outcome& outcome) {
    return std::holds_alternative<MonitorPass>(step) && CountOf(outcome, "value ") > 0;
  };
  return sights;
}

TEST(AnyWireHistory, ComesByEverythingThatTheModelTells) {
  Sights missing = LongSights();
  for (const char* text : {"request startStream ",
                           "request stopStream ",
                           "request sub ",
                           "request unsub ",
                           "request read /system ",
                           "request call /system/start ",
                           "request call /system/stop ",
                           "request update ",
                           "request create ",
                           "handed on stream ",
                           "handed on notification ",
                           "sensor streams ",
                           "sensor notifies of ",
                           "sensor runs",
                           "[1]: The sensor's answer carries no status.",
                           "[6]: The sensor's answer carries no status.",
                           "[8]: The sensor's answer carries no status.",
                           "[9]: The sensor's answer carries no status.",
                           "[1]: The link to the sensor broke before the answer came",
                           "[3]: The link to the sensor broke before",
                           "[5]: The link to the sensor broke before",
                           "[6]: The link to the sensor broke before",
                           "[8]: The link to the sensor broke before",
                           "[1]: The link to the sensor broke before the answer came: the sensor sent",
                           "[3]: The link to the sensor broke before the answer came: the sensor sent",
                           "[5]: The link to the sensor broke before the answer came: the sensor sent",
                           "no JSON object (JSON text, byte 12",
                           "nested deeper than 256 levels",
                           "(the JSON is another value)",
                           "[1]: The sensor's answers about this resource end the session",
                           "[1]: The sensor did not answer within 3 s.",
                           "[3]: The sensor did not answer within 3 s.",
                           "[5]: The sensor did not answer within 3 s.",

                           "[9]: The sensor did not answer within 3 s.",
                           "Start: The sensor did not answer within 3 s.",
                           "IsRunning: The sensor refused the request with status -404",
                           "IsRunning: JSON value: nothing at",
                           "Start: The sensor refused",
                           "result The link to the sensor is down.",
                           "Resource already subscribed.Skipping.",
                           "Resource subscribed successfully.",
                           "Could not subscribe resource.",
                           "Resource streamed successfully.",
                           "Already running.",
                           "Not running",
                           " waits",
                           " is cached 3 times"}) {
    missing[text] = [text](const WireStep& /*step*/, const Outcome& outcome) {
      const auto has = [text](const std::string& line) { return line.find(text) != std::string::npos; };
      return has("result " + outcome.result) ||
             std::any_of(outcome.events.begin(), outcome.events.end(), has) ||
             std::any_of(outcome.state.begin(), outcome.state.end(), has);
    };
  }
  // As long as the longest in every build: the model alone takes no time.
  constexpr int longest = 250;
  rc::Random random(1);
  for (int i = 0; i < 1000 && !missing.empty(); ++i) {
    WireModel model(start, "127.0.0.1", 1, fewBreaks);
    for (const WireStep& step : AnyWireHistory(longest)(random.split(), 100).value()) {
      const Outcome outcome = model.Perform(step);
      std::erase_if(missing, [&](const auto& sight) { return sight.second(step, outcome); });
    }
  }
  for (const auto& [name, seen] : missing) {
    ADD_FAILURE() << "never seen: " << name;
  }
}

}  // namespace
}  // namespace ZoModel
