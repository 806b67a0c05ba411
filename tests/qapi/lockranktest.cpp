#include "qapi/lockrank.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "qapi/lock.h"

namespace {

#ifdef NDEBUG

TEST(LockRank, IsNotCheckedInBuildsWithNdebug) {
  qLockRank_Entering("inner", 70);
  qLockRank_Entering("outer", 10);
  EXPECT_EQ(qLockRank_Depth(), 0);
  qLockRank_Left("never entered", 40);
}

#else

// Two locks that any test may enter in either order.
class LockRank : public testing::Test {
 protected:
  LockRank() {
    EXPECT_EQ(qLock_Construct(&outer, "outer lock", 10), qStatus_Success);
    EXPECT_EQ(qLock_Construct(&inner, "inner lock", 70), qStatus_Success);
  }
  ~LockRank() override {
    qObject_Destroy(inner);
    qObject_Destroy(outer);
    EXPECT_EQ(qLockRank_Depth(), 0);
  }

  qLock outer = nullptr;
  qLock inner = nullptr;
};

using LockRankDeathTest = LockRank;

TEST_F(LockRank, RisingRanksPass) {
  EXPECT_EQ(qLock_Enter(outer), qStatus_Success);
  EXPECT_EQ(qLockRank_Depth(), 1);
  EXPECT_EQ(qLock_EnterEx(inner, 0), qStatus_Success);
  EXPECT_EQ(qLockRank_Depth(), 2);
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
  EXPECT_EQ(qLock_Exit(outer), qStatus_Success);
}

TEST_F(LockRank, LocksMayBeLeftInAnyOrder) {
  EXPECT_EQ(qLock_Enter(outer), qStatus_Success);
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  EXPECT_EQ(qLock_Exit(outer), qStatus_Success);
  EXPECT_EQ(qLockRank_Depth(), 1);
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
}

TEST_F(LockRank, EveryThreadHasAnOrderOfItsOwn) {
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  std::thread([&] {
    EXPECT_EQ(qLockRank_Depth(), 0);
    EXPECT_EQ(qLock_Enter(outer), qStatus_Success);
    EXPECT_EQ(qLock_Exit(outer), qStatus_Success);
  }).join();
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
}

TEST_F(LockRank, LockThatWasNotEnteredInTimeCountsNoLonger) {
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  std::thread([&] {
    EXPECT_EQ(qLock_EnterEx(inner, 0), qStatus_TimeOut);
    EXPECT_EQ(qLockRank_Depth(), 0);
  }).join();
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
}

TEST_F(LockRank, EnteringAgainIsAStatusNotAnAbort) {
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  EXPECT_EQ(qLock_Enter(inner), qStatus_Deadlock);
  EXPECT_EQ(qLockRank_Depth(), 1);
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
}

TEST_F(LockRank, LeavingALockOfAnotherThreadChangesNothing) {
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  std::thread([&] {
    EXPECT_EQ(qLock_Exit(inner), qStatus_WrongState);
    EXPECT_EQ(qLockRank_Depth(), 0);
  }).join();
  EXPECT_EQ(qLockRank_Depth(), 1);
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
}

TEST_F(LockRank, UnrankedLocksAreNotChecked) {
  qLock unranked = nullptr;
  ASSERT_EQ(qLock_Construct(&unranked, "unranked", 0), qStatus_Success);
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  EXPECT_EQ(qLock_Enter(unranked), qStatus_Success);
  EXPECT_EQ(qLockRank_Depth(), 1);
  EXPECT_EQ(qLock_Exit(unranked), qStatus_Success);
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
  qObject_Destroy(unranked);
}

TEST_F(LockRankDeathTest, FallingRankAbortsWithBothNames) {
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  EXPECT_DEATH(qLock_Enter(outer),
               R"(lock rank: entering "outer lock" \(rank 10\) while holding "inner lock" \(rank 70\))");
  EXPECT_DEATH(qLock_EnterEx(outer, 0), "outer lock.*inner lock");
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
}

TEST_F(LockRankDeathTest, EqualRankAborts) {
  qLock other = nullptr;
  ASSERT_EQ(qLock_Construct(&other, "other inner lock", 70), qStatus_Success);
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  EXPECT_DEATH(qLock_Enter(other), "other inner lock.*inner lock");
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
  qObject_Destroy(other);
}

// After the outer lock was left first, the inner one must still bar the way.
TEST_F(LockRankDeathTest, LockHeldAloneStillCounts) {
  EXPECT_EQ(qLock_Enter(outer), qStatus_Success);
  EXPECT_EQ(qLock_Enter(inner), qStatus_Success);
  EXPECT_EQ(qLock_Exit(outer), qStatus_Success);
  EXPECT_DEATH(qLock_Enter(outer), "outer lock.*inner lock");
  EXPECT_EQ(qLock_Exit(inner), qStatus_Success);
}

TEST_F(LockRankDeathTest, LeavingWhatIsNotHeldAborts) {
  EXPECT_DEATH(qLockRank_Left("never entered", 40), "never entered");
}

TEST_F(LockRankDeathTest, MoreLocksThanAnyOrderHasAbort) {
  const auto enterMany = [] {
    for (int rank = 1; rank <= 1000; ++rank) {
      qLockRank_Entering("one of many", rank);
    }
  };
  EXPECT_DEATH(enterMany(), "too many locks");
}

#endif

}  // namespace
