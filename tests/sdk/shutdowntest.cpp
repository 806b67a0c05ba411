// Taking the link down: from any thread, in every state, quickly, and with nothing left behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "tests/sdk/linkfixture.h"
#include "tests/vyrnclient/eventually.h"

namespace ZoTest {
namespace {

using testing::HasSubstr;

// A disconnect that waits for anything takes 1 s or 3 s; one that does not takes a few milliseconds. In
// between lies room for a loaded machine.
constexpr std::chrono::milliseconds prompt{500};

std::size_t LinkThreads() {
  std::size_t found = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(task.path() / "comm");
    std::string name;
    std::getline(file, name);
    found += name.starts_with("ZoLink") ? 1 : 0;
  }
  return found;
}

// A thread that was joined may stay listed for a moment.
bool WaitNoLinkThread() {
  const Deadline deadline;
  while (LinkThreads() != 0) {
    if (deadline.Expired()) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

class Shutdown : public LinkTest {
 protected:
  // Keeps pushing, each time about another resource, until the test ends.
  void Flood() {
    flood = std::thread([this] {
      for (int i = 0; !floodEnds; ++i) {
        sensor.Push(PushText("stream", "/s" + std::to_string(i), "1"));
      }
    });
  }
  // For a second.
  void WaitForAnyClose() const {
    Eventually([&] { return !sensor.CloseCodes().empty(); }, std::chrono::seconds(1));
  }
  void EndFlood() {
    floodEnds = true;
    sensor.DropAll();
    flood.join();
  }

  std::atomic<bool> floodEnds{false};
  std::thread flood;
};

// Which it does for a moment only: on a machine that does something else just then the peer may not hear it.
TEST_F(Shutdown, SaysGoodbye) {
  for (int i = 0; i < 5 && sensor.CloseCodes().empty(); ++i) {
    system.Connect();
    EXPECT_EQ(FailureOf(Read("/res")), "");
    system.Disconnect();
    EXPECT_FALSE(system.IsConnected());
    WaitForAnyClose();
  }
  EXPECT_TRUE(sensor.WaitForClose(1000));
  EXPECT_THAT(FailureOf(Read("/res")), HasSubstr("disconnected"));
  EXPECT_TRUE(WaitNoLinkThread());
}

TEST_F(Shutdown, EndsPendingRequestsAtOnceAndSaysSo) {
  sensor.SetResponder([](FakePeer&, const FakeRequest&) {});
  system.Connect();
  std::vector<ZoTransaction> unwatched = {Read("/a"), Read("/b")};
  std::vector<std::future<std::string>> outcomes;
  for (int i = 0; i < 3; ++i) {
    outcomes.push_back(std::async(std::launch::async, [this] { return FailureOf(Read("/mute")); }));
  }
  ASSERT_TRUE(sensor.WaitForRequest("read", "/mute", 3));
  const Stopwatch watch;
  system.Disconnect();
  for (auto& outcome : outcomes) {
    EXPECT_THAT(outcome.get(), HasSubstr("disconnected"));
  }
  EXPECT_LT(watch.Elapsed(), prompt);
  for (const ZoTransaction& transaction : unwatched) {
    EXPECT_THAT(FailureOf(transaction), HasSubstr("disconnected"));
  }
}

TEST_F(Shutdown, NoHandlerStartsAfterwards) {
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("*")), "");
  Flood();
  EXPECT_TRUE(pushes.WaitForCount(100));
  system.Disconnect();
  const std::size_t count = pushes.Count();
  EndFlood();
  EXPECT_TRUE(WaitNoLinkThread());
  EXPECT_EQ(pushes.Count(), count);
}

TEST_F(Shutdown, WaitsForTheHandlerThatRuns) {
  std::promise<void> entered;
  std::promise<void> leave;
  std::atomic<bool> left{false};
  const EndFirst endFirst(*this);
  pushes.SetHook([&](const Arrival&) {
    entered.set_value();
    leave.get_future().wait();
    left = true;
  });
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("*")), "");
  sensor.Push(PushText("stream", "/s", "1"));
  entered.get_future().wait();
  auto disconnected = std::async(std::launch::async, [&] {
    system.Disconnect();
    return left.load();
  });
  while (system.IsConnected()) {
    std::this_thread::yield();
  }
  leave.set_value();
  EXPECT_TRUE(disconnected.get());
}

TEST_F(Shutdown, BlockedHandlerHoldsItUpForASecondAtMost) {
  std::promise<void> entered;
  std::promise<void> leave;
  const EndFirst endFirst(*this);
  pushes.SetHook([&](const Arrival&) {
    entered.set_value();
    leave.get_future().wait();
  });
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("*")), "");
  sensor.Push(PushText("stream", "/s", "1"));
  entered.get_future().wait();
  sensor.Push(PushText("stream", "/t", "1"));
  const Stopwatch watch;
  system.Disconnect();
  EXPECT_GE(watch.Milliseconds().count(), 900);
  EXPECT_LT(watch.Milliseconds().count(), 2000);
  const Stopwatch again;
  system.Disconnect();
  EXPECT_LT(again.Elapsed(), prompt) << "the second one need not wait too";
  leave.set_value();
  EXPECT_TRUE(WaitNoLinkThread()) << "the straggler ends by itself";
  EXPECT_EQ(pushes.Count(), 1U);
}

