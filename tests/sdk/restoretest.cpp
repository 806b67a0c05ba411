// Losing the link and getting it back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "tests/sdk/linkfixture.h"
#include "tests/vyrnclient/eventually.h"
#include "zovyrnsdk/zorequesterror.h"

namespace ZoTest {
namespace {

using testing::HasSubstr;

class Restore : public LinkTest {};

TEST_F(Restore, StreamsAndSubscriptionsComeBackWithTheLink) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  EXPECT_EQ(FailureOf(Sub("/t/*")), "");
  EXPECT_EQ(pushes.Count(), 0U);
  sensor.DropAll();
  ASSERT_TRUE(sensor.WaitForRequest("startStream", "/s", 2));
  ASSERT_TRUE(sensor.WaitForRequest("sub", "/t/*", 2));
  ASSERT_TRUE(pushes.WaitForCount(1)) << "the first content of the restored stream";
  EXPECT_TRUE(pushes.All()[0].stream);
  EXPECT_EQ(pushes.All()[0].uri, "/s");
  EXPECT_EQ(pushes.All()[0].payload.ToString(), "{\"value\":1}");
  EXPECT_TRUE(system.IsConnected());
}

TEST_F(Restore, WhatWasStoppedStaysAway) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/stopped")), "");
  EXPECT_EQ(FailureOf(StartStream("/kept")), "");
  EXPECT_EQ(FailureOf(Sub("/ended")), "");
  EXPECT_EQ(FailureOf(StopStream("/stopped")), "");
  EXPECT_EQ(FailureOf(UnSub("/ended")), "");
  sensor.DropAll();
  ASSERT_TRUE(sensor.WaitForRequest("startStream", "/kept", 2));
  EXPECT_EQ(FailureOf(Read("/later")), "");
  EXPECT_EQ(sensor.CountRequests("startStream", "/stopped"), 1U);
  EXPECT_EQ(sensor.CountRequests("sub", "/ended"), 1U);
}

TEST_F(Restore, IsConnectedTellsTheTruth) {
  system.Connect();
  sensor.StopListening();
  sensor.DropAll();
  EXPECT_TRUE(WaitConnected(false));
  sensor.Listen();
  EXPECT_TRUE(WaitConnected(true));
  EXPECT_EQ(FailureOf(Read("/res")), "");
}

TEST_F(Restore, RequestMadeWhileTheLinkIsDownWaitsForIt) {
  system.Connect();
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(WaitConnected(false));
  auto outcome = std::async(std::launch::async, [this] { return FailureOf(Read("/patient")); });
  EXPECT_THAT(FailureOf(Read("/hasty"), 50000), HasSubstr("link to the sensor was down"));
  sensor.Listen();
  EXPECT_EQ(outcome.get(), "");
  EXPECT_EQ(sensor.CountRequests("read", "/hasty"), 0U) << "who gave up is not asked for";
}

TEST_F(Restore, ConnectWaitsForALinkThatIsBeingRestored) {
  system.Connect();
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(WaitConnected(false));
  auto connected = std::async(std::launch::async, [this] { system.Connect(); });
  sensor.Listen();
  EXPECT_NO_THROW(connected.get());
  EXPECT_TRUE(system.IsConnected());
}

TEST_F(Restore, RequestThatWasSentEndsWithTheLinkAndIsNotSentAgain) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    if (request.uri == "/fatal") {
      peer.Drop();
    } else {
      FakeSensor::Grant(peer, request);
    }
  });
  system.Connect();
  ZoTransaction transaction = system.Client().Update("/fatal", ZoJson::Of(1), ZoJson());
  EXPECT_THAT(FailureOf(transaction), HasSubstr("broke before the answer came"));
  EXPECT_EQ(FailureOf(Read("/later")), "");
  EXPECT_EQ(sensor.CountRequests("update", "/fatal"), 1U);
}

TEST_F(Restore, RefusedStreamIsTriedAgainUntilItSucceeds) {
  std::mutex mutex;
  std::vector<Clock::time_point> tries;
  const EndFirst endFirst(*this);
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (request.method == "startStream" && request.connection == 2) {
      const std::lock_guard lock(mutex);
      tries.push_back(Clock::now());
      if (tries.size() == 1) {
        peer.Send(FakeSensor::Answer(request, "\"status\":-404,\"payload\":null,\"error\":\"not yet\""));
        return;
      }
    }
    FakeSensor::Grant(peer, request);
  });
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  sensor.DropAll();
  ASSERT_TRUE(pushes.WaitForCount(1));
  const std::lock_guard lock(mutex);
  ASSERT_EQ(tries.size(), 2U);
  EXPECT_GE(tries[1] - tries[0], std::chrono::milliseconds(2900));
  EXPECT_LT(tries[1] - tries[0], std::chrono::milliseconds(5000));
}

