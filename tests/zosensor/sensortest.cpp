#include "tools/zosensor/sensor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include <fmt/format.h>

#include "tests/zosensor/modelfixture.h"

namespace ZoSensor {
namespace {

using namespace std::chrono_literals;

constexpr const char* Plant = R"({
  "name": "plant",
  "resources": {
    "/set": {"content": {"v": 10.0, "n": 3, "on": true}, "writable": true, "integers": ["/n"]},
    "/wave": {"rate_hz": 10, "content": {"count": 0, "limit": 5}, "writable": ["/limit"],
              "waves": {"/count": {"wave": "counter"}}},
    "/wave/sub": {"content": {"x": 1}},
    "/follower": {"rate_hz": 100, "content": {"v": 0.0},
                  "waves": {"/v": {"wave": "follow", "source": "/set", "at": "/v", "lag_s": 1}}},
    "/silent": {"stream": false, "content": {"x": 1}, "writable": true},
    "/empty": {"content": {}},
    "/method": {"call": {"result": {"done": true}, "set": {"/set": {"v": 1.0}, "/silent": {"x": 2}}, "delay_ms": 20}},
    "/fails": {"call": {"set": {"/silent": {"x": 9}, "/set": {"nothing": 1}}}},
    "/into": {"call": {"merge_into": "/set"}},
    "/echo": {"call": {"echo": true}, "content": {"calls": 1}}
  }
})";

class SensorTest : public ModelFixture {
 protected:
  SensorTest() { Start(Plant); }
};

TEST_F(SensorTest, ReadGivesTheContentOrNotFound) {
  EXPECT_EQ(Content("/wave/sub").ToString(), R"({"x":1})");
  EXPECT_EQ(Read("/none").status, -404);
  EXPECT_EQ(Read("/wave/").status, -404);
  EXPECT_EQ(Read("/method").status, -404);
}

TEST_F(SensorTest, RootListsAllResourcesSorted) {
  EXPECT_EQ(
      Content("/").ToString(),
      R"({"resources":["/","/echo","/empty","/fails","/follower","/into","/method","/set","/silent","/system",)"
      R"("/system/start","/system/stop","/wave","/wave/sub"]})");
}

TEST_F(SensorTest, CreatedResourceCanBeReadWrittenStreamedAndDeleted) {
  EXPECT_EQ(Create("/new", R"({"a":1})").status, 1);
  EXPECT_EQ(Create("/new", "1").status, -409);
  EXPECT_EQ(Create("/set", "1").status, -409);
  EXPECT_EQ(Create("/", "1").status, -409);
  EXPECT_EQ(Create("/x/*", "1").status, -400);
  EXPECT_EQ(Update("/new", R"({"a":2})").status, 1);
  EXPECT_EQ(Content("/new").ToString(), R"({"a":2})");
  EXPECT_EQ(sensor->StartStream(watcher, "/new", now).status, 1);
  EXPECT_EQ(sensor->Delete("/new", now).status, 1);
  EXPECT_EQ(sensor->Delete("/new", now).status, -404);
  EXPECT_EQ(Read("/new").status, -404);
}

TEST_F(SensorTest, ResourcesAreLimitedInNumber) {
  limits.maxResources = sensor->ResourceCount() + 1;
  EXPECT_EQ(Create("/one", "1").status, 1);
  EXPECT_EQ(Create("/two", "1").status, -503);
}

