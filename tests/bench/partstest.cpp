#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bench/zobench/checkfailed.h"
#include "bench/zobench/child.h"
#include "bench/zobench/interleave.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/references.h"
#include "bench/zobench/scriptedsensor.h"
#include "bench/zobench/sockets.h"
#include "bench/zobench/websocket.h"

namespace {

using namespace ZoBench;

TEST(ZobenchParts, BlocksTakeTurnsBackAndForthAndTheFirstRoundIsLeftOut) {
  std::string order;
  double next = 0;
  const auto costs =
      Interleave(2, {[&] { return order += 'A', next++; }, [&] { return order += 'B', next++; }});
  EXPECT_EQ(order, "ABBAAB");
  EXPECT_EQ(costs, (std::vector<std::vector<double>>{{3, 4}, {2, 5}}));
}

TEST(ZobenchParts, MeasurementsApartHandOverFiguresAndFailures) {
  EXPECT_EQ(MeasureApart([] { return std::vector<double>{1.5, 2}; }), (std::vector<double>{1.5, 2}));
  EXPECT_THROW(MeasureApart([]() -> std::vector<double> { throw CheckFailed("no"); }), CheckFailed);
}

TEST(ZobenchParts, ChildrenEndWithTheirOwner) {
  pid_t pid = 0;
  {
    const Child child([](int) { ::pause(); });
    pid = child.Pid();
    EXPECT_EQ(::kill(pid, 0), 0);
  }
  EXPECT_NE(::kill(pid, 0), 0);
}

TEST(ZobenchParts, FramesOfEveryLengthComeThroughWhole) {
  std::vector<std::size_t> sizes{0, 1, 125, 126, 65535, 65536, 1'000'000};
  Child child([&sizes](int channel) {
    for (const std::size_t size : sizes) {
      const std::string frame = Frame(Opcode::Text, std::string(size, 'x'), true);
      WriteAll(channel, frame.data(), frame.size());
    }
  });
  FrameReader reader;
  for (const std::size_t size : sizes) {
    ReceivedFrame frame;
    while (!reader.Next(frame)) {
      ASSERT_TRUE(reader.Fill(child.Channel()));
    }
    EXPECT_EQ(frame.payload, std::string(size, 'x'));
  }
}

TEST(ZobenchParts, TheScriptedSensorPushesEachStreamInEachRound) {
  const ScriptedSensor sensor([](std::string_view) { return "\"a\":1"; });
  FramesOnlyReader reader(sensor.Port(), {"/one", "/two"});
  EXPECT_EQ(sensor.Record().requests, 2U);
  sensor.BeginPush(0, FirstRound + 1, 3);
  EXPECT_EQ(reader.TakeToPing(), 6U);
  sensor.AwaitPush();
  EXPECT_NE(sensor.Record().lastRequest.find("/two"), std::string::npos);
}

TEST(ZobenchParts, TrafficIsThatOfTheConnectionsToThePort) {
  std::uint16_t port = 0;
  const Socket listener = Listen(port);
  const Socket client = Connect(port);
  const Socket server = Accept(listener);
  const Traffic before = TrafficWith(port);
  std::string bytes(100, 'x');
  WriteAll(client.File(), bytes.data(), 100);
  ReadExactly(server.File(), bytes.data(), 100);
  WriteAll(server.File(), bytes.data(), 40);  // which brings the word that the others have come
  ReadExactly(client.File(), bytes.data(), 40);
  const Traffic after = TrafficWith(port);
  EXPECT_EQ(after.sent - before.sent, 100U);
  EXPECT_EQ(after.received - before.received, 40U);
}

TEST(ZobenchParts, PingPongsTakeTime) {
  PingPong peer;
  EXPECT_GT(peer.Exchange(100, 1000, 20), 0);
  EXPECT_GT(peer.Exchange(1000, 100'000, 20), 0);
}

}  // namespace
