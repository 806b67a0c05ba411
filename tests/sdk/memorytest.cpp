// Any one allocation of a thread that uses the link fails: the call ends with an outcome or an exception, nothing
// leaks, nothing ends the process, and the link works afterwards.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <utility>

#include "qapi/testing.h"
#include "tests/qapi/failingnew.h"
#include "tests/sdk/linkfixture.h"
#include "zovyrnsdk/link/incoming.h"
#include "zovyrnsdk/link/linkstate.h"
#include "zovyrnsdk/link/outgoing.h"
#include "zovyrnsdk/link/pendingrequest.h"

namespace ZoTest {
namespace {

class LinkMemory : public testing::Test {
 protected:
  // Lets each allocation of body, by this thread, fail in turn, until it gets through without, some times in a row: the
  // link's own thread may have done once what body needs memory for as a rule. Checks after each.
  static void FailEach(const std::function<void()>& prepare, const std::function<void()>& body,
                       const std::function<void()>& check) {
    constexpr int most = 5000;
    constexpr int throughEnough = 5;
    int failures = 0;
    int nth = 1;
    for (int through = 0; through < throughEnough && nth < most; ++nth) {
      prepare();
      bool failed = false;
      {
        const FailingNew failing(nth);
        try {
          body();
        } catch (const std::exception&) {
          // std::bad_alloc, or a sentence about what it led to: both are promised.
        }
        failed = failing.HasFailed();
      }
      failures += failed ? 1 : 0;
      through = failed ? 0 : through + 1;
      SCOPED_TRACE("allocation " + std::to_string(nth));
      check();
      if (HasFailure()) {
        return;
      }
    }
    EXPECT_LT(nth, most) << "no end of allocations";
    EXPECT_GE(failures, 2) << "nothing was tried";
  }

  void Renew() {
    system.reset();
    system = std::make_unique<ZoSystem>(Loopback(), sensor.Port());
  }
  void Connected() {
    Renew();
    system->Connect();
  }
  void WorksAgain() {
    system->Connect();
    EXPECT_EQ(system->Client().Read("/res", ZoJson(), ZoJson()).GetResponse(patience).Payload().ToString(),
              "{\"value\":1}");
  }

  FakeSensor sensor;
  std::unique_ptr<ZoSystem> system;
};

TEST_F(LinkMemory, ConnectFailsWholly) {
  FailEach([this] { Renew(); }, [this] { system->Connect(); }, [this] { WorksAgain(); });
}

TEST_F(LinkMemory, RequestsNeverRaise) {
  FailEach([this] { Connected(); },
           [this] {
             try {
               system->Client().Read("/res", ZoJson(), ZoJson());
             } catch (...) {  // whatever it is
               ADD_FAILURE();
             }
           },
           [this] { WorksAgain(); });
}

TEST_F(LinkMemory, AnswersAreGotLaterOrNotAtAll) {
  const auto request = [this] { return system->Client().Read("/res", ZoJson(), ZoJson()); };
  std::unique_ptr<ZoTransaction> transaction;
  FailEach(
      [&] {
        Connected();
        transaction = std::make_unique<ZoTransaction>(request());
      },
      [&] { transaction->GetResponse(second / 2); }, [this] { WorksAgain(); });
}

// The own thread's allocations between one handler and the next.
TEST_F(LinkMemory, PushesAreHandedOnLater) {
  std::binary_semaphore entered(0);
  std::binary_semaphore released(0);
  std::binary_semaphore handedOn(0);
  std::optional<FailingNew> failing;  // of the own thread, which alone touches it
  bool failed = true;
  int nth = 0;
  Renew();
  const std::shared_ptr<void> endFirst(nullptr, [this](void*) { system.reset(); });
  system->Client().SetStreamHandler([&](const std::shared_ptr<ZoStreamResponse>& response) {
    const bool hasFailed = failing && failing->HasFailed();
    failing.reset();
    if (response->Path() == "/first") {
      entered.release();
      EXPECT_TRUE(released.try_acquire_for(kLimit));
      failing.emplace(nth);
    } else {
      failed = hasFailed;
      handedOn.release();
    }
  });
  system->Connect();
  for (const char* uri : {"/first", "/second"}) {
    system->Client().StartStream(uri, ZoJson(), ZoJson()).GetResponse(patience);
  }
  constexpr int most = 100;
  while (failed && nth < most) {
    ++nth;
    SCOPED_TRACE("allocation " + std::to_string(nth));
    ASSERT_TRUE(sensor.Push(R"({"event":"stream","uri":"/first","payload":1})"));
    ASSERT_TRUE(entered.try_acquire_for(kLimit));
    // It is there when the answer behind it is, and then waits for the own thread.
    ASSERT_TRUE(sensor.Push(R"({"event":"stream","uri":"/second","payload":2})"));
    EXPECT_NO_THROW(system->Client().Read("/res", ZoJson(), ZoJson()).GetResponse(patience));
    released.release();
    ASSERT_TRUE(handedOn.try_acquire_for(kLimit)) << "the second push is lost";
  }
  EXPECT_LT(nth, most) << "no end of allocations";
  EXPECT_GT(nth, 1) << "nothing was tried";
}

TEST_F(LinkMemory, DisconnectEndsEverythingAllTheSame) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    if (request.uri != "/mute") {
      FakeSensor::Grant(peer, request);
    }
  });
  std::unique_ptr<ZoTransaction> mute;
  FailEach(
      [&] {
        Connected();
        mute = std::make_unique<ZoTransaction>(system->Client().Read("/mute", ZoJson(), ZoJson()));
      },
      [this] { system->Disconnect(); },
      [&] {
        EXPECT_FALSE(system->IsConnected());
        EXPECT_THROW(mute->GetResponse(patience), std::runtime_error);
        WorksAgain();
      });
}

// What the loop raised costs the session, in which the sensor granted what it was asked for.
TEST(StateMemory, GrantForWhichThereIsNoMemoryIsAskedForInTheNextSession) {
  using ZoSdk::Clock;
  const std::string uri = "/a/name/that/needs/memory/for/itself";
  int nth = 1;
  for (bool failed = true; failed && nth < 1000; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    ZoSdk::LinkState state;
    const auto pending = std::make_shared<ZoPendingRequest>();
    state.SessionOpened(Clock::now());
    state.Request(ZoRequestMethod_StartStream, uri,
                  ZoSdk::ComposeRequest(ZoRequestMethod_StartStream, uri, nullptr), pending, Clock::now());
    EXPECT_TRUE(state.NextMessage(Clock::now()));
    ZoJsonShapes shapes;
    ZoSdk::Incoming grant = ZoSdk::ReadIncoming(R"({"id":1,"status":1,"payload":{"v":1}})", shapes);
    {
      const FailingNew failing(nth);
      try {
        state.Receive(std::move(grant), Clock::now());
      } catch (const std::bad_alloc&) {
        // The connection gives the session up.
      }
      failed = failing.HasFailed();
    }
    state.SessionLost("there was no memory to go on", Clock::now());
    EXPECT_TRUE(pending->Settled());
    state.SessionOpened(Clock::now());
    const auto message = state.NextMessage(Clock::now());
    ASSERT_TRUE(message);
    EXPECT_EQ(ZoJson::ParseString(*message).At("uri").Get<std::string>(), uri);
  }
  EXPECT_GT(nth, 3) << "nothing was tried";
}

}  // namespace
}  // namespace ZoTest
