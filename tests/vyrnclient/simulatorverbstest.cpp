// The simulator's verbs.
#include <gmock/gmock.h>

#include "tests/vyrnclient/simulatortest.h"

namespace ZoTest {
namespace {

using SimulatorVerbs = SimulatorTest;

TEST_F(SimulatorVerbs, ReadAnswersTheUriAsPayloadAndNothingElse) {
  for (const char* uri : {"/r", "/a/b/c", "x", "", "/", "/odd ~ %20 #"}) {
    ZoJson expected;
    expected.Set("/payload", uri);
    EXPECT_EQ(simulator.Read(uri, true), expected) << uri;
  }
}

TEST_F(SimulatorVerbs, ReadDoesNotReachTheCache) {
  simulator.Read("/r", true);
  EXPECT_FALSE(simulator.Cache()->Exists("/r"));
}

TEST_F(SimulatorVerbs, CreateUpdateDeleteAndCallAnswerNothing) {
  EXPECT_TRUE(simulator.Create("/r", ZoJson::Of(1), true).Empty());
  EXPECT_TRUE(simulator.Update("/r", ZoJson::Of(1), true).Empty());
  EXPECT_TRUE(simulator.Call("/r", ZoJson::Of(1), true).Empty());
  EXPECT_TRUE(simulator.Delete("/r", true).Empty());
}

TEST_F(SimulatorVerbs, ReadOfAPlaceThatCannotBeAnswersTheUriAndChangesNothing) {
  Register("/list#/0");
  simulator.Update("/list", ZoJson("[1,2]"), true);
  for (const char* uri : {"/list/x", "list/x", "/list/-", "/list/3", "/list/-/a", "/list/01"}) {
    ZoJson expected;
    expected.Set("/payload", uri);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(simulator.Read(uri, true), expected) << uri;
    }
  }
  Pass();
  EXPECT_EQ(Cached("/list"), ZoJson("[2,2]"));
}

TEST_F(SimulatorVerbs, ReadOfAnElementReplacesIt) {
  Register("/list#/0");
  simulator.Update("/list", ZoJson("[1,2]"), true);
  simulator.Read("/list/1", true);
  simulator.Read("/list/2", true);  // the next one
  Pass();
  EXPECT_EQ(Cached("/list"), ZoJson(R"([2,"/list/1","/list/2"])"));
}

TEST_F(SimulatorVerbs, WhatCannotBePutBelowAnArrayIsDroppedWithoutAWord) {
  Register("/list#/0");
  simulator.Update("/list", ZoJson("[1,2]"), true);
  for (const char* uri : {"/list/x", "/list/3", "/list/x/y"}) {
    EXPECT_TRUE(simulator.Create(uri, {}, true).Empty());
    EXPECT_TRUE(simulator.Update(uri, ZoJson::Of(1), true).Empty());
    EXPECT_TRUE(simulator.Delete(uri, true).Empty());
    EXPECT_TRUE(simulator.Call(uri, ZoJson::Of(1), true).Empty());
  }
  Pass();
  EXPECT_EQ(Cached("/list"), ZoJson("[2,2]"));
  EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level > 3; }), 0u);
}

TEST_F(SimulatorVerbs, PushVerbsAnswerAlike) {
  const ZoJson acknowledged(R"({"status":1})");
  EXPECT_EQ(simulator.Subscribe("/r", true), acknowledged);
  EXPECT_EQ(simulator.Unsubscribe("/r", true), acknowledged);
  EXPECT_EQ(simulator.Stream("/r", true), acknowledged);
  EXPECT_EQ(simulator.StopStream("/r", true), acknowledged);
  EXPECT_EQ(simulator.Stream("/r", true).At("/status").Get<int>(), 1);
}

TEST_F(SimulatorVerbs, PushVerbsChangeNothing) {
  Register("/int#/v");
  simulator.Update("/int", ZoJson(R"({"v":41})"), true);
  simulator.Subscribe("/int", true);
  simulator.Unsubscribe("/int", true);
  simulator.Stream("/int", true);
  simulator.StopStream("/int", true);
  simulator.Call("/int", ZoJson::Of(1), true);
  Pass();
  EXPECT_EQ(Cached("/int").At("/v"), ZoJson::Of(42));
}

TEST_F(SimulatorVerbs, NoneTellsAnything) {
  for (const bool logFailure : {false, true}) {
    simulator.Read("/r", logFailure);
    simulator.Create("/r", {}, logFailure);
    simulator.Update("/r", {}, logFailure);
    simulator.Call("/r", {}, logFailure);
    simulator.Delete("/r", logFailure);
    simulator.Subscribe("/r", logFailure);
    simulator.Unsubscribe("/r", logFailure);
    simulator.Stream("/r", logFailure);
    simulator.StopStream("/r", logFailure);
  }
  simulator.Start();
  simulator.Stop();
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(SimulatorVerbs, ItIsAlwaysConnected) {
  EXPECT_TRUE(simulator.IsConnected());
  simulator.Stop();
  EXPECT_TRUE(simulator.IsConnected());
}

TEST_F(SimulatorVerbs, ItRunsFromStartToStop) {
  EXPECT_FALSE(simulator.IsRunning());
  simulator.Start();
  EXPECT_TRUE(simulator.IsRunning());
  simulator.Start();
  EXPECT_TRUE(simulator.IsRunning());
  simulator.Stop();
  EXPECT_FALSE(simulator.IsRunning());
}

TEST_F(SimulatorVerbs, ItHandsOutItsMembers) {
  EXPECT_EQ(simulator.GetLogger(), logger);
  EXPECT_NE(simulator.PLC(), nullptr);
  EXPECT_EQ(simulator.PLC(), simulator.PLC());
  EXPECT_NE(simulator.Cache(), nullptr);
  EXPECT_EQ(simulator.Cache(), simulator.Cache());
}

}  // namespace
}  // namespace ZoTest
