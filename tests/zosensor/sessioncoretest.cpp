#include "tools/zosensor/sessioncore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "tests/zosensor/modelfixture.h"
#include "tools/zosensor/restdoor.h"

namespace ZoSensor {
namespace {

using namespace std::chrono_literals;

class RecordingOutlet final : public Outlet {
 public:
  void Send(Outgoing item) override { sent.push_back(std::move(item)); }
  void Close(CloseCode code, std::string_view) override { closed = static_cast<int>(code); }
  void Cut(std::string_view) override { cut = true; }
  void WakeAt(Time time) override { wake = std::min(wake, time); }

  std::vector<std::string> Take() {
    std::vector<std::string> texts;
    for (const Outgoing& item : sent) {
      texts.push_back(*item.text);
    }
    sent.clear();
    return texts;
  }

  std::vector<Outgoing> sent;
  int closed = 0;
  bool cut = false;
  Time wake = Never;
};

class SessionCoreTest : public ModelFixture {
 protected:
  SessionCoreTest() {
    Start(R"({"resources": {
      "/res": {"content": {"v": 1}, "writable": true},
      "/wave": {"content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
      "/slow": {"call": {"result": 1, "delay_ms": 50}},
      "/slowset": {"call": {"result": 1, "set": {"/res": {"v": 9}}, "delay_ms": 50}},
      "/echo": {"call": {"echo": true}}}})");
    Restart();
  }

  void Restart(std::initializer_list<const char*> settings = {}, std::uint64_t seed = 1) {
    core.reset();
    FaultSettings start;
    std::string objection;
    for (const char* setting : settings) {
      const auto next = start.With(setting, objection);
      ASSERT_TRUE(next) << objection;
      start = *next;
    }
    faults = std::make_unique<FaultController>(start, seed, now);
    core = std::make_unique<SessionCore>(*sensor, *faults, limits, log, outlet, "tester");
  }

  std::vector<std::string> Ask(std::string_view message) {
    core->Receive(message, true, now);
    return outlet.Take();
  }
  std::string AskOne(std::string_view message) {
    const auto texts = Ask(message);
    EXPECT_EQ(texts.size(), 1U) << message;
    return texts.empty() ? "" : texts[0];
  }

