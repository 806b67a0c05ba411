// The link over a healthy connection: connecting, requests, pushes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <future>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/sdk/linkfixture.h"
#include "tests/support/boundsocket.h"
#include "zovyrnsdk/zorequesterror.h"

namespace ZoTest {
namespace {

using testing::HasSubstr;

std::string ConnectFailure(ZoSystem& system) {
  try {
    system.Connect();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return std::string();
}

TEST_F(LinkTest, ConnectsAsksForTheSubprotocolAndTarget) {
  std::promise<std::string> upgrade;
  const EndFirst endFirst(*this);
  sensor.SetScript([&](FakePeer& peer) {
    peer.ReadUpgrade();
    upgrade.set_value(peer.UpgradeRequest());
    peer.AcceptUpgrade();
    sensor.ServeSession(peer);
  });
  EXPECT_FALSE(system.IsConnected());
  system.Connect();
  EXPECT_TRUE(system.IsConnected());
  const std::string text = upgrade.get_future().get();
  EXPECT_TRUE(text.starts_with("GET /vyrn/v1 HTTP/1.1\r\n")) << text;
  EXPECT_THAT(text, HasSubstr("Sec-WebSocket-Protocol: vyrn.v1.json\r\n"));
  EXPECT_THAT(text, HasSubstr("Host: 127.0.0.1:" + std::to_string(sensor.Port()) + "\r\n"));
  system.Connect();
  EXPECT_EQ(sensor.ConnectionCount(), 1U) << "connecting a connected system does nothing";
}

// A zone means nothing to the peer.
TEST(LinkOverIpv6, NamesTheSensorInBracketsAndWithoutAZone) {
  if (!HasLoopback(AF_INET6)) {
    GTEST_SKIP() << "this machine has no ::1";
  }
  for (const char* const text : {"::1", "::1%1"}) {
    std::promise<std::string> upgrade;
    FakeSensor sensor(AF_INET6);
    sensor.SetScript([&](FakePeer& peer) {
      peer.ReadUpgrade();
      upgrade.set_value(peer.UpgradeRequest());
      peer.AcceptUpgrade();
      sensor.ServeSession(peer);
    });
    qIpAddress address;
    ASSERT_EQ(qIpAddress_Parse(text, &address), qStatus_Success) << text;
    ZoSystem system(address, sensor.Port());
    ASSERT_EQ(ConnectFailure(system), "") << text;
    EXPECT_THAT(upgrade.get_future().get(),
                HasSubstr("\r\nHost: [::1]:" + std::to_string(sensor.Port()) + "\r\n"))
        << text;
    ZoTransaction read = system.Client().Read("/res", ZoJson(), ZoJson());
    EXPECT_EQ(read.GetResponse(patience).Payload().ToString(), "{\"value\":1}") << text;
  }
}

// ::1 cannot show that: the system connects to itself where there is no address at all.
TEST(LinkOverIpv6, GoesByTheWholeAddress) {
  if (!HasLoopback(AF_INET6)) {
    GTEST_SKIP() << "this machine has no ::1";
  }
  FakeSensor sensor;
  qIpAddress address;
  ASSERT_EQ(qIpAddress_Parse("::ffff:127.0.0.1", &address), qStatus_Success);
  ASSERT_EQ(address.family, qIpFamily::V6);
  ZoSystem system(address, sensor.Port());
  EXPECT_EQ(ConnectFailure(system), "");
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
}

TEST(LinkOverIpv6, FailureNamesTheAddress) {
  if (!HasLoopback(AF_INET6)) {
    GTEST_SKIP() << "this machine has no ::1";
  }
  FakeSensor sensor(AF_INET6);
  sensor.StopListening();
  qIpAddress address;
  ASSERT_EQ(qIpAddress_Parse("::1", &address), qStatus_Success);
  ZoSystem system(address, sensor.Port());
  const std::string text = ConnectFailure(system);
  EXPECT_THAT(text, HasSubstr("::1"));
  EXPECT_THAT(text, HasSubstr(std::to_string(sensor.Port())));
  EXPECT_THAT(text, HasSubstr("efused"));
}

TEST_F(LinkTest, AcceptsASensorThatNamesNoSubprotocol) {
  sensor.SetScript([&](FakePeer& peer) {
    if (peer.ReadUpgrade() && peer.AcceptUpgrade("")) {
      sensor.ServeSession(peer);
    }
  });
  system.Connect();
  EXPECT_EQ(Read("/res").GetResponse(patience).Payload().ToString(), "{\"value\":1}");
}

TEST_F(LinkTest, RefusesASensorThatNamesAnotherSubprotocol) {
  sensor.SetScript([](FakePeer& peer) {
    peer.ReadUpgrade();
    peer.AcceptUpgrade("vyrn.v2.json");
    peer.Swallow();
  });
  EXPECT_THAT(ConnectFailure(system), HasSubstr("vyrn.v1.json"));
  EXPECT_FALSE(system.IsConnected());
}

TEST_F(LinkTest, FailedConnectNamesAddressPortAndCauseAndIsNotRepeated) {
  sensor.StopListening();
  const std::string text = ConnectFailure(system);
  EXPECT_THAT(text, HasSubstr("127.0.0.1"));
  EXPECT_THAT(text, HasSubstr(std::to_string(sensor.Port())));
  EXPECT_THAT(text, HasSubstr("efused"));
  EXPECT_FALSE(system.IsConnected());
  sensor.Listen();
  EXPECT_THAT(FailureOf(Read("/res")), HasSubstr("disconnected"));
  EXPECT_EQ(sensor.ConnectionCount(), 0U);
  system.Connect();  // but asked to, it does
  EXPECT_EQ(FailureOf(Read("/res")), "");
}

TEST_F(LinkTest, SystemWithoutAddressOrPortRefusesToConnect) {
  ZoSystem nowhere;
  EXPECT_THAT(ConnectFailure(nowhere), HasSubstr("no IP address"));
  EXPECT_THAT(FailureOf(nowhere.Client().Read("/res", ZoJson(), ZoJson())), HasSubstr("not connected"));
  nowhere.Disconnect();
  for (const unsigned noPort : {0U, 65536U}) {
    ZoSystem portless(Loopback(), noPort);
    EXPECT_THAT(ConnectFailure(portless), HasSubstr("no port")) << noPort;
  }
}

TEST_F(LinkTest, ConnectGivesUpAfterThreeSecondsOfSilence) {
  sensor.FallSilent();
  const Stopwatch watch;
  EXPECT_THAT(ConnectFailure(system), HasSubstr("does not answer the WebSocket handshake"));
  EXPECT_GE(watch.Milliseconds().count(), 2500);
  EXPECT_LT(watch.Milliseconds().count(), 4500);
}

TEST_F(LinkTest, EachMethodGoesOutInItsOwnWords) {
  system.Connect();
  ZoRestClient& client = system.Client();
  const ZoJson payload = ZoJson::ParseString("{\"a\":[1,2]}");
  const ZoJson none{};
  const std::vector<ZoTransaction> all = {
      client.Read("/r", payload, none),        client.Create("/r", payload, none),
      client.Update("/r", payload, none),      client.Delete("/r", payload, none),
      client.Call("/r", payload, none),        client.Call("/r", none, none),
      client.Sub("/r/*", payload, none),       client.UnSub("/r/*", payload, none),
      client.StartStream("/r", payload, none), client.StopStream("/r", payload, none)};
  for (ZoTransaction transaction : all) {
    EXPECT_EQ(FailureOf(transaction), "");
  }
  const std::vector<std::string> expected = {"read", "create", "update", "delete",      "call",
                                             "call", "sub",    "unsub",  "startStream", "stopStream"};
  const std::vector<FakeRequest> got = sensor.Requests();
  ASSERT_EQ(got.size(), expected.size());
  std::set<std::uint64_t> ids;
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].method, expected[i]);
    const bool carries = i == 1 || i == 2 || i == 4;
    EXPECT_EQ(got[i].document.HasKey("payload"), carries) << got[i].method;
    ids.insert(got[i].id);
  }
  EXPECT_EQ(ids.size(), got.size());
  EXPECT_EQ(got[6].uri, "/r/*");
}

