#include "tests/soak/callboard.h"

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <thread>
#include <vector>

namespace ZoSoak {
namespace {

class Board : public testing::Test {
 protected:
  std::ostringstream out;
  Breaches breaches{1, out};
  CallBoard board{2, breaches};
};

TEST_F(Board, HasNothingToSayOfCallsThatEnd) {
  { const CallBoard::Call call(board, 0, CallKind::Read); }
  EXPECT_TRUE(board.Stuck(Clock::now() + std::chrono::hours(1)).empty());
  EXPECT_EQ(board.Of(CallKind::Read).Count(), 1u);
}

TEST_F(Board, NamesACallWhenNoneEndsForLongerThanTheSlowestMayTake) {
  const CallBoard::Call call(board, 0, CallKind::Read);
  EXPECT_TRUE(board.Stuck(Clock::now() + LongestLimit() - std::chrono::seconds(1)).empty());
  const std::vector<std::string> stuck = board.Stuck(Clock::now() + LongestLimit() + std::chrono::seconds(1));
  ASSERT_EQ(stuck.size(), 1u);
  EXPECT_TRUE(stuck[0].starts_with("ReadItem has not returned for")) << stuck[0];
  EXPECT_TRUE(board.Stuck(Clock::now() + LongestLimit() + std::chrono::seconds(2)).empty()) << "said twice";
}

TEST_F(Board, LetsACallAloneRunByItself) {
  std::atomic<int> inside = 0;
  std::atomic<bool> met = false;
  const auto work = [&](std::size_t seat, bool alone) {
    for (int i = 0; i < 2000; ++i) {
      const CallBoard::Call call(board, seat, CallKind::Write, alone);
      ++inside;
      met = met || (alone && inside > 1);
      --inside;
    }
  };
  std::thread other(work, 0, false);
  work(1, true);
  other.join();
  EXPECT_FALSE(met);
  EXPECT_EQ(board.AloneCount(), 2000u);
  EXPECT_EQ(board.Of(CallKind::Write).Count(), 4000u);
}

TEST_F(Board, LimitsFollowTheGuarantees) {
  EXPECT_GE(LimitOf(CallKind::Create), std::chrono::seconds(3));
  EXPECT_LT(LimitOf(CallKind::Create), LimitOf(CallKind::Read));
  EXPECT_EQ(LongestLimit(), LimitOf(CallKind::Subscribe));
}

}  // namespace
}  // namespace ZoSoak