TEST_F(Shutdown, WorksFromInsideAHandler) {
  std::promise<Clock::duration> took;
  const EndFirst endFirst(*this);
  pushes.SetHook([&](const Arrival&) {
    const Stopwatch watch;
    system.Disconnect();
    took.set_value(watch.Elapsed());
  });
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("*")), "");
  sensor.Push(PushText("stream", "/a", "1"));
  sensor.Push(PushText("stream", "/b", "1"));
  EXPECT_LT(took.get_future().get(), prompt);
  EXPECT_FALSE(system.IsConnected());
  EXPECT_TRUE(WaitNoLinkThread());
  EXPECT_EQ(pushes.Count(), 1U);
}

TEST_F(Shutdown, WorksFromManyThreadsAtOnce) {
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("*")), "");
  Flood();
  EXPECT_TRUE(pushes.WaitForCount(10));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      system.Disconnect();
      const std::size_t count = pushes.Count();
      std::this_thread::yield();
      EXPECT_EQ(pushes.Count(), count);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EndFlood();
}

TEST_F(Shutdown, EndsAConnectThatWaits) {
  sensor.FallSilent();
  auto connecting = std::async(std::launch::async, [this] {
    try {
      system.Connect();
    } catch (const std::runtime_error& error) {
      return std::string(error.what());
    }
    return std::string();
  });
  ASSERT_TRUE(sensor.WaitForConnections(1));
  const Stopwatch watch;
  system.Disconnect();
  EXPECT_THAT(connecting.get(), HasSubstr("disconnected meanwhile"));
  EXPECT_LT(watch.Elapsed(), prompt);
}

TEST_F(Shutdown, LastHandleDisconnects) {
  for (int i = 0; i < 5 && sensor.CloseCodes().empty(); ++i) {  // as above
    auto first = std::make_unique<ZoSystem>(Loopback(), sensor.Port());
    first->Connect();
    auto second = std::make_unique<ZoSystem>(*first);
    ZoTransaction transaction = first->Client().Read("/res", ZoJson(), ZoJson());
    first.reset();
    EXPECT_TRUE(second->IsConnected());
    second.reset();
    EXPECT_TRUE(WaitNoLinkThread());
    FailureOf(transaction);  // its outcome may be either; it is still there
    WaitForAnyClose();
  }
  EXPECT_TRUE(sensor.WaitForClose(1000));
}

TEST_F(Shutdown, ConnectsAgainWithoutTheStreamsOfBefore) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  system.Disconnect();
  system.Connect();
  EXPECT_TRUE(system.IsConnected());
  EXPECT_EQ(FailureOf(Sub("*")), "");
  sensor.Push(PushText("stream", "/other", "1"));
  EXPECT_TRUE(pushes.WaitForCount(1)) << "handlers stay";
  EXPECT_EQ(sensor.CountRequests("startStream", "/s"), 1U);
}

// Each state of the link, and how long taking it down takes there.
TEST_F(Shutdown, IsPromptWhenThePeerIsSilent) {
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/res")), "");
  sensor.FallSilent();
  Read("/mute");
  const Stopwatch watch;
  system.Disconnect();
  EXPECT_LT(watch.Elapsed(), prompt);
}

TEST_F(Shutdown, IsPromptWhileTheLinkIsDown) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  sensor.StopListening();
  sensor.DropAll();
  ASSERT_TRUE(WaitConnected(false));
  auto waiting = std::async(std::launch::async, [this] { return FailureOf(Read("/res")); });
  const Stopwatch watch;
  system.Disconnect();
  EXPECT_LT(watch.Elapsed(), prompt);
  EXPECT_THAT(waiting.get(), HasSubstr("disconnected"));
}

TEST_F(Shutdown, IsPromptWhileAnAttemptToRestoreHangs) {
  system.Connect();
  sensor.FallSilent();
  sensor.DropAll();
  ASSERT_TRUE(sensor.WaitForConnections(2));
  const Stopwatch watch;
  system.Disconnect();
  EXPECT_LT(watch.Elapsed(), prompt);
  EXPECT_TRUE(WaitNoLinkThread());
}

TEST_F(Shutdown, IsPromptWhenThePeerDoesNotRead) {
  std::promise<void> done;
  auto finished = done.get_future().share();
  sensor.SetScript([finished](FakePeer& peer) {
    if (peer.ReadUpgrade() && peer.AcceptUpgrade()) {
      finished.wait();
    }
  });
  system.Connect();
  // More than the system's buffers between the two take.
  const ZoJson large = ZoJson::Of(std::string(16 << 20, 'x'));
  system.Client().Update("/res", large, ZoJson());
  EXPECT_THAT(FailureOf(Read("/behind"), 50000), HasSubstr("could not be sent"));
  const Stopwatch watch;
  system.Disconnect();
  EXPECT_LT(watch.Elapsed(), prompt);
  done.set_value();
}

TEST_F(Shutdown, IsPromptUnderAFloodOfPushes) {
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("*")), "");
  Flood();
  EXPECT_TRUE(pushes.WaitForCount(100));
  const Stopwatch watch;
  system.Disconnect();
  EXPECT_LT(watch.Elapsed(), prompt);
  EndFlood();
}

}  // namespace
}  // namespace ZoTest