TEST_F(LinkTest, AnswerComesAsTheMessageWithoutItsId) {
  system.Connect();
  ZoTransaction transaction = Read("res/sub");
  const ZoRequestResponse response = transaction.GetResponse(patience);
  EXPECT_EQ(response.Raw().ToString(), "{\"status\":1,\"uri\":\"res/sub\",\"payload\":{\"value\":1}}");
  EXPECT_EQ(response.Path(), "res/sub");
  EXPECT_EQ(transaction.GetRequest().Method(), ZoRequestMethod_Read);
  EXPECT_EQ(transaction.GetRequest().Uri(), "res/sub");
  EXPECT_EQ(transaction.GetResponse(0).Raw().ToString(), response.Raw().ToString()) << "asking again";
}

TEST_F(LinkTest, SystemRunsInTheState1AndInNoOther) {
  const auto setSystem = [this](const std::string& payload) {
    sensor.SetResponder([payload](FakePeer& peer, const FakeRequest& request) {
      peer.Send(FakeSensor::Answer(request, R"("status":1,"payload":)" + payload));
    });
  };
  system.Connect();
  for (const int state : {1, 2, -1, 0, 1}) {
    setSystem(R"({"state":)" + std::to_string(state) + "}");
    EXPECT_EQ(system.RunningState(), state == 1 ? ZoSystem::Running : ZoSystem::Stopped) << state;
  }
  for (const char* const stateless : {R"({"state":"1"})", R"({"state":"running"})", R"({"run":1})", "{}"}) {
    setSystem(stateless);
    EXPECT_THROW(system.RunningState(), ZoJsonError) << stateless;
  }
  EXPECT_EQ(sensor.CountRequests("read", "/system"), sensor.Requests().size());
}