TEST_F(Restore, StoppingWhatIsNotRestoredCancelsItAndSucceeds) {
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (request.connection > 1 && (request.method == "startStream" || request.method == "sub")) {
      peer.Send(FakeSensor::Answer(request, "\"status\":-404,\"payload\":null,\"error\":\"gone\""));
    } else {
      FakeSensor::Grant(peer, request);
    }
  });
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  EXPECT_EQ(FailureOf(Sub("/t")), "");
  sensor.DropAll();
  ASSERT_TRUE(sensor.WaitForRequest("startStream", "/s", 2));
  ASSERT_TRUE(sensor.WaitForRequest("sub", "/t", 2));
  EXPECT_EQ(FailureOf(Read("/after")), "");
  EXPECT_EQ(StopStream("/s").GetResponse(patience).Raw().At("/status").Get<int>(), 1);
  EXPECT_EQ(UnSub("/t").GetResponse(patience).Raw().At("/status").Get<int>(), 1);
  EXPECT_EQ(sensor.CountRequests("stopStream", "/s"), 0U) << "the sensor does not have it";
  EXPECT_EQ(sensor.CountRequests("unsub", "/t"), 0U);
}

TEST_F(Restore, StoppingWhileTheLinkIsDownSucceeds) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(WaitConnected(false));
  EXPECT_EQ(FailureOf(StopStream("/s")), "");
  sensor.Listen();
  EXPECT_EQ(FailureOf(Read("/res")), "");
  EXPECT_EQ(sensor.CountRequests("startStream", "/s"), 1U);
}

TEST_F(Restore, CallsThatFindTheLinkDownForLongFailAtOnceAndHurryItsReturn) {
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/res")), "");
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(WaitConnected(false));
  const Stopwatch first;
  EXPECT_THAT(FailureOf(Read("/res"), 3 * second), HasSubstr("was down for 3 s"));
  EXPECT_LT(first.Milliseconds().count(), kSanitized ? 10000 : 4500);
  const Stopwatch row;
  for (int i = 0; i < 100; ++i) {
    EXPECT_THAT(FailureOf(StartStream("/s"), 3 * second), HasSubstr("is down"));
  }
  EXPECT_LT(row.Milliseconds().count(), 1000);
  // The back-off alone would wait for some two seconds more from here.
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  sensor.Listen();
  const Stopwatch back;
  while (FailureOf(Read("/res"), 3 * second) != "" && back.Milliseconds().count() < 20000) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_LT(back.Milliseconds().count(), 1500);
}

TEST_F(Restore, SilentPeerIsNoticedWithinThreeSeconds) {
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/res")), "");
  sensor.FallSilent();
  const Stopwatch watch;
  ASSERT_TRUE(WaitConnected(false));
  EXPECT_GE(watch.Milliseconds().count(), 1000);
  EXPECT_LT(watch.Milliseconds().count(), 4000);
}

TEST_F(Restore, RequestThatMeetsASilentPeerIsToldSo) {
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/res")), "");
  sensor.FallSilent();
  EXPECT_EQ(FailureOf(Read("/res")),
            "The link to the sensor broke before the answer came: the sensor has been silent for 3 s.");
}

// It answers pings, and pushes.
TEST_F(Restore, RequestThatMeetsAPeerWhichLeavesRequestsUnansweredIsToldSo) {
  const EndFirst endFirst(*this);
  sensor.SetResponder([](FakePeer&, const FakeRequest&) {});
  system.Connect();
  const ZoTransaction waiting = Read("/res");
  for (const char* uri : {"/one", "/other"}) {
    EXPECT_EQ(FailureOf(Read(uri), second / 10), "The sensor did not answer within 0.1 s.");
  }
  EXPECT_EQ(FailureOf(waiting),
            "The link to the sensor broke before the answer came: the sensor leaves requests unanswered.");
}