TEST_F(SensorTest, UpdateMergesOrRefusesWithItsReason) {
  EXPECT_EQ(Update("/set", R"({"v":11})").status, 1);
  EXPECT_EQ(Update("/set", R"({"v":"x"})").status, -422);
  EXPECT_EQ(Update("/set", R"({"n":1.5})").status, -422);
  EXPECT_EQ(Update("/set", R"({"w":1})").status, -404);
  EXPECT_EQ(Update("/none", R"({"w":1})").status, -404);
  EXPECT_EQ(Update("/wave", R"({"count":1})").status, -405);
  EXPECT_EQ(Update("/wave", R"({"limit":6})").status, 1);
  EXPECT_EQ(Update("/wave/sub", R"({"x":2})").status, -405);
  EXPECT_EQ(Update("/system", R"({"state":0})").status, -405);
  EXPECT_EQ(Update("/", "{}").status, -405);
  EXPECT_EQ(Update("/method", "{}").status, -405);
  EXPECT_EQ(Content("/set").ToString(), R"({"v":11,"n":3,"on":true})");
  EXPECT_FALSE(Update("/set", R"({"v":"x"})").error.empty());
}

TEST_F(ModelFixture, MethodWithoutContentIsNotUpdatedEvenWhereItSaysWritable) {
  Start(R"({"resources": {"/method": {"call": {}, "writable": true}}})");
  EXPECT_EQ(Update("/method", "1").status, -405);
  EXPECT_EQ(Update("/method", "{}").status, -405);
  EXPECT_EQ(Read("/method").status, -404);
}

TEST_F(SensorTest, ContentDoesNotOutgrowWhatAMessageHolds) {
  limits.maxContent = 20;
  Create("/text", R"({"v":""})");
  EXPECT_EQ(Update("/text", R"({"v":"123456789012"})").status, 1);  // 20 bytes
  Subscribe("/text");
  watcher.Take();
  const Answer refusal = Update("/text", R"({"v":"1234567890123"})");
  EXPECT_EQ(refusal.status, -413);
  EXPECT_FALSE(refusal.error.empty());
  EXPECT_EQ(Content("/text").ToString(), R"({"v":"123456789012"})");
  EXPECT_TRUE(watcher.items.empty());
  EXPECT_EQ(Update("/text", R"({"v":"1"})").status, 1);
  EXPECT_EQ(Content("/text").ToString(), R"({"v":"1"})");
}

TEST_F(SensorTest, CallThatWouldMakeAContentTooLargeChangesNothing) {
  const std::string before = Content("/set").ToString();
  limits.maxContent = before.size();
  EXPECT_EQ(Call("/into", R"({"v":1.25e-100})").status, -413);
  EXPECT_EQ(Content("/set").ToString(), before);
}

TEST_F(SensorTest, CreatedContentIsNoLargerThanWhatAMessageHolds) {
  limits.maxContent = 20;
  EXPECT_EQ(Create("/text", R"({"v":"1234567890123"})").status, -413);
  EXPECT_EQ(Read("/text").status, -404);
  EXPECT_EQ(Create("/text", R"({"v":"123456789012"})").status, 1);
  limits.maxContent = 17;
  EXPECT_EQ(Create("/grows", "1e15").status, -413) << "it is printed as 1000000000000000.0";
}

TEST_F(SensorTest, CallAnswersNoMoreThanAMessageHolds) {
  limits.maxContent = 20;
  EXPECT_EQ(Call("/echo", R"("123456789012345678")").status, 1);
  EXPECT_EQ(Call("/echo", R"("1234567890123456789")").status, -413);
}

TEST_F(SensorTest, ContentHoldsNoMoreValuesThanAMessageMay) {
  limits.maxValues = 7;
  EXPECT_EQ(Create("/list", "[1,2,3,4,5,6,7]").status, -413);
  EXPECT_EQ(Create("/list", R"({"a":null,"b":null})").status, 1);
  EXPECT_EQ(Update("/list", R"({"a":[1,2]})").status, 1);
  const std::string before = Content("/list").ToString();
  EXPECT_EQ(Update("/list", R"({"b":[1,2,3]})").status, -413);
  EXPECT_EQ(Content("/list").ToString(), before);
  EXPECT_EQ(Update("/list", R"({"b":[1,2]})").status, 1);  // seven
}

TEST_F(SensorTest, SystemResourcesStay) {
  for (const char* path : {"/", "/system", "/system/start", "/system/stop"}) {
    EXPECT_EQ(sensor->Delete(path, now).status, -405) << path;
  }
}