TEST_F(LinkTest, BareAcknowledgementIsAnEmptyDocument) {
  sensor.SetResponder(
      [](FakePeer& peer, const FakeRequest& request) { peer.Send(FakeSensor::Answer(request, "")); });
  system.Connect();
  EXPECT_TRUE(StopStream("/res").GetResponse(patience).Raw().Empty());
}

TEST_F(LinkTest, RefusalIsRaisedWithTheSensorsDocument) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    peer.Send(FakeSensor::Answer(request, "\"status\":-404,\"payload\":null,\"error\":\"no such thing\""));
  });
  system.Connect();
  ZoTransaction transaction = Read("/gone");
  for (int i = 0; i < 2; ++i) {
    try {
      transaction.GetResponse(patience);
      FAIL() << "not refused";
    } catch (const ZoRequestError& error) {
      EXPECT_THAT(error.what(), HasSubstr("no such thing"));
      EXPECT_EQ(error.GetResponse().Raw().ToString(),
                "{\"status\":-404,\"payload\":null,\"error\":\"no such thing\"}");
    }
  }
}

TEST_F(LinkTest, AnswersInAnyOrderFindTheirRequests) {
  std::vector<FakeRequest> held;
  const EndFirst endFirst(*this);
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    held.push_back(request);
    if (held.size() == 50) {
      while (!held.empty()) {
        peer.Send(FakeSensor::Answer(held.back(), "\"status\":1,\"payload\":\"" + held.back().uri + "\""));
        held.pop_back();
      }
    }
  });
  system.Connect();
  std::vector<ZoTransaction> transactions;
  for (int i = 0; i < 50; ++i) {
    transactions.push_back(Read("/r" + std::to_string(i)));
  }
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(transactions[static_cast<std::size_t>(i)].GetResponse(patience).Payload().Get<std::string>(),
              "/r" + std::to_string(i));
  }
}