// What the system takes for a peer that is gone is no sign of life.
TEST_F(Restore, SilentPeerIsNoticedAlsoWhileRequestsGoOut) {
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/res")), "");
  sensor.FallSilent();
  const Stopwatch watch;
  while (system.IsConnected() && watch.Milliseconds().count() < 20000) {
    Read("/res");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_GE(watch.Milliseconds().count(), 1000);
  EXPECT_LT(watch.Milliseconds().count(), 4000);
}

class OneSided : public Restore {
 protected:
  // Pushes, and answers no ping, for so long or until the link has come back. How long that took.
  std::chrono::milliseconds SpeakOnly(std::chrono::seconds limit) {
    sensor.AnswerPings(false);
    const Stopwatch watch;
    for (int i = 0; sensor.ConnectionCount() == 1 && watch.Milliseconds() < limit; ++i) {
      sensor.Push(PushText("stream", "/s", std::to_string(i)));
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    sensor.AnswerPings(true);
    return watch.Milliseconds();
  }
};

TEST_F(OneSided, PeerThatAnswersPingsNoMoreIsLostThoughItSpeaks) {
  const EndFirst endFirst(*this);
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  ASSERT_TRUE(Eventually([&] { return sensor.PongCount() >= 1; }));
  EXPECT_LT(SpeakOnly(std::chrono::seconds(20)), std::chrono::seconds(kSanitized ? 15 : 8));
  EXPECT_EQ(sensor.ConnectionCount(), 2U);
  EXPECT_TRUE(sensor.WaitForRequest("startStream", "/s", 2)) << "restored";
}

TEST_F(OneSided, RequestThatMeetsAPeerWhichHearsNothingIsToldSo) {
  const EndFirst endFirst(*this);
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  ASSERT_TRUE(Eventually([&] { return sensor.PongCount() >= 1; }));
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    if (request.uri != "/unheard") {
      FakeSensor::Grant(peer, request);
    }
  });
  const ZoTransaction waiting = Read("/unheard");
  EXPECT_LT(SpeakOnly(std::chrono::seconds(20)), std::chrono::seconds(15));
  EXPECT_EQ(FailureOf(waiting),
            "The link to the sensor broke before the answer came: the sensor has answered no ping for 3 s.");
}

// Some never do, and are there all the same.
TEST_F(OneSided, PeerThatNeverAnsweredAPingIsKeptWhileItSpeaks) {
  const EndFirst endFirst(*this);
  sensor.AnswerPings(false);
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  SpeakOnly(std::chrono::seconds(6));
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
}

// The pong waits behind the frame.
TEST_F(Restore, MessageThatTakesLongInOneFrameDoesNotCostTheSession) {
  const EndFirst endFirst(*this);
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  ASSERT_TRUE(Eventually([&] { return sensor.PongCount() >= 1; }));
  sensor.AnswerPings(false);
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest&) {
    const std::string frame =
        FakePeer::FrameBytes(FakePeer::Text, PushText("stream", "/s", std::string(50, '4')));
    for (const char byte : frame) {
      peer.SendBytes({&byte, 1});
      std::this_thread::sleep_for(std::chrono::milliseconds(5000 / frame.size()));
    }
    sensor.AnswerPings(true);
  });
  Read("/s");
  EXPECT_TRUE(pushes.WaitForCount(1));
  sensor.SetResponder({});
  EXPECT_EQ(FailureOf(Read("/s")), "");
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
}

// Nor can the answer about itself, which the sensor owes once two requests went unanswered.
TEST_F(Restore, LargeMessageThatKeepsRequestsWaitingDoesNotCostTheSession) {
  const EndFirst endFirst(*this);
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (request.uri != "/begin") {
      FakeSensor::Grant(peer, request);
      return;
    }
    const std::string frame = FakePeer::FrameBytes(
        FakePeer::Text, PushText("stream", "/s", "\"" + std::string(400'000, 'x') + "\""));
    constexpr std::size_t pieces = 50;
    for (std::size_t i = 0; i < pieces; ++i) {
      const std::size_t at = frame.size() * i / pieces;
      peer.SendBytes(std::string_view(frame).substr(at, frame.size() * (i + 1) / pieces - at));
      std::this_thread::sleep_for(std::chrono::milliseconds(5000 / pieces));
    }
  });
  auto begin = Read("/begin");
  EXPECT_THAT(FailureOf(Read("/a"), second / 2), HasSubstr("did not answer"));
  EXPECT_THAT(FailureOf(Read("/b"), second / 2), HasSubstr("did not answer"));
  EXPECT_TRUE(pushes.WaitForCount(1));
  EXPECT_EQ(FailureOf(Read("/res")), "");
  EXPECT_EQ(sensor.CountRequests("read", "/system"), 1U) << "it was asked about itself";
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
}

TEST_F(Restore, HandlerThatBlocksForLongDoesNotCostTheSession) {
  std::promise<void> done;
  const EndFirst endFirst(*this);
  pushes.SetHook([&](const Arrival&) {
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));  // longer than a silence may last
    done.set_value();
  });
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  sensor.Push(PushText("stream", "/s", "1"));
  done.get_future().wait();
  EXPECT_EQ(FailureOf(Read("/res")), "");
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
}