TEST_F(SensorTest, CallAnswersItsResultAndChangesWhatItSays) {
  Answer answer = Call("/method");
  EXPECT_EQ(answer.status, 1);
  EXPECT_EQ(*answer.payload, R"({"done":true})");
  EXPECT_EQ(answer.delay, 20ms);
  sensor->CompleteAt(now + answer.delay, answer);
  Pass(19ms);
  EXPECT_EQ(Content("/silent").At("x").ToString(), "1");
  Pass(1ms);
  EXPECT_EQ(Content("/set").At("v").ToString(), "1.0");
  EXPECT_EQ(Content("/silent").At("x").ToString(), "2");
  EXPECT_EQ(*Call("/echo", "[1,2]").payload, "[1,2]");
  EXPECT_EQ(Call("/into", R"({"v":3})").status, 1);
  EXPECT_EQ(Content("/set").At("v").ToString(), "3");
  EXPECT_EQ(Call("/into", R"({"v":"x"})").status, -422);
  EXPECT_EQ(Call("/none").status, -404);
  EXPECT_EQ(Call("/set").status, -405);
}

TEST_F(SensorTest, SlowCallChangesNothingWhenItsTargetHasGone) {
  Answer answer = Call("/method");
  sensor->CompleteAt(now + answer.delay, answer);
  EXPECT_EQ(sensor->Delete("/silent", now).status, 1);
  const std::string before = Content("/set").ToString();
  Pass(20ms);
  EXPECT_EQ(Content("/set").ToString(), before);
}

TEST_F(SensorTest, CallThatFailsChangesNothing) {
  EXPECT_EQ(Call("/fails").status, -404);
  EXPECT_EQ(Content("/silent").At("x").ToString(), "1");
}

TEST_F(SensorTest, StartAndStopAnswerTheState) {
  EXPECT_EQ(*Call("/system/stop").payload, R"({"state":0})");
  EXPECT_FALSE(sensor->Running());
  EXPECT_EQ(*Call("/system/stop").payload, R"({"state":0})");
  EXPECT_EQ(Content("/system").At("state").ToString(), "0");
  EXPECT_EQ(*Call("/system/start").payload, R"({"state":1})");
  EXPECT_TRUE(sensor->Running());
}

TEST_F(SensorTest, SystemTellsNameVersionAndUptime) {
  Pass(1500ms);
  const ZoJson system = Content("/system");
  EXPECT_EQ(system.At("name").ToString(), R"("plant")");
  EXPECT_TRUE(system.At("version").IsString());
  EXPECT_EQ(system.At("uptime_ms").ToString(), "1500");
  EXPECT_EQ(system.At("state").ToString(), "1");
}

TEST_F(SensorTest, MeasurementsStandStillWhileStopped) {
  Pass(1050ms);
  EXPECT_EQ(Content("/wave").At("count").ToString(), "10");
  Call("/system/stop");
  Pass(5s);
  EXPECT_EQ(Content("/wave").At("count").ToString(), "10");
  Call("/system/start");
  Pass(200ms);
  EXPECT_EQ(Content("/wave").At("count").ToString(), "12");
}

TEST_F(SensorTest, SubscriptionStartsWithTheContentsOfWhatMatches) {
  EXPECT_EQ(Subscribe("/wave/*").status, 1);
  const auto items = watcher.Take();
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].message.ToString(),
            R"({"event":"notification","uri":"/wave","payload":{"count":0,"limit":5}})");
  EXPECT_EQ(items[1].message.ToString(), R"({"event":"notification","uri":"/wave/sub","payload":{"x":1}})");
}

TEST_F(SensorTest, SubscriptionOfEverythingSparesMethods) {
  Subscribe("*");
  EXPECT_EQ(watcher.Uris(), (std::vector<std::string>{"/", "/echo", "/empty", "/follower", "/set", "/silent",
                                                      "/system", "/wave", "/wave/sub"}));
}

