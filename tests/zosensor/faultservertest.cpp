// Each fault, seen once on the wire.
#include <gtest/gtest.h>

#include <string>

#include <fmt/format.h>
#include <boost/asio/io_context.hpp>

#include "tests/zosensor/serverfixture.h"
#include "tools/zosensor/gatedsocket.h"

namespace ZoSensor {
namespace {

using namespace std::chrono_literals;
using Faults = ServerFixture;

constexpr const char* ReadRes = R"({"id":1,"method":"read","uri":"/res"})";
constexpr const char* ReadFaults = R"({"id":99,"method":"read","uri":"/faults"})";

TEST_F(Faults, LatencyDelaysAnswers) {
  Start({"latency_ms=200"});
  RawClient client(port);
  const ZoTest::Stopwatch watch;
  client.Ask(ReadRes);
  EXPECT_GE(watch.Elapsed(), 200ms);
  const ZoTest::Stopwatch restWatch;
  EXPECT_EQ(Rest("GET", "/res").status, 200U);
  EXPECT_GE(restWatch.Elapsed(), 200ms);
}

TEST_F(Faults, LostAnswersNeverCome) {
  Start({"lose=1"});
  RawClient client(port);
  client.Send(ReadRes);
  client.Send(ReadFaults);
  const auto text = client.Receive();
  ASSERT_TRUE(text);
  EXPECT_EQ(ZoJson::ParseString(*text).At("id").ToString(), "99");
  EXPECT_EQ(Rest("GET", "/res").status, 0U);
}

TEST_F(Faults, ErrorsBearTheirStatus) {
  Start({"error=1", "error_status=-503"});
  RawClient client(port);
  EXPECT_EQ(StatusOf(client.Ask(ReadRes)), -503);
  EXPECT_EQ(Rest("GET", "/res").status, 503U);
}

TEST_F(Faults, ConnectionIsCutAfterSoManyRequests) {
  Start({"cut_every_requests=2"});
  RawClient client(port);
  client.Ask(ReadRes);
  client.Send(ReadRes);
  EXPECT_FALSE(client.Receive());
  EXPECT_FALSE(client.TimedOut());
  EXPECT_EQ(client.CloseCode(), 0U);
}

TEST_F(Faults, ConnectionsAreCutByTheClockAndOnCommand) {
  Start();
  RawClient client(port);
  EXPECT_EQ(Rest("PATCH", "/faults", R"({"cut_every_s":0.1})").status, 200U);
  EXPECT_FALSE(client.Receive());
  EXPECT_FALSE(client.TimedOut());
  while (Rest("POST", "/faults/reset").status != 200U) {  // its own connection may be cut as well
  }
  RawClient second(port);
  second.Ask(ReadRes);
  EXPECT_EQ(Rest("POST", "/faults/cut").status, 200U);
  EXPECT_FALSE(second.Receive());
  EXPECT_FALSE(second.TimedOut());
}

TEST_F(Faults, StalledSensorKeepsConnectionsAndSaysNothing) {
  Start();
  RawClient client(port);
  client.Ask(R"({"id":1,"method":"startStream","uri":"/wave"})");
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":2,"method":"call","uri":"/faults/stall","payload":{"seconds":1}})")),
            1);
  // Pushes go on for a moment, then there is a gap of about a second, then they come again.
  ZoTest::Clock::duration longest{};
  for (int i = 0; i < 200 && longest < 500ms; ++i) {
    const ZoTest::Stopwatch watch;
    ASSERT_TRUE(client.Receive()) << i;
    longest = std::max(longest, watch.Elapsed());
  }
  EXPECT_GE(longest, 500ms);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":3,"method":"read","uri":"/res"})")), 1);
}

TEST_F(Faults, StalledSensorAnswersNoPing) {
  Start();
  RawClient client(port);
  EXPECT_EQ(Rest("POST", "/faults/stall", R"({"seconds":2})").status, 200U);
  const ZoTest::Deadline deadline;
  bool stalled = false;
  int unanswered = 0;
  while (!stalled && !deadline.Expired()) {
    ASSERT_TRUE(client.Ping() && client.Send(ReadRes));
    ++unanswered;
    const bool answered = client.Receive(500ms).has_value();
    unanswered -= answered ? 1 : 0;
    stalled = !answered && client.TimedOut() && !client.PongSeen();
  }
  EXPECT_TRUE(stalled);
  for (; unanswered > 0; --unanswered) {
    EXPECT_TRUE(client.Receive());
  }
  EXPECT_TRUE(client.PongSeen());
}