TEST_F(Restore, PeerThatOnlyAnswersPingsIsAskedAfterAndLost) {
  std::atomic<bool> mute{false};
  const EndFirst endFirst(*this);
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (!mute || request.connection > 1) {
      FakeSensor::Grant(peer, request);
    }
  });
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/a")), "");
  EXPECT_EQ(FailureOf(Read("/b")), "");
  mute = true;
  EXPECT_THAT(FailureOf(Read("/a"), second / 5), HasSubstr("did not answer"));
  EXPECT_THAT(FailureOf(Read("/b"), second / 5), HasSubstr("did not answer"));
  ASSERT_TRUE(sensor.WaitForRequest("read", "/system"));
  EXPECT_TRUE(sensor.WaitForConnections(2));
  EXPECT_EQ(FailureOf(Read("/a")), "");
}

TEST_F(Restore, MuteResourceDoesNotCostTheSession) {
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (request.uri != "/mute" && request.uri != "/dumb") {
      FakeSensor::Grant(peer, request);
    }
  });
  system.Connect();
  EXPECT_THAT(FailureOf(Read("/mute"), second / 5), HasSubstr("did not answer"));
  EXPECT_THAT(FailureOf(Read("/dumb"), second / 5), HasSubstr("did not answer"));
  ASSERT_TRUE(sensor.WaitForRequest("read", "/system"));
  EXPECT_EQ(FailureOf(Read("/fine")), "");
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
}

TEST_F(Restore, ReadOfAMuteResourceIsBrakedUntilTheResourceSpeaks) {
  std::atomic<bool> mute{true};
  const EndFirst endFirst(*this);
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (!mute || request.method == "sub") {
      FakeSensor::Grant(peer, request);
    }
  });
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("/mute")), "");
  EXPECT_THAT(FailureOf(Read("/mute"), second / 5), HasSubstr("did not answer"));
  const Stopwatch watch;
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(RefusalOf(Read("/mute")), -599);
  }
  EXPECT_LT(watch.Milliseconds().count(), 2000);
  EXPECT_LE(sensor.CountRequests("read", "/mute"), 2U);
  try {
    Read("/mute").GetResponse(patience);
    ADD_FAILURE();
  } catch (const ZoRequestError& error) {
    EXPECT_TRUE(error.GetResponse().Raw().At("/payload").IsNull());
    EXPECT_TRUE(error.GetResponse().Raw().At("/error").IsString());
  }
  mute = false;
  sensor.Push(PushText("notification", "/mute", "1"));
  ASSERT_TRUE(pushes.WaitForCount(1));
  EXPECT_EQ(FailureOf(Read("/mute")), "");
}

TEST_F(Restore, EightThreadsSurviveTwentyCuts) {
  std::atomic<bool> ends{false};
  std::atomic<int> answers{0};
  std::vector<std::thread> threads;
  system.Connect();
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      while (!ends) {
        std::vector<ZoTransaction> pipeline;
        for (int i = 0; i < 8; ++i) {
          pipeline.push_back(Read("/r" + std::to_string(t) + "/" + std::to_string(i)));
        }
        for (ZoTransaction& transaction : pipeline) {
          const std::string uri = transaction.GetRequest().Uri();
          try {
            EXPECT_EQ(transaction.GetResponse(patience).Path(), uri);
            ++answers;
          } catch (const std::exception& error) {
            EXPECT_THAT(error.what(),
                        testing::AnyOf(HasSubstr("broke before the answer came"), HasSubstr("disconnected")));
          }
        }
      }
    });
  }
  for (int cut = 0; cut < 20; ++cut) {
    const int before = answers;
    const Deadline deadline;
    while (answers < before + 20 && !deadline.Expired()) {
      std::this_thread::yield();
    }
    EXPECT_FALSE(deadline.Expired()) << "cut " << cut;
    sensor.DropAll();
    if (cut % 4 == 3) {
      // Sessions that are cut early raise the pause before the next attempt; a new connection starts over.
      system.Disconnect();
      system.Connect();
    }
  }
  ends = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_GE(answers, 400);
}

}  // namespace
}  // namespace ZoTest