TEST_F(SensorTest, EverythingBelowTheRootIsEverything) {
  Subscribe("/*");
  const std::vector<std::string> everything = watcher.Uris();
  watcher.Take();
  EXPECT_EQ(Subscribe("//*").status, 1);
  EXPECT_EQ(watcher.Uris(), everything);
  watcher.Take();
  Update("/set", R"({"v":2})");
  EXPECT_EQ(watcher.Uris(), std::vector<std::string>{"/set"});
}

TEST_F(SensorTest, SubscribingAgainChangesNothing) {
  Subscribe("/set");
  EXPECT_EQ(Subscribe("/set").status, 1);
  EXPECT_EQ(watcher.Take().size(), 1U);
  EXPECT_EQ(sensor->Unsubscribe(watcher, "/set").status, 1);
  EXPECT_EQ(sensor->Unsubscribe(watcher, "/set").status, -404);
  Update("/set", R"({"v":0})");
  EXPECT_TRUE(watcher.items.empty());
}

TEST_F(SensorTest, BadPatternIsMalformed) {
  EXPECT_EQ(Subscribe("/a*").status, -400);
  EXPECT_EQ(sensor->Unsubscribe(watcher, "/a*").status, -404);
}

TEST_F(SensorTest, ChangeIsNotifiedOnceAlsoWhenSeveralPatternsMatch) {
  for (const char* pattern : {"/set", "/set/*", "*", "/*"}) {
    Subscribe(pattern);
  }
  watcher.Take();
  Update("/set", R"({"v":42})");
  ASSERT_EQ(watcher.items.size(), 1U);
  EXPECT_EQ(watcher.items[0].message.ToString(),
            R"({"event":"notification","uri":"/set","payload":{"v":42,"n":3,"on":true}})");
  EXPECT_EQ(watcher.items[0].kind, PushKind::Notification);
}

TEST_F(SensorTest, OneOfTwoBareStarsEndsAlone) {
  Subscribe("*");
  Subscribe("/*");
  sensor->Unsubscribe(watcher, "*");
  watcher.Take();
  Update("/set", R"({"v":42})");
  EXPECT_EQ(watcher.Take().size(), 1U);
  sensor->Unsubscribe(watcher, "/*");
  Update("/set", R"({"v":43})");
  EXPECT_TRUE(watcher.items.empty());
}

TEST_F(SensorTest, EachSpellingIsASubscriptionOfItsOwn) {
  Subscribe("/set");
  Subscribe("set");
  Subscribe("set/*");
  watcher.Take();
  Update("/set", R"({"v":42})");
  EXPECT_EQ(watcher.Uris(), (std::vector<std::string>{"set", "/set"}));
  watcher.Take();
  EXPECT_EQ(sensor->Unsubscribe(watcher, "/set").status, 1);
  Update("/set", R"({"v":43})");
  EXPECT_EQ(watcher.Uris(), std::vector<std::string>{"set"});
}

TEST_F(SensorTest, UpdateToTheSameContentIsNoChange) {
  Subscribe("/set");
  watcher.Take();
  Update("/set", R"({"v":10.0})");
  EXPECT_TRUE(watcher.items.empty());
}

TEST_F(SensorTest, CreationAndDeletionAreNotified) {
  Subscribe("/new/*");
  Subscribe("/");
  watcher.Take();
  Create("/new/one", R"({"a":1})");
  Pass(0ms);
  auto items = watcher.Take();
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].message.ToString(), R"({"event":"notification","uri":"/new/one","payload":{"a":1}})");
  EXPECT_EQ(items[1].uri, "/");
  sensor->Delete("/new/one", now);
  Pass(100ms);
  items = watcher.Take();
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].message.ToString(), R"({"event":"notification","uri":"/new/one","payload":null})");
  EXPECT_EQ(items[1].message.At("payload").ToString(), Content("/").ToString());
}