  Log log{LogLevel::Off};
  RecordingOutlet outlet;
  std::unique_ptr<FaultController> faults;
  std::unique_ptr<SessionCore> core;
};

TEST_F(SessionCoreTest, AnswersInTheSpellingThatWasAsked) {
  EXPECT_EQ(AskOne(R"({"id":17,"method":"read","uri":"/res"})"),
            R"({"id":17,"status":1,"uri":"/res","payload":{"v":1}})");
  EXPECT_EQ(AskOne(R"({"id":18,"method":"read","uri":"res"})"),
            R"({"id":18,"status":1,"uri":"res","payload":{"v":1}})");
}

TEST_F(SessionCoreTest, UnknownMembersAndStrayPayloadsAreIgnored) {
  EXPECT_EQ(AskOne(R"({"more":{"id":9},"id":1,"method":"read","uri":"/res","status":-5,"event":"stream"})"),
            R"({"id":1,"status":1,"uri":"/res","payload":{"v":1}})");
  EXPECT_EQ(AskOne(R"({"id":2,"method":"read","uri":"/res","payload":{"v":2}})"),
            R"({"id":2,"status":1,"uri":"/res","payload":{"v":1}})");
  EXPECT_EQ(AskOne(R"({"id":3,"method":"read","uri":"/res"})"),
            R"({"id":3,"status":1,"uri":"/res","payload":{"v":1}})");
}

TEST_F(SessionCoreTest, EmptyUriIsTheRootInItsOwnSpelling) {
  const ZoJson slash = Json(AskOne(R"({"id":1,"method":"read","uri":"/"})"));
  const ZoJson empty = Json(AskOne(R"({"id":2,"method":"read","uri":""})"));
  EXPECT_EQ(empty.At("status").ToString(), "1");
  EXPECT_EQ(empty.At("uri").ToString(), R"("")");
  EXPECT_TRUE(empty.At("payload").HasKey("resources"));
  EXPECT_EQ(empty.At("payload").ToString(), slash.At("payload").ToString());
}

TEST_F(SessionCoreTest, WritesAreNotifiedWhileTheSensorIsStopped) {
  Ask(R"({"id":1,"method":"call","uri":"/system/stop"})");
  Ask(R"({"id":2,"method":"sub","uri":"/res"})");
  EXPECT_EQ(Ask(R"({"id":3,"method":"update","uri":"/res","payload":{"v":4}})"),
            (std::vector<std::string>{R"({"id":3,"status":1,"uri":"/res"})",
                                      R"({"event":"notification","uri":"/res","payload":{"v":4}})"}));
}

TEST_F(SessionCoreTest, SuccessWithoutDataCarriesNoPayload) {
  EXPECT_EQ(AskOne(R"({"id":1,"method":"update","uri":"/res","payload":{"v":2}})"),
            R"({"id":1,"status":1,"uri":"/res"})");
  EXPECT_EQ(AskOne(R"({"id":2,"method":"create","uri":"/new","payload":null})"),
            R"({"id":2,"status":1,"uri":"/new"})");
  EXPECT_EQ(AskOne(R"({"id":3,"method":"delete","uri":"/new"})"), R"({"id":3,"status":1,"uri":"/new"})");
}

TEST_F(SessionCoreTest, FailureCarriesNullAndASentence) {
  const ZoJson answer = Json(AskOne(R"({"id":1,"method":"read","uri":"/none"})"));
  EXPECT_EQ(answer.At("id").ToString(), "1");
  EXPECT_EQ(answer.At("status").ToString(), "-404");
  EXPECT_EQ(answer.At("uri").ToString(), R"("/none")");
  EXPECT_TRUE(answer.HasKey("payload"));
  EXPECT_TRUE(answer.At("payload").IsNull());
  EXPECT_GT(answer.At("error").Get<std::string>().size(), 5U);
}

TEST_F(SessionCoreTest, StopOfWhatIsNotStreamedIsAcknowledgedBarely) {
  EXPECT_EQ(AskOne(R"({"id":9,"method":"stopStream","uri":"/res"})"), R"({"id":9})");
  EXPECT_EQ(AskOne(R"({"id":10,"method":"startStream","uri":"/res"})"),
            R"({"id":10,"status":1,"uri":"/res","payload":{"v":1}})");
  EXPECT_EQ(AskOne(R"({"id":11,"method":"stopStream","uri":"res"})"), R"({"id":11})");
  EXPECT_EQ(AskOne(R"({"id":12,"method":"stopStream","uri":"/res"})"),
            R"({"id":12,"status":1,"uri":"/res"})");
}

TEST_F(SessionCoreTest, SubscriptionIsAnsweredBeforeItsFirstContents) {
  EXPECT_EQ(Ask(R"({"id":1,"method":"sub","uri":"res/*"})"),
            (std::vector<std::string>{R"({"id":1,"status":1,"uri":"res/*"})",
                                      R"({"event":"notification","uri":"res","payload":{"v":1}})"}));
  EXPECT_EQ(Ask(R"({"id":2,"method":"update","uri":"/res","payload":{"v":5}})"),
            (std::vector<std::string>{R"({"id":2,"status":1,"uri":"/res"})",
                                      R"({"event":"notification","uri":"res","payload":{"v":5}})"}));
  EXPECT_EQ(AskOne(R"({"id":3,"method":"unsub","uri":"res/*"})"), R"({"id":3,"status":1,"uri":"res/*"})");
  EXPECT_EQ(Json(AskOne(R"({"id":4,"method":"unsub","uri":"res/*"})")).At("status").ToString(), "-404");
}

TEST_F(SessionCoreTest, CallPassesItsArgumentOrNone) {
  EXPECT_EQ(AskOne(R"({"id":1,"method":"call","uri":"/echo","payload":[1]})"),
            R"({"id":1,"status":1,"uri":"/echo","payload":[1]})");
  EXPECT_EQ(AskOne(R"({"id":2,"method":"call","uri":"/echo"})"),
            R"({"id":2,"status":1,"uri":"/echo","payload":null})");
}

TEST_F(SessionCoreTest, MalformedRequestsAreAnswered) {
  for (const char* message :
       {R"({})", R"({"id":-1,"method":"read","uri":"/res"})", R"({"id":"1","method":"read","uri":"/res"})",
        R"({"id":1,"uri":"/res"})", R"({"id":1,"method":"get","uri":"/res"})",
        R"({"id":1,"method":1,"uri":"/res"})", R"({"id":1,"method":"read"})",
        R"({"id":1,"method":"read","uri":5})", R"({"id":1,"method":"update","uri":"/res"})",
        R"({"id":1,"method":"create","uri":"/x"})", R"({"id":1,"method":"sub","uri":"/r*s"})"}) {
    const ZoJson answer = Json(AskOne(message));
    EXPECT_EQ(answer.At("status").ToString(), "-400") << message;
    EXPECT_TRUE(answer.HasKey("id")) << message;
  }
  EXPECT_EQ(outlet.closed, 0);
}

TEST_F(SessionCoreTest, WhatIsNoJsonObjectClosesTheSession) {
  for (const char* message : {"", "x", "[1]", "5", "null", R"({"id":1)", "{\"id\":1,\"uri\":\"\xff\"}"}) {
    outlet.closed = 0;
    EXPECT_TRUE(Ask(message).empty()) << message;
    EXPECT_EQ(outlet.closed, 1007) << message;
  }
  outlet.closed = 0;
  core->Receive(R"({"id":1,"method":"read","uri":"/res"})", false, now);  // a binary message
  EXPECT_EQ(outlet.closed, 1007);
}

TEST_F(SessionCoreTest, JsonThatCannotBeHeldIsMalformedAndClosesNothing) {
  const std::string digits(400, '7');
  const std::string head = R"({"id":7,"method":"update","uri":"/res","payload":)";
  for (const std::string& value :
       {std::string("1e999"), std::string("-1.5E+0400"), digits, "[0." + digits + "e400]",
        std::string(R"("\ud800")"), std::string(R"({"v":"a\uDC00b"})"),
        std::string(R"("\\\ud83d\ud83d\ude00")")}) {
    const ZoJson answer = Json(AskOne(head + value + "}"));
    EXPECT_EQ(answer.At("status").ToString(), "-400") << value;
    EXPECT_EQ(answer.At("id").ToString(), "7") << value;
    EXPECT_EQ(answer.At("uri").ToString(), "\"/res\"") << value;
  }
  for (const std::string& id : {std::string("1e999"), digits, std::string(R"("\ud800")")}) {
    const ZoJson answer = Json(AskOne(R"({"method":"read","uri":"/res","id":)" + id + "}"));
    EXPECT_EQ(answer.At("status").ToString(), "-400") << id;
    EXPECT_TRUE(answer.At("id").IsNull()) << id;
  }
  EXPECT_EQ(outlet.closed, 0);
  for (const char* message : {R"({"id":1e999,})", R"({"id":1e})", R"(["\ud800"])", R"({"id":01e999})",
                              R"({"id":"\ud80"})", R"({"id":1.e999})", R"(1e999)", R"({"id":"\ud800)"}) {
    outlet.closed = 0;
    EXPECT_TRUE(Ask(message).empty()) << message;
    EXPECT_EQ(outlet.closed, 1007) << message;
  }
}

TEST_F(SessionCoreTest, TooDeepMessageClosesTheSession) {
  limits.maxDepth = 5;
  EXPECT_EQ(Json(AskOne(R"({"id":1,"method":"call","uri":"/echo","payload":[[[["]]]][[[["]]]]})"))
                .At("status")
                .ToString(),
            "1");
  EXPECT_TRUE(Ask(R"({"id":1,"method":"call","uri":"/echo","payload":[[[[[]]]]]})").empty());
  EXPECT_EQ(outlet.closed, 1007);
}

TEST_F(SessionCoreTest, MessageOfTooManyValuesIsRefusedAndClosesNothing) {
  limits.maxValues = 20;
  const auto call = [&](const std::string& id, std::size_t elements) {
    std::string list = "[\"a, [text]\"";
    for (std::size_t i = 1; i < elements; ++i) {
      list += ",1";
    }
    return Json(AskOne(R"({"payload":)" + list + R"(],"uri":"/echo","method":"call","id":)" + id + "}"));
  };
  EXPECT_EQ(call("1", 15).At("status").ToString(), "1");  // with the object, its members and the array twenty
  const ZoJson refusal = call("2", 16);
  EXPECT_EQ(refusal.At("status").ToString(), "-413");
  EXPECT_EQ(refusal.At("id").ToString(), "2");
  EXPECT_EQ(refusal.At("uri").ToString(), R"("/echo")");
  EXPECT_TRUE(refusal.At("payload").IsNull());
  EXPECT_EQ(call("1e999", 30).At("status").ToString(), "-413");
  EXPECT_EQ(outlet.closed, 0);
  std::string members = R"({"id":3,"method":"read","uri":"/res")";
  for (int i = 0; i < 20; ++i) {
    members += fmt::format(R"(,"m{}":0)", i);
  }
  const ZoJson wide = Json(AskOne(members + "}"));
  EXPECT_EQ(wide.At("status").ToString(), "-413");
  EXPECT_TRUE(wide.At("id").IsNull());
  EXPECT_EQ(outlet.closed, 0);
  EXPECT_TRUE(Ask("[1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1]").empty());
  EXPECT_EQ(outlet.closed, 1007);
}

TEST_F(SessionCoreTest, StreamPushesComeWithEachStep) {
  Ask(R"({"id":1,"method":"startStream","uri":"wave"})");
  Pass(100ms);
  EXPECT_EQ(outlet.Take(), std::vector<std::string>{R"({"event":"stream","uri":"wave","payload":{"n":1}})"});
}

TEST_F(SessionCoreTest, SlowMethodIsAnsweredLater) {
  EXPECT_TRUE(Ask(R"({"id":1,"method":"call","uri":"/slow"})").empty());
  EXPECT_EQ(outlet.wake, now + 50ms);
  EXPECT_EQ(AskOne(R"({"id":2,"method":"read","uri":"/res"})"),
            R"({"id":2,"status":1,"uri":"/res","payload":{"v":1}})");
  now += 50ms;
  core->Step(now);
  EXPECT_EQ(outlet.Take(), std::vector<std::string>{R"({"id":1,"status":1,"uri":"/slow","payload":1})"});
}

TEST_F(SessionCoreTest, SlowMethodHoldsBackNobodyElsesPushes) {
  Ask(R"({"id":1,"method":"sub","uri":"/res"})");
  EXPECT_TRUE(Ask(R"({"id":2,"method":"call","uri":"/slowset"})").empty());
  EXPECT_EQ(Update("/res", R"({"v":3})").status, 1);
  EXPECT_EQ(outlet.Take(),
            std::vector<std::string>{R"({"event":"notification","uri":"/res","payload":{"v":3}})"});
  now += 50ms;
  core->Step(now);
  sensor->Step(now);
  EXPECT_EQ(outlet.Take(),
            (std::vector<std::string>{R"({"id":2,"status":1,"uri":"/slowset","payload":1})",
                                      R"({"event":"notification","uri":"/res","payload":{"v":9}})"}));
}

TEST_F(SessionCoreTest, SlowMethodIsAnsweredBeforeItsPushesWhoeverIsSteppedFirst) {
  for (const char* only : {"only=*", "only=/wave"}) {
    Restart({"latency_ms=20", only});
    EXPECT_EQ(Update("/res", R"({"v":1})").status, 1);
    Ask(R"({"id":1,"method":"sub","uri":"/res"})");
    Ask(R"({"id":2,"method":"call","uri":"/slowset"})");
    for (int i = 0; i < 20; ++i) {
      now += 10ms;
      sensor->Step(now);
      core->Step(now);
    }
    const auto texts = outlet.Take();
    const auto answer =
        std::find(texts.begin(), texts.end(), R"({"id":2,"status":1,"uri":"/slowset","payload":1})");
    const auto push =
        std::find(texts.begin(), texts.end(), R"({"event":"notification","uri":"/res","payload":{"v":9}})");
    EXPECT_TRUE(answer != texts.end() && push != texts.end() && answer < push) << only;
  }
}

TEST_F(SessionCoreTest, LatencyDelaysAnswersAndPushesAndKeepsTheOrderOfPushes) {
  Restart({"latency_ms=40", "jitter_ms=30"});
  EXPECT_TRUE(Ask(R"({"id":1,"method":"sub","uri":"/res"})").empty());
  for (int i = 2; i < 30; ++i) {
    EXPECT_TRUE(
        Ask(fmt::format(R"({{"id":{},"method":"update","uri":"/res","payload":{{"v":{}}}}})", i, i)).empty());
  }
  now += 39ms;
  core->Step(now);
  EXPECT_TRUE(outlet.Take().empty());
  now += 32ms;
  core->Step(now);
  int last = 0;
  int pushes = 0;
  for (const std::string& text : outlet.Take()) {
    if (const ZoJson message = Json(text); message.HasKey("event")) {
      const int value = message.At("payload/v").Get<int>();
      EXPECT_GT(value, last);
      last = value;
      ++pushes;
    }
  }
  EXPECT_EQ(pushes, 29);
}

TEST_F(SessionCoreTest, LostAnswersAreLostTheirRequestsAreNot) {
  Restart({"lose=1"});
  EXPECT_TRUE(Ask(R"({"id":1,"method":"update","uri":"/res","payload":{"v":7}})").empty());
  EXPECT_EQ(Content("/res").ToString(), R"({"v":7})");
}

TEST_F(SessionCoreTest, ErrorsOnPurposeBearTheirStatusAndChangeNothing) {
  Restart({"error=1", "error_status=-503"});
  const ZoJson answer = Json(AskOne(R"({"id":1,"method":"update","uri":"/res","payload":{"v":7}})"));
  EXPECT_EQ(answer.At("status").ToString(), "-503");
  EXPECT_EQ(Content("/res").ToString(), R"({"v":1})");
}

TEST_F(SessionCoreTest, SharesAreSharesAndRepeatWithTheSeed) {
  const auto run = [&](std::uint64_t seed) {
    Restart({"lose=0.25"}, seed);
    std::string pattern;
    for (int i = 1; i <= 400; ++i) {
      pattern += Ask(fmt::format(R"({{"id":{},"method":"read","uri":"/res"}})", i)).empty() ? '.' : 'x';
    }
    return pattern;
  };
  const std::string first = run(7);
  EXPECT_EQ(first, run(7));
  EXPECT_NE(first, run(8));
  const auto lost = std::count(first.begin(), first.end(), '.');
  EXPECT_GT(lost, 60);
  EXPECT_LT(lost, 140);
}

TEST_F(SessionCoreTest, GarbageIsNeverTheAnswerAndComesInSeveralFlavours) {
  Restart({"garbage=1"});
  std::set<std::string> flavours;
  for (int i = 1; i <= 100; ++i) {
    const std::string text = AskOne(fmt::format(R"({{"id":{},"method":"read","uri":"/res"}})", i));
    EXPECT_FALSE(ParseRequest(text, limits)) << text;
    flavours.insert(text);
  }
  EXPECT_EQ(flavours.size(), 4U);
}

TEST_F(SessionCoreTest, TruncatedFramePromisesMoreThanItHolds) {
  Restart({"truncate=1"});
  core->Receive(R"({"id":1,"method":"read","uri":"/res"})", true, now);
  ASSERT_EQ(outlet.sent.size(), 1U);
  EXPECT_EQ(outlet.sent[0].framing, Outgoing::Framing::BytesThenCut);
  const std::string& bytes = *outlet.sent[0].text;
  const std::string whole = R"({"id":1,"status":1,"uri":"/res","payload":{"v":1}})";
  EXPECT_EQ(bytes[0], '\x81');
  EXPECT_EQ(static_cast<std::size_t>(static_cast<unsigned char>(bytes[1])), whole.size());
  EXPECT_EQ(bytes.substr(2), whole.substr(0, whole.size() / 2));
}

TEST_F(SessionCoreTest, DuplicatedAnswersComeTwice) {
  Restart({"duplicate=1"});
  const auto texts = Ask(R"({"id":1,"method":"read","uri":"/res"})");
  ASSERT_EQ(texts.size(), 2U);
  EXPECT_EQ(texts[0], texts[1]);
}

TEST_F(SessionCoreTest, ReorderedAnswersAreOvertakenByTheNext) {
  Restart({"reorder=1"});
  EXPECT_TRUE(Ask(R"({"id":1,"method":"read","uri":"/res"})").empty());
  const auto texts = Ask(R"({"id":2,"method":"read","uri":"/res"})");
  ASSERT_EQ(texts.size(), 2U);
  EXPECT_EQ(Json(texts[0]).At("id").ToString(), "2");
  EXPECT_EQ(Json(texts[1]).At("id").ToString(), "1");
  EXPECT_TRUE(Ask(R"({"id":3,"method":"read","uri":"/res"})").empty());
  now += 200ms;  // nobody overtakes: it comes nonetheless
  core->Step(now);
  EXPECT_EQ(outlet.Take().size(), 1U);
}

TEST_F(SessionCoreTest, ReorderedAnswerDoesNotWaitForASlowOne) {
  Restart({"reorder=1"});
  EXPECT_TRUE(Ask(R"({"id":1,"method":"read","uri":"/res"})").empty());
  now += 180ms;
  EXPECT_TRUE(Ask(R"({"id":2,"method":"call","uri":"/slow"})").empty());  // takes 50 ms
  now += 20ms;
  core->Step(now);
  EXPECT_EQ(outlet.Take(), std::vector<std::string>{R"({"id":1,"status":1,"uri":"/res","payload":{"v":1}})"});
  now += 30ms;
  core->Step(now);
  EXPECT_EQ(outlet.Take(), std::vector<std::string>{R"({"id":2,"status":1,"uri":"/slow","payload":1})"});
}

TEST_F(SessionCoreTest, CutsAfterSoManyRequests) {
  Restart({"cut_every_requests=3"});
  Ask(R"({"id":1,"method":"read","uri":"/res"})");
  Ask(R"({"id":2,"method":"read","uri":"/res"})");
  EXPECT_FALSE(outlet.cut);
  EXPECT_TRUE(Ask(R"({"id":3,"method":"read","uri":"/res"})").empty());
  EXPECT_TRUE(outlet.cut);
}

TEST_F(SessionCoreTest, StallsAfterSoManyRequests) {
  Restart({"stall_every_requests=2", "stall_s=3"});
  Duration stalled{};
  faults->stallAll = [&](Duration, Duration length) { stalled = length; };
  Ask(R"({"id":1,"method":"read","uri":"/res"})");
  EXPECT_EQ(stalled, 0s);
  Ask(R"({"id":2,"method":"read","uri":"/res"})");
  EXPECT_EQ(stalled, 3s);
}

TEST_F(SessionCoreTest, MutedPushesAreNotSent) {
  Restart({"mute_pushes=true"});
  EXPECT_EQ(Ask(R"({"id":1,"method":"sub","uri":"*"})").size(), 1U);
  Ask(R"({"id":2,"method":"startStream","uri":"/wave"})");
  Pass(1s);
  EXPECT_TRUE(outlet.Take().empty());
}

TEST_F(SessionCoreTest, FaultsMayConcernOneResourceAlone) {
  Restart({"lose=1", "only=/res"});
  EXPECT_TRUE(Ask(R"({"id":1,"method":"read","uri":"res"})").empty());
  EXPECT_EQ(Ask(R"({"id":2,"method":"read","uri":"/wave"})").size(), 1U);
}

TEST_F(SessionCoreTest, FaultsAreAResourceThatIsNeverDisturbed) {
  Restart({"lose=1"});
  faults->Install(*sensor, now);
  EXPECT_EQ(Json(AskOne(R"({"id":1,"method":"read","uri":"faults"})")).At("payload/lose").ToString(), "1.0");
  EXPECT_TRUE(Ask(R"({"id":2,"method":"read","uri":"/res"})").empty());
  EXPECT_EQ(Json(AskOne(R"({"id":3,"method":"update","uri":"/faults","payload":{"lose":0,"error":1}})"))
                .At("status")
                .ToString(),
            "1");
  EXPECT_EQ(Json(AskOne(R"({"id":4,"method":"read","uri":"/res"})")).At("status").ToString(), "-500");
  EXPECT_EQ(Json(AskOne(R"({"id":5,"method":"call","uri":"/faults/reset"})")).At("status").ToString(), "1");
  EXPECT_EQ(Json(AskOne(R"({"id":6,"method":"read","uri":"/res"})")).At("status").ToString(), "1");
  EXPECT_EQ(Content("/faults").At("error").ToString(), "0.0");
}

TEST_F(SessionCoreTest, FaultsOutOfRangeAreRefused) {
  faults->Install(*sensor, now);
  for (const char* patch : {R"({"lose":1.1})", R"({"lose":-0.1})", R"({"error_status":1})",
                            R"({"error_status":-600})", R"({"only":"a*b"})", R"({"cut_every_requests":-1})",
                            R"({"cut_every_requests":1.5})", R"({"stall_s":1e9})", R"({"mute_pushes":1})"}) {
    EXPECT_EQ(Update("/faults", patch).status, -422) << patch;
  }
  EXPECT_EQ(Update("/faults", R"({"loose":1})").status, -404);
  EXPECT_EQ(faults->Settings().lose, 0);
}

TEST_F(SessionCoreTest, FaultMethodsReachEveryConnection) {
  faults->Install(*sensor, now);
  int cuts = 0;
  Duration stalled{};
  faults->cutAll = [&](Duration) { ++cuts; };
  faults->stallAll = [&](Duration, Duration length) { stalled = length; };
  EXPECT_EQ(Call("/faults/cut").status, 1);
  EXPECT_EQ(cuts, 1);
  EXPECT_EQ(Call("/faults/stall").status, 1);
  EXPECT_EQ(stalled, 5s);
  EXPECT_EQ(Call("/faults/stall", R"({"seconds":1.5})").status, 1);
  EXPECT_EQ(stalled, 1500ms);
  EXPECT_EQ(Call("/faults/stall", R"({"seconds":"x"})").status, -422);
}

TEST_F(SessionCoreTest, CutsAndStallsByTheClock) {
  Restart({"cut_every_s=10", "stall_every_s=3", "stall_s=1"});
  std::vector<std::string> events;
  faults->cutAll = [&](Duration) { events.push_back("cut"); };
  faults->stallAll = [&](Duration, Duration) { events.push_back("stall"); };
  const Time end = now + 11s;
  while (faults->NextDue() <= end) {
    now = faults->NextDue();
    faults->Step(now);
  }
  EXPECT_EQ(events, (std::vector<std::string>{"stall", "stall", "cut", "stall"}));
}

TEST_F(SessionCoreTest, ClocksOfFaultsRestartOnlyWhenTheirOwnMemberChanges) {
  faults->Install(*sensor, now);
  EXPECT_EQ(Update("/faults", R"({"cut_every_s":10,"stall_every_s":20})").status, 1);
  const Time start = now;
  now += 6s;
  EXPECT_EQ(Update("/faults", R"({"lose":0.5,"stall_s":1})").status, 1);
  EXPECT_EQ(faults->NextDue(), start + 10s);
  EXPECT_EQ(Update("/faults", R"({"cut_every_s":0})").status, 1);
  EXPECT_EQ(faults->NextDue(), start + 20s);
  EXPECT_EQ(Update("/faults", R"({"stall_every_s":7})").status, 1);
  EXPECT_EQ(faults->NextDue(), now + 7s);
}

TEST_F(SessionCoreTest, StallsByTheClockCountFromTheEndOfAnyStall) {
  Restart({"stall_every_s=3", "stall_every_requests=1", "stall_s=2", "only=/res"});
  faults->Install(*sensor, now);
  now += 1s;
  Ask(R"({"id":1,"method":"read","uri":"/res"})");
  EXPECT_EQ(faults->NextDue(), now + 5s);
  EXPECT_EQ(Call("/faults/stall", R"({"seconds":10})").status, 1);
  EXPECT_EQ(faults->NextDue(), now + 13s + 50ms);
  const Time due = faults->NextDue();
  EXPECT_EQ(Call("/faults/stall", R"({"seconds":1})").status, 1);  // within the longer one
  EXPECT_EQ(faults->NextDue(), due);
  now = due;
  faults->Step(now);
  EXPECT_EQ(faults->NextDue(), now + 5s);
}

TEST_F(SessionCoreTest, LogTellsWhichRequestWasCutOrWhoseAnswerIsDestroyed) {
  std::string lines;
  log = Log(LogLevel::Debug, [&](std::string_view line) { lines += line; });
  const std::pair<const char*, const char*> faultsAndFates[] = {
      {"cut_every_requests=1", "tester read /res -> cut on purpose\n"},
      {"lose=1", "tester read /res -> 1, lost on purpose\n"},
      {"garbage=1", "tester read /res -> 1, garbled on purpose\n"},
      {"truncate=1", "tester read /res -> 1, cut short on purpose\n"}};
  for (const auto& [fault, fate] : faultsAndFates) {
    Restart({fault});
    lines.clear();
    Ask(R"({"id":1,"method":"read","uri":"/res"})");
    EXPECT_NE(lines.find(fate), std::string::npos) << lines;
    std::string restFate = fate;
    restFate.replace(restFate.find("read"), 4, "GET");
    if (const auto status = restFate.find("> 1"); status != std::string::npos) {
      restFate.replace(status, 3, "> 200");
    }
    RestDoor(*sensor, *faults, limits, log).Handle({"GET", "/vyrn/v1/resources/res", ""}, "tester", now);
    EXPECT_NE(lines.find(restFate), std::string::npos) << lines;
  }
}

TEST_F(SessionCoreTest, RefusedStartIsBusy) {
  Restart({"refuse_start=true"});
  faults->Install(*sensor, now);
  EXPECT_EQ(Json(AskOne(R"({"id":1,"method":"call","uri":"/system/start"})")).At("status").ToString(),
            "-503");  // though it runs
  EXPECT_TRUE(sensor->Running());
  AskOne(R"({"id":2,"method":"call","uri":"/system/stop"})");
  EXPECT_EQ(Json(AskOne(R"({"id":3,"method":"call","uri":"/system/start"})")).At("status").ToString(),
            "-503");
}

TEST_F(SessionCoreTest, SlowCallsOfAFloodAreBounded) {
  std::string last;
  for (int i = 0; i < 1001; ++i) {
    const auto texts = Ask(R"({"id":1,"method":"call","uri":"/slowset"})");
    last = texts.empty() ? "" : texts.back();
  }
  EXPECT_EQ(Json(last).At("status").ToString(), "-503");
  now += 50ms;
  core->Step(now);
  sensor->Step(now);
  EXPECT_EQ(outlet.Take().size(), 1000U);
  EXPECT_TRUE(Ask(R"({"id":2,"method":"call","uri":"/slowset"})").empty());  // there is room again
}

TEST_F(SessionCoreTest, DelayedAnswersOfAFloodAreBounded) {
  limits.maxQueue = 10000;
  Restart({"latency_ms=60000"});
  for (int i = 0; i < 1000 && !outlet.cut; ++i) {
    Ask(R"({"id":1,"method":"read","uri":"/res"})");
  }
  EXPECT_TRUE(outlet.cut);
}

}  // namespace
}  // namespace ZoSensor