TEST_F(LinkTest, ManyThreadsShareTheLink) {
  system.Connect();
  std::vector<std::thread> threads;
  std::atomic<int> good{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        const std::string uri = "/r" + std::to_string(t) + "/" + std::to_string(i);
        good += Read(uri).GetResponse(patience).Path() == uri ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(good, 400);
  std::set<std::uint64_t> ids;
  for (const FakeRequest& request : sensor.Requests()) {
    ids.insert(request.id);
  }
  EXPECT_EQ(ids.size(), 400U) << "ids are never used twice";
}

TEST_F(LinkTest, LateAnswerIsDroppedSilently) {
  std::vector<FakeRequest> held;
  const EndFirst endFirst(*this);
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (request.uri == "/slow") {
      held.push_back(request);
      return;
    }
    for (const FakeRequest& late : held) {
      FakeSensor::Grant(peer, late);
    }
    FakeSensor::Grant(peer, request);
  });
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/quick")), "");
  ZoTransaction slow = Read("/slow");
  EXPECT_THAT(FailureOf(slow, second / 5), HasSubstr("did not answer within 0.2 s"));
  EXPECT_EQ(FailureOf(Read("/quick")), "");
  EXPECT_THAT(FailureOf(slow), HasSubstr("did not answer")) << "the outcome stands";
  EXPECT_TRUE(system.IsConnected());
}

TEST_F(LinkTest, RequestThatNobodyWaitsForIsSentAllTheSame) {
  system.Connect();
  system.Client().Update("/res", ZoJson::Of(5), ZoJson());
  EXPECT_TRUE(sensor.WaitForRequest("update", "/res"));
}

TEST_F(LinkTest, CancelEndsTheWaitAndStands) {
  sensor.SetResponder([](FakePeer&, const FakeRequest&) {});
  system.Connect();
  ZoTransaction transaction = Read("/mute");
  std::thread owner([&] {
    EXPECT_TRUE(sensor.WaitForRequest("read", "/mute"));
    ZoTransaction copy = transaction;
    copy.Cancel();
  });
  EXPECT_THAT(FailureOf(transaction), HasSubstr("cancelled"));
  owner.join();
  EXPECT_THAT(FailureOf(transaction), HasSubstr("cancelled"));
}

TEST_F(LinkTest, StartStopAndRunningStateSpeakToTheSystem) {
  std::atomic<int> state{0};
  const EndFirst endFirst(*this);
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    state = request.uri == "/system/start" ? 1 : request.uri == "/system/stop" ? 0 : state.load();
    peer.Send(
        FakeSensor::Answer(request, "\"status\":1,\"payload\":{\"state\":" + std::to_string(state) + "}"));
  });
  system.Connect();
  EXPECT_EQ(system.RunningState(), ZoSystem::Stopped);
  system.Start();
  EXPECT_EQ(system.RunningState(), ZoSystem::Running);
  system.Stop();
  EXPECT_EQ(system.RunningState(), ZoSystem::Stopped);
}

TEST_F(LinkTest, PushesReachTheirHandlersOnOneThreadThatIsNotTheCallers) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  EXPECT_EQ(FailureOf(Sub("/t")), "");
  sensor.Push(PushText("stream", "/s", "{\"n\":1}"));
  sensor.Push(PushText("notification", "/t", "null"));
  ASSERT_TRUE(pushes.WaitForCount(2));
  const std::vector<Arrival> all = pushes.All();
  const Arrival& stream = all[0].stream ? all[0] : all[1];
  const Arrival& notification = all[0].stream ? all[1] : all[0];
  EXPECT_EQ(stream.uri, "/s");
  EXPECT_EQ(stream.payload.ToString(), "{\"n\":1}");
  EXPECT_FALSE(notification.stream);
  EXPECT_EQ(notification.uri, "/t");
  EXPECT_TRUE(notification.payload.IsNull());
  EXPECT_EQ(stream.thread, notification.thread);
  EXPECT_NE(stream.thread, std::this_thread::get_id());
}

TEST_F(LinkTest, PushesAreDeliveredWhileACallerDrives) {
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (request.uri == "/ask") {
      peer.Send(PushText("stream", "/s", "1"));  // and no answer until the push was seen
      EXPECT_TRUE(pushes.WaitForCount(1));
      FakeSensor::Grant(peer, request);
    } else {
      FakeSensor::Grant(peer, request);
    }
  });
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(FailureOf(Read("/warm")), "");  // the own thread stands aside now
  }
  EXPECT_EQ(FailureOf(Read("/ask")), "");
  EXPECT_NE(pushes.All().at(0).thread, std::this_thread::get_id());
}