TEST_F(SensorTest, ManyCreationsAndDeletionsAreToldInOneList) {
  Subscribe("/");
  watcher.Take();
  for (int i = 0; i < 1000; ++i) {
    Create(fmt::format("/new/{}", i), "1");
  }
  EXPECT_TRUE(watcher.items.empty());
  Pass(0ms);
  auto items = watcher.Take();
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].message.At("payload").ToString(), Content("/").ToString());
  // Those that follow at once wait together, too, and are told in the end.
  for (int i = 0; i < 100; ++i) {
    sensor->Delete(fmt::format("/new/{}", i), now);
    Pass(100us);
  }
  EXPECT_TRUE(watcher.items.empty());
  Pass(90ms);
  items = watcher.Take();
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].message.At("payload/resources").Size(), sensor->ResourceCount());
  Pass(1s);
  EXPECT_TRUE(watcher.items.empty());
}

TEST_F(ModelFixture, ManyResourcesThatAppearAtOnceAreToldInOneList) {
  Start(R"({"resources": {"/r{0001..2000}": {"content": 1, "appears_after_s": 1, "vanishes_after_s": 2}}})");
  Subscribe("*");
  watcher.Take();
  Pass(1s);
  EXPECT_EQ(watcher.items.size(), 2001U);
  ASSERT_FALSE(watcher.items.empty());
  EXPECT_EQ(watcher.items.back().uri, "/");
  EXPECT_EQ(watcher.items.back().message.At("payload").ToString(), Content("/").ToString());
  watcher.Take();
  Pass(1s);
  EXPECT_EQ(watcher.Take().size(), 2001U);
}

TEST_F(SensorTest, MeasurementIsNotifiedAtEachOfItsChanges) {
  Subscribe("/wave");
  watcher.Take();
  Pass(1s);
  const auto items = watcher.Take();
  ASSERT_EQ(items.size(), 10U);
  EXPECT_EQ(items[9].message.At("payload/count").ToString(), "10");
}

TEST_F(SensorTest, ReadBetweenTwoTicksHidesNoChangeFromSubscribers) {
  Subscribe("/wave");
  watcher.Take();
  now += 150ms;  // past a tick that has not been taken yet
  EXPECT_EQ(Content("/wave").At("count").ToString(), "1");
  EXPECT_EQ(watcher.Take().size(), 1U);
  sensor->Step(now);
  EXPECT_TRUE(watcher.Take().empty());
}

TEST_F(SensorTest, StateChangeIsNotifiedTheUptimeIsNot) {
  Subscribe("/system");
  watcher.Take();
  Pass(3s);
  EXPECT_TRUE(watcher.items.empty());
  Call("/system/stop");
  Call("/system/stop");
  ASSERT_EQ(watcher.items.size(), 1U);
  EXPECT_EQ(watcher.items[0].message.At("payload/state").ToString(), "0");
}

TEST_F(SensorTest, StreamAnswersItsContentAndPushesAtItsRate) {
  const Answer answer = sensor->StartStream(watcher, "/wave", now);
  EXPECT_EQ(answer.status, 1);
  EXPECT_EQ(*answer.payload, R"({"count":0,"limit":5})");
  EXPECT_TRUE(watcher.items.empty());
  Pass(1s);
  const auto items = watcher.Take();
  ASSERT_EQ(items.size(), 10U);
  EXPECT_EQ(items[0].message.ToString(),
            R"({"event":"stream","uri":"/wave","payload":{"count":1,"limit":5}})");
  EXPECT_EQ(items[9].message.At("payload/count").ToString(), "10");
}

TEST_F(SensorTest, StreamIsRefusedForWhatCannotFlow) {
  EXPECT_EQ(sensor->StartStream(watcher, "/none", now).status, -404);
  EXPECT_EQ(sensor->StartStream(watcher, "/silent", now).status, -405);
  EXPECT_EQ(sensor->StartStream(watcher, "/empty", now).status, -405);
  EXPECT_EQ(sensor->StartStream(watcher, "/method", now).status, -405);
  EXPECT_EQ(sensor->StartStream(watcher, "/", now).status, -405);
}