TEST(StallGate, ShortStallDoesNotEndALongerOne) {
  boost::asio::io_context io;
  StallGate gate(io);
  EXPECT_FALSE(gate.Closed());
  gate.Close(1h);
  gate.Close(0s);
  EXPECT_TRUE(gate.Closed());
  gate.Open();
  EXPECT_FALSE(gate.Closed());
}

TEST_F(Faults, StallAfterSoManyRequestsDelaysTheAnswer) {
  Start({"stall_every_requests=3", "stall_s=0.5"});
  RawClient client(port);
  client.Ask(ReadRes);
  client.Ask(ReadRes);
  const ZoTest::Stopwatch watch;
  client.Ask(ReadRes);
  EXPECT_GE(watch.Elapsed(), 450ms);
}

TEST_F(Faults, StoppingIsNotHeldUpByAStall) {
  Start();
  RawClient client(port);
  EXPECT_EQ(Rest("POST", "/faults/stall", R"({"seconds":3600})").status, 200U);
  client.Send(ReadRes);
  const ZoTest::Stopwatch watch;
  Stop();
  EXPECT_LT(watch.Elapsed(), 20s);
}

TEST_F(Faults, GarbageIsNoAnswer) {
  Start({"garbage=1"});
  int ended = 0;
  int messages = 0;
  for (int i = 0; i < 40; ++i) {
    RawClient client(port);
    ASSERT_TRUE(client.Send(ReadRes));
    if (const auto text = client.Receive()) {
      ++messages;
      EXPECT_EQ(text->find("\"status\""), std::string::npos) << *text;
    } else {
      EXPECT_FALSE(client.TimedOut());
      ++ended;  // the frame itself was wrong, or its text was no UTF-8
    }
  }
  EXPECT_GT(messages, 0);
  EXPECT_GT(ended, 0);
  EXPECT_EQ(Rest("GET", "/res").status, 0U);
}

TEST_F(Faults, TruncatedAnswerEndsTheConnection) {
  Start({"truncate=1"});
  RawClient client(port);
  client.Send(ReadRes);
  EXPECT_FALSE(client.Receive());
  EXPECT_FALSE(client.TimedOut());
  EXPECT_EQ(Rest("GET", "/res").status, 0U);
}

TEST_F(Faults, DuplicatedAndReorderedAnswers) {
  Start({"duplicate=1"});
  RawClient client(port);
  client.Send(ReadRes);
  const auto first = client.Receive();
  const auto second = client.Receive();
  ASSERT_TRUE(first && second);
  EXPECT_EQ(*first, *second);
  client.Ask(R"({"id":2,"method":"update","uri":"/faults","payload":{"duplicate":0,"reorder":1}})");
  client.Send(R"({"id":3,"method":"read","uri":"/res"})");
  client.Send(R"({"id":4,"method":"read","uri":"/wave"})");
  const auto overtaking = client.Receive();
  const auto overtaken = client.Receive();
  ASSERT_TRUE(overtaking && overtaken);
  EXPECT_EQ(ZoJson::ParseString(*overtaking).At("id").ToString(), "4");
  EXPECT_EQ(ZoJson::ParseString(*overtaken).At("id").ToString(), "3");
}

TEST_F(Faults, MutedPushesAndRefusedStart) {
  Start({"mute_pushes=true", "refuse_start=true"});
  RawClient client(port);
  client.Ask(R"({"id":1,"method":"sub","uri":"*"})");
  client.Ask(R"({"id":2,"method":"update","uri":"/res","payload":{"v":2}})");
  client.Send(ReadFaults);
  const auto text = client.Receive();
  ASSERT_TRUE(text);
  EXPECT_EQ(ZoJson::ParseString(*text).At("id").ToString(), "99");  // and no push before it
  client.Ask(R"({"id":3,"method":"call","uri":"/system/stop"})");
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":4,"method":"call","uri":"/system/start"})")), -503);
}

TEST_F(Faults, OneMuteResourceAmongHealthyOnes) {
  Start({"lose=1", "only=/silent"});
  RawClient client(port);
  client.Send(R"({"id":1,"method":"read","uri":"/silent"})");
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":2,"method":"read","uri":"/res"})")), 1);
}

}  // namespace
}  // namespace ZoSensor