TEST_F(LinkTest, HandlerMayAskTheSensorItself) {
  std::promise<std::string> outcome;
  const EndFirst endFirst(*this);
  pushes.SetHook([&](const Arrival&) { outcome.set_value(FailureOf(Read("/inner"))); });
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  sensor.Push(PushText("stream", "/s", "1"));
  EXPECT_EQ(outcome.get_future().get(), "");
}

TEST_F(LinkTest, HandlerThatRaisesDoesNotEndTheLink) {
  pushes.SetHook([](const Arrival& arrival) {
    if (arrival.uri == "/bad") {
      throw std::runtime_error("a handler that breaks its promise");
    }
  });
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("*")), "");
  sensor.Push(PushText("stream", "/bad", "1"));
  sensor.Push(PushText("stream", "/good", "1"));
  EXPECT_TRUE(pushes.WaitForCount(2));
}

TEST_F(LinkTest, UnknownMessagesAreIgnored) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  for (const char* text :
       {"{}", "{\"id\":99999,\"status\":1}", "{\"id\":\"1\",\"status\":1}", "{\"id\":-1}",
        "{\"event\":\"stream\"}", "{\"event\":\"weather\",\"uri\":\"/s\",\"payload\":1}",
        "{\"event\":5,\"uri\":\"/s\",\"payload\":1}", "{\"event\":\"stream\",\"uri\":7,\"payload\":1}",
        "{\"status\":1,\"payload\":1}"}) {
    sensor.Push(text);
  }
  sensor.Push("{\"later\":[1],\"event\":\"stream\",\"uri\":\"/s\",\"extra\":{},\"payload\":2}");
  ASSERT_TRUE(pushes.WaitForCount(1));
  EXPECT_EQ(pushes.All()[0].payload.ToString(), "2");
  EXPECT_EQ(FailureOf(Read("/res")), "");
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
}

TEST_F(LinkTest, AnswerWithoutAStatusFails) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    peer.Send(FakeSensor::Answer(request, "\"payload\":1"));
  });
  system.Connect();
  EXPECT_THAT(FailureOf(Read("/res")), HasSubstr("no status"));
}

TEST_F(LinkTest, OddRequestsAreAnsweredHereAndCostNothing) {
  system.Connect();
  EXPECT_EQ(RefusalOf(Read("/bad\xFF")), -400);
  std::string deep = "1";
  for (int i = 0; i < 255; ++i) {
    deep = "[" + deep + "]";
  }
  ZoRestClient& client = system.Client();
  EXPECT_EQ(FailureOf(client.Update("/fits", ZoJson::ParseString(deep), ZoJson())), "");
  EXPECT_EQ(RefusalOf(client.Update("/deep", ZoJson::ParseString("[" + deep + "]"), ZoJson())), -400);
  EXPECT_EQ(RefusalOf(client.Update("/text", ZoJson::Of("\xC3("), ZoJson())), -400);
  EXPECT_EQ(RefusalOf(client.Update("/large", ZoJson::Of(std::string(64 << 20, 'x')), ZoJson())), -413);
  EXPECT_EQ(RefusalOf(client.Read("/options", ZoJson(), ZoJson::Of(1))), -400);
  try {
    client.Update("/deep", ZoJson::ParseString("[" + deep + "]"), ZoJson()).GetResponse(patience);
  } catch (const ZoRequestError& error) {
    EXPECT_TRUE(error.GetResponse().Raw().At("/payload").IsNull());
    EXPECT_TRUE(error.GetResponse().Raw().At("/error").IsString());
  }
  EXPECT_EQ(FailureOf(Read("/fine")), "");
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
  EXPECT_EQ(sensor.Requests().size(), 2U) << "only what was in order went out";
}

TEST_F(LinkTest, CopiesShareOneLink) {
  ZoSystem copy = system;
  copy.Connect();
  EXPECT_TRUE(system.IsConnected());
  EXPECT_EQ(FailureOf(copy.Client().Read("/res", ZoJson(), ZoJson())), "");
  system.Disconnect();
  EXPECT_FALSE(copy.IsConnected());
}

}  // namespace
}  // namespace ZoTest