TEST_F(SensorTest, StreamingAgainChangesNothingAndStopsOnce) {
  sensor->StartStream(watcher, "/wave", now);
  EXPECT_EQ(sensor->StartStream(watcher, "/wave", now).status, 1);
  Pass(100ms);
  EXPECT_EQ(watcher.Take().size(), 1U);
  EXPECT_FALSE(sensor->StopStream(watcher, "/wave").bare);
  EXPECT_TRUE(sensor->StopStream(watcher, "/wave").bare);
  EXPECT_TRUE(sensor->StopStream(watcher, "/none").bare);
  Pass(1s);
  EXPECT_TRUE(watcher.items.empty());
}

TEST_F(SensorTest, StreamingAgainSucceedsAlsoWhenTheContentHasBecomeEmpty) {
  Create("/list", "[1]");
  EXPECT_EQ(sensor->StartStream(watcher, "/list", now).status, 1);
  EXPECT_EQ(Update("/list", "[]").status, 1);
  const Answer again = sensor->StartStream(watcher, "/list", now);
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(*again.payload, "[]");
  EXPECT_EQ(sensor->StartStream(watcher, "list", now).status, -405);  // another stream
  EXPECT_FALSE(sensor->StopStream(watcher, "/list").bare);
  EXPECT_EQ(sensor->StartStream(watcher, "/list", now).status, -405);
}

TEST_F(SensorTest, EachSpellingIsAStreamOfItsOwn) {
  sensor->StartStream(watcher, "/wave", now);
  sensor->StartStream(watcher, "wave", now);
  Pass(100ms);
  EXPECT_EQ(watcher.Uris(), (std::vector<std::string>{"/wave", "wave"}));
  watcher.Take();
  EXPECT_FALSE(sensor->StopStream(watcher, "/wave").bare);
  Pass(100ms);
  EXPECT_EQ(watcher.Uris(), std::vector<std::string>{"wave"});
}

TEST_F(SensorTest, MeasurementsFlowOnlyWhileRunningOthersAlways) {
  sensor->StartStream(watcher, "/wave", now);
  sensor->StartStream(watcher, "/wave/sub", now);  // no waveform: no measurement
  sensor->StartStream(watcher, "/system", now);
  Call("/system/stop");
  Pass(1s);
  std::size_t still = 0;
  std::size_t system = 0;
  for (const auto& item : watcher.Take()) {
    EXPECT_NE(item.uri, "/wave");
    still += item.uri == "/wave/sub" ? 1 : 0;
    system += item.uri == "/system" ? 1 : 0;
  }
  EXPECT_EQ(still, 10U);
  EXPECT_EQ(system, 1U);
  Call("/system/start");
  Pass(100ms);
  bool flows = false;
  for (const auto& item : watcher.Take()) {
    flows = flows || item.uri == "/wave";
  }
  EXPECT_TRUE(flows);
}

TEST_F(SensorTest, StreamEndsWithItsResource) {
  sensor->StartStream(watcher, "/wave", now);
  sensor->Delete("/wave", now);
  Create("/wave", R"({"a":1})");
  Pass(1s);
  EXPECT_TRUE(watcher.items.empty());
  EXPECT_TRUE(sensor->StopStream(watcher, "/wave").bare);
}

TEST_F(SensorTest, WatcherThatLeftHearsNothing) {
  sensor->StartStream(watcher, "/wave", now);
  Subscribe("*");
  Subscribe("set");
  watcher.Take();
  sensor->Leave(watcher);
  Update("/set", R"({"v":1})");
  Pass(1s);
  EXPECT_TRUE(watcher.items.empty());
}

