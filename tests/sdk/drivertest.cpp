#include "zovyrnsdk/link/driver.h"

#include <gtest/gtest.h>

#include <chrono>

#include "zovyrnsdk/link/eventloop.h"

namespace ZoSdk {
namespace {

constexpr std::chrono::seconds longWait{10};  // nothing here takes so long

class OwnThread : public testing::Test {
 protected:
  // How long it waits for something to do.
  Clock::duration Serve() {
    const Time before = Clock::now();
    driver.Serve(before + longWait);
    return Clock::now() - before;
  }

  EventLoop loop;
  Driver driver{loop, [] {}, [] {}};
};

TEST_F(OwnThread, GoesBackToAPushThatCameBeforeItsTurn) {
  driver.PushArrived();
  EXPECT_LT(Serve(), longWait / 2);
}

TEST_F(OwnThread, DrivesWhenItHasSeenThePush) {
  driver.PushArrived();
  Serve();
  bool driven = false;
  loop.Post([&] { driven = true; });
  EXPECT_LT(Serve(), longWait / 2);
  EXPECT_TRUE(driven);
}

}  // namespace
}  // namespace ZoSdk
