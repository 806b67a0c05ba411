// Threads whose handles are destroyed before they end.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "qapi/lock.h"
#include "qapi/testing.h"
#include "qapi/thread.h"
#include "tests/support/deadline.h"
#include "tests/support/recorder.h"

namespace {

using ZoTest::Gate;

// What a straggler touches is its own, as its owner may be gone.
struct Work {
  std::shared_ptr<Gate> gate;
  std::shared_ptr<std::atomic<int>> ended;
};

int Straggle(void* argument) {
  const std::unique_ptr<Work> work(static_cast<Work*>(argument));
  EXPECT_TRUE(work->gate->Wait());
  ++*work->ended;
  return 0;
}

class Straggler : public testing::Test {
 protected:
  void StartAndAbandon() {
    qThread thread = nullptr;
    ASSERT_EQ(qThread_Construct(&thread), qStatus_Success);
    auto work = std::make_unique<Work>(Work{gate, ended});
    ASSERT_EQ(qThread_Start(thread, Straggle, work.get()), qStatus_Success);
    work.release();
    qObject_Destroy(thread);
  }

  static bool WaitForLiveObjects(std::uint64_t count) {
    const ZoTest::Deadline deadline;
    while (qTest_LiveObjects() != count) {
      if (deadline.Expired()) {
        return false;
      }
      std::this_thread::yield();
    }
    return true;
  }

  const std::uint64_t before = qTest_LiveObjects();
  std::shared_ptr<Gate> gate = std::make_shared<Gate>();
  std::shared_ptr<std::atomic<int>> ended = std::make_shared<std::atomic<int>>(0);
};

TEST_F(Straggler, RunsOnAfterItsHandleWasDestroyed) {
  StartAndAbandon();
  EXPECT_EQ(qTest_LiveObjects(), before + 1) << "the thread itself";
  EXPECT_TRUE(gate->WaitForArrivals());
  gate->Open();
  EXPECT_TRUE(WaitForLiveObjects(before));
  EXPECT_EQ(*ended, 1);
}

TEST_F(Straggler, IsJoinedWhenItIsFoundToHaveEnded) {
  StartAndAbandon();
  gate->Open();
  const ZoTest::Deadline deadline;
  // Counted by what the body owns: the thread's copy of the gate goes with the body, the object only with the
  // join.
  while (gate.use_count() > 1 && !deadline.Expired()) {
    std::this_thread::yield();
  }
  EXPECT_EQ(*ended, 1);
  EXPECT_TRUE(WaitForLiveObjects(before));
}

TEST_F(Straggler, ManyAtOnceAreAllJoined) {
  constexpr int count = 30;
  for (int i = 0; i < count; ++i) {
    StartAndAbandon();
  }
  EXPECT_EQ(qTest_LiveObjects(), before + count);
  gate->Open();
  EXPECT_TRUE(WaitForLiveObjects(before));
  EXPECT_EQ(*ended, count);
}

TEST_F(Straggler, JoinThatTimedOutLeavesAStragglerBehind) {
  qThread thread = nullptr;
  ASSERT_EQ(qThread_Construct(&thread), qStatus_Success);
  ASSERT_EQ(qThread_Start(thread, Straggle, new Work{gate, ended}), qStatus_Success);
  EXPECT_EQ(qThread_Join(thread, 1000, nullptr), qStatus_TimeOut);
  qObject_Destroy(thread);
  EXPECT_EQ(qTest_LiveObjects(), before + 1);
  gate->Open();
  EXPECT_TRUE(WaitForLiveObjects(before));
}

TEST_F(Straggler, ThreadThatEndedUnjoinedIsJoinedToo) {
  qThread thread = nullptr;
  ASSERT_EQ(qThread_Construct(&thread), qStatus_Success);
  gate->Open();
  ASSERT_EQ(qThread_Start(thread, Straggle, new Work{gate, ended}), qStatus_Success);
  const ZoTest::Deadline deadline;
  while (gate.use_count() > 1 && !deadline.Expired()) {
    std::this_thread::yield();
  }
  qObject_Destroy(thread);
  EXPECT_TRUE(WaitForLiveObjects(before));
  EXPECT_EQ(*ended, 1);
}

TEST_F(Straggler, HandleThatNeverStartedLeavesNothing) {
  qThread thread = nullptr;
  ASSERT_EQ(qThread_Construct(&thread), qStatus_Success);
  EXPECT_EQ(qTest_LiveObjects(), before + 1);
  qObject_Destroy(thread);
  EXPECT_EQ(qTest_LiveObjects(), before);
}

struct SelfDestroying {
  qThread thread = nullptr;
  Gate handleKnown;
  Gate destroyed;
};

TEST_F(Straggler, ThreadMayDestroyItsOwnHandle) {
  SelfDestroying self;
  ASSERT_EQ(qThread_Construct(&self.thread), qStatus_Success);
  const auto body = [](void* argument) {
    auto& mine = *static_cast<SelfDestroying*>(argument);
    EXPECT_TRUE(mine.handleKnown.Wait());
    qObject_Destroy(mine.thread);
    EXPECT_EQ(qThread_Sleep(1000), qStatus_Success) << "the thread's own reference keeps it alive";
    qThread_NameCurrent("renamed");
    mine.destroyed.Open();
    return 0;
  };
  ASSERT_EQ(qThread_Start(self.thread, body, &self), qStatus_Success);
  self.handleKnown.Open();
  EXPECT_TRUE(self.destroyed.Wait());
  EXPECT_TRUE(WaitForLiveObjects(before));
}

TEST_F(Straggler, AdoptedThreadIsJoinedWhenItEnds) {
  std::thread thread([theirGate = gate, theirEnded = ended] {
    EXPECT_TRUE(theirGate->Wait());
    ++*theirEnded;
  });
  qThread_Adopt(std::move(thread));
  EXPECT_EQ(qTest_LiveObjects(), before + 1);
  gate->Open();
  EXPECT_TRUE(WaitForLiveObjects(before));
  EXPECT_EQ(*ended, 1);
}

TEST_F(Straggler, ThreadThatIsNotJoinableIsDropped) {
  qThread_Adopt(std::thread());
  EXPECT_EQ(qTest_LiveObjects(), before);
}

}  // namespace