TEST_F(SensorTest, WatchesOfASessionAreLimited) {
  limits.maxWatches = 2;
  EXPECT_EQ(Subscribe("/a").status, 1);
  EXPECT_EQ(sensor->StartStream(watcher, "/wave", now).status, 1);
  EXPECT_EQ(Subscribe("/b").status, -503);
  EXPECT_EQ(sensor->StartStream(watcher, "/set", now).status, -503);
  EXPECT_EQ(Subscribe("/a").status, 1);  // it has that one
  EXPECT_EQ(sensor->Unsubscribe(watcher, "/b").status, -404);
}

TEST_F(SensorTest, FollowerFollowsItsSetPointFromTheMomentItIsWritten) {
  Pass(1s);
  EXPECT_NEAR(Content("/follower").At("v").Get<double>(), 10 * (1 - std::exp(-1)), 0.1);
  Pass(20s);
  EXPECT_NEAR(Content("/follower").At("v").Get<double>(), 10, 1e-3);
  Pass(20s);  // nobody looks: the old target must still hold until the write
  Update("/set", R"({"v":110.0})");
  EXPECT_NEAR(Content("/follower").At("v").Get<double>(), 10, 1e-3);
  Pass(1s);
  EXPECT_NEAR(Content("/follower").At("v").Get<double>(), 10 + 100 * (1 - std::exp(-1)), 1.5);
}

TEST_F(ModelFixture, FollowerSeesItsSourceAsItIsWhoeverElseLooks) {
  Start(R"({"resources": {
    "/wave": {"rate_hz": 10, "content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
    "/chain": {"content": {"v": 0.0}, "waves": {"/v": {"wave": "follow", "source": "/wave", "at": "/n", "lag_s": 0}}},
    "/end": {"content": {"v": 0.0}, "waves": {"/v": {"wave": "follow", "source": "/chain", "at": "/v", "lag_s": 0}}},
    "/up": {"content": {"v": 0.0},
            "waves": {"/v": {"wave": "follow", "source": "/system", "at": "/uptime_ms", "lag_s": 0}}}}})");
  Pass(1s);
  EXPECT_EQ(Content("/end").At("v").ToString(), "10.0");
  EXPECT_EQ(Content("/up").At("v").ToString(), "1000.0");
  Pass(1s);
  Subscribe("/wave");
  watcher.Take();
  now += 50ms;
  EXPECT_EQ(Content("/end").At("v").ToString(), "20.0");
  now += 60ms;  // past a tick of the source that has not been taken yet
  EXPECT_EQ(Content("/end").At("v").ToString(), "21.0");
  ASSERT_EQ(watcher.items.size(), 1U) << "its subscribers hear of it";
  EXPECT_EQ(watcher.items[0].message.At("payload/n").ToString(), "21");
}

TEST_F(ModelFixture, FollowersInARingOrALongChainAreSampledOnce) {
  std::string resources = R"({"resources": {
    "/a": {"content": {"v": 0.0},
           "waves": {"/v": {"wave": "follow", "source": "/b", "at": "/v", "lag_s": 0, "offset": 1}}},
    "/b": {"content": {"v": 0.0}, "waves": {"/v": {"wave": "follow", "source": "/a", "at": "/v", "lag_s": 0}}},
    "/c0": {"content": {"v": 1.0}})";
  constexpr int Count = 20000;
  for (int i = 1; i <= Count; ++i) {
    resources += fmt::format(
        R"(,"/c{}": {{"content": {{"v": 0.0}}, "waves": {{"/v": {{"wave": "follow", "source": "/c{}", "at": "/v"}}}}}})",
        i, i - 1);
  }
  Start(resources + "}}");
  double last = Content("/a").At("v").Get<double>();
  for (int i = 0; i < 3; ++i) {
    Pass(100ms);
    const double next = Content("/a").At("v").Get<double>();
    EXPECT_EQ(next, last + 1);
    last = next;
  }
  EXPECT_EQ(Read(fmt::format("/c{}", Count)).status, 1);
}

