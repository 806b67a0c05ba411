// Any one allocation of a thread that uses the link fails: the call ends with an outcome or an exception, nothing
// leaks, nothing ends the process, and the link works afterwards.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "qapi/testing.h"
#include "tests/qapi/failingnew.h"
#include "tests/sdk/linkfixture.h"

namespace ZoTest {
namespace {

class LinkMemory : public testing::Test {
 protected:
  // Lets each allocation of body, by this thread, fail in turn, until it gets through without; checks after each.
  static void FailEach(const std::function<void()>& prepare, const std::function<void()>& body,
                       const std::function<void()>& check) {
    constexpr int most = 5000;
    int nth = 1;
    for (bool failed = true; failed && nth < most; ++nth) {
      prepare();
      {
        const FailingNew failing(nth);
        try {
          body();
        } catch (const std::exception&) {
          // std::bad_alloc, or a sentence about what it led to: both are promised.
        }
        failed = failing.HasFailed();
      }
      SCOPED_TRACE("allocation " + std::to_string(nth));
      check();
      if (HasFailure()) {
        return;
      }
    }
    EXPECT_LT(nth, most) << "no end of allocations";
    EXPECT_GT(nth, 3) << "nothing was tried";
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

}  // namespace
}  // namespace ZoTest