TEST_F(SensorTest, NothingIsDueWhileNobodyWatches) {
  EXPECT_EQ(sensor->NextDue(), Never);
  sensor->StartStream(watcher, "/wave", now);
  EXPECT_EQ(sensor->NextDue(), now + 100ms);
  sensor->Leave(watcher);
  Pass(100ms);
  EXPECT_EQ(sensor->NextDue(), Never);
}

TEST_F(SensorTest, MissedTicksAreSkippedNotMadeUpFor) {
  sensor->StartStream(watcher, "/wave", now);
  now += 10s;
  sensor->Step(now);
  ASSERT_EQ(watcher.items.size(), 1U);
  EXPECT_EQ(watcher.items[0].message.At("payload/count").ToString(), "100");
  EXPECT_EQ(sensor->NextDue(), now + 100ms);
}

TEST_F(SensorTest, StartCanBeRefused) {
  Call("/system/stop");
  sensor->startObjection = [] { return std::optional<std::string>("not today"); };
  const Answer answer = Call("/system/start");
  EXPECT_EQ(answer.status, -503);
  EXPECT_EQ(answer.error, "not today");
  EXPECT_FALSE(sensor->Running());
}

TEST_F(ModelFixture, ResourcesAppearAndVanishInTheirTime) {
  Start(R"({"resources": {
    "/late": {"content": {"v": 0}, "waves": {"/v": {"wave": "counter"}}, "appears_after_s": 10},
    "/brief": {"content": {"v": 1}, "vanishes_after_s": 5}}})");
  Subscribe("*");
  watcher.Take();
  Pass(4999ms);
  EXPECT_EQ(Read("/brief").status, 1);
  EXPECT_EQ(Read("/late").status, -404);
  EXPECT_TRUE(watcher.items.empty());
  Pass(1ms);
  EXPECT_EQ(Read("/brief").status, -404);
  auto items = watcher.Take();
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].message.ToString(), R"({"event":"notification","uri":"/brief","payload":null})");
  Pass(5s);
  EXPECT_EQ(Read("/late").status, 1);
  items = watcher.Take();
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].uri, "/late");
  EXPECT_EQ(items[0].message.At("payload/v").ToString(), "100");
  Pass(100ms);
  EXPECT_EQ(watcher.Take().size(), 1U);  // it lives on
}

TEST_F(ModelFixture, ResourceOfAClientDoesNotVanishInPlaceOfThePlannedOne) {
  Start(R"({"resources": {"/brief": {"content": 1, "vanishes_after_s": 5}}})");
  Pass(1s);
  EXPECT_EQ(sensor->Delete("/brief", now).status, 1);
  EXPECT_EQ(Create("/brief", "2").status, 1);
  Pass(10s);
  EXPECT_EQ(Content("/brief").ToString(), "2");
}

TEST_F(ModelFixture, SensorMayBeginStopped) {
  Start(R"({"running": false, "resources": {}})");
  EXPECT_EQ(Content("/system").At("state").ToString(), "0");
}

TEST_F(ModelFixture, ManyResourcesAndWatchersStayIndexed) {
  Start(R"({"resources": {"/r{0001..5000}": {"content": {"v": 1}, "writable": true}}})");
  std::vector<RecordingWatcher> watchers(50);
  for (std::size_t i = 0; i < watchers.size(); ++i) {
    for (int k = 0; k < 100; ++k) {
      const std::string uri = fmt::format("/r{:04}", i * 100 + static_cast<std::size_t>(k) + 1);
      EXPECT_EQ(sensor->Subscribe(watchers[i], uri, now).status, 1);
    }
    watchers[i].Take();
  }
  Update("/r0101", R"({"v":2})");
  for (std::size_t i = 0; i < watchers.size(); ++i) {
    EXPECT_EQ(watchers[i].items.size(), i == 1 ? 1U : 0U) << i;
  }
  for (auto& each : watchers) {
    sensor->Leave(each);
  }
}

}  // namespace
}  // namespace ZoSensor
