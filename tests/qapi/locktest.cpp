#include "qapi/lock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "qapi/testing.h"
#include "qapi/thread.h"
#include "tests/support/asleep.h"
#include "tests/support/deadline.h"
#include "tests/support/recorder.h"

namespace {

using ZoTest::FallsAsleep;
using ZoTest::Gate;
using ZoTest::Stopwatch;

constexpr std::uint64_t generous = 100'000'000;  // microseconds

class LockTest : public testing::Test {
 protected:
  LockTest() { EXPECT_EQ(qLock_Construct(&lock, "lock under test", 0), qStatus_Success); }
  ~LockTest() override { qObject_Destroy(lock); }

  qLock TheLock() const { return lock; }

  // Runs action on a thread of its own and waits for it.
  template <typename Action>
  static void Elsewhere(Action action) {
    std::thread(action).join();
  }

  qStatus EnterExElsewhere(std::uint64_t timeout) const {
    qStatus status = qStatus_Failure;
    Elsewhere([&] {
      status = qLock_EnterEx(TheLock(), timeout);
      if (status == qStatus_Success) {
        EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
      }
    });
    return status;
  }

 private:
  qLock lock = nullptr;
};

TEST_F(LockTest, IsEnteredAndLeft) {
  EXPECT_EQ(qLock_Enter(TheLock()), qStatus_Success);
  EXPECT_EQ(EnterExElsewhere(0), qStatus_TimeOut);
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
  EXPECT_EQ(EnterExElsewhere(0), qStatus_Success);
}

TEST_F(LockTest, EnterExOfAFreeLockSucceedsWithoutWaiting) {
  EXPECT_EQ(qLock_EnterEx(TheLock(), 0), qStatus_Success);
  EXPECT_EQ(EnterExElsewhere(0), qStatus_TimeOut);
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
}

TEST_F(LockTest, EnteringAgainIsADeadlockAndKeepsTheLock) {
  ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
  EXPECT_EQ(qLock_Enter(TheLock()), qStatus_Deadlock);
  EXPECT_EQ(qLock_EnterEx(TheLock(), 0), qStatus_Deadlock);
  EXPECT_EQ(qLock_EnterEx(TheLock(), generous), qStatus_Deadlock);
  EXPECT_EQ(EnterExElsewhere(0), qStatus_TimeOut);
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success) << "entered once, left once";
  EXPECT_EQ(EnterExElsewhere(0), qStatus_Success);
}

TEST_F(LockTest, LeavingAFreeLockIsRefused) {
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_WrongState);
}

TEST_F(LockTest, LeavingTwiceIsRefused) {
  ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_WrongState);
}

TEST_F(LockTest, OnlyTheOwnerLeaves) {
  ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
  Elsewhere([&] { EXPECT_EQ(qLock_Exit(TheLock()), qStatus_WrongState); });
  EXPECT_EQ(EnterExElsewhere(0), qStatus_TimeOut) << "still held";
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
}

TEST_F(LockTest, EnterExWaitsItsTimeAndNotLess) {
  ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
  Elsewhere([&] {
    const Stopwatch watch;
    EXPECT_EQ(qLock_EnterEx(TheLock(), 50'000), qStatus_TimeOut);
    EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(50));
  });
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
}

TEST_F(LockTest, WaitersGetTheLockWhenItIsLeft) {
  for (const std::uint64_t timeout : {generous, UINT64_MAX}) {
    ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
    Gate gate;
    std::atomic<bool> left{false};
    std::thread waiter([&] {
      EXPECT_EQ(qLock_EnterEx(TheLock(), 0), qStatus_TimeOut);
      gate.Wait();
      EXPECT_EQ(qLock_EnterEx(TheLock(), timeout), qStatus_Success);
      EXPECT_TRUE(left) << "entered while another thread held the lock";
      EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
    });
    EXPECT_TRUE(gate.WaitForArrivals());
    gate.Open();
    // Gives the waiter time to be wrong, by taking the endless time-out for a short one; nothing depends on
    // it.
    EXPECT_EQ(qThread_Sleep(20'000), qStatus_Success);
    left = true;
    EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
    waiter.join();
  }
}

TEST_F(LockTest, ExcludesThreadsFromEachOther) {
  constexpr int rounds = 20'000;
  int counter = 0;  // plain on purpose: the lock is all that protects it
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
        ++counter;
        ASSERT_EQ(qLock_Exit(TheLock()), qStatus_Success);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, 4 * rounds);
}

// Waiters whose time is up leave while others are being woken: no wake-up may be lost with them, or the
// threads that wait without limit never end.
TEST_F(LockTest, TimeOutsLoseNoWakeUp) {
  constexpr int rounds = 3'000;
  int counter = 0;
  std::atomic<int> patientEntries{0};
  std::atomic<int> hastyEntries{0};
  const auto patient = [&] {
    for (int round = 0; round < rounds; ++round) {
      ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
      ++counter;
      std::this_thread::yield();
      ASSERT_EQ(qLock_Exit(TheLock()), qStatus_Success);
      ++patientEntries;
    }
  };
  const auto hasty = [&] {
    for (int round = 0; round < rounds; ++round) {
      const qStatus status = qLock_EnterEx(TheLock(), static_cast<std::uint64_t>(round % 40));
      if (status == qStatus_Success) {
        ++counter;
        ++hastyEntries;
        ASSERT_EQ(qLock_Exit(TheLock()), qStatus_Success);
      } else {
        ASSERT_EQ(status, qStatus_TimeOut);
      }
    }
  };
  std::vector<std::thread> threads;
  threads.emplace_back(patient);
  threads.emplace_back(hasty);
  threads.emplace_back(patient);
  threads.emplace_back(hasty);
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(patientEntries, 2 * rounds);
  EXPECT_EQ(counter, patientEntries + hastyEntries);
}

// The thread that waited may destroy the lock as soon as it has entered and left it, while the one that let
// it in is still on its way out of qLock_Exit. The address sanitizer watches.
TEST(Lock, WhoeverEntersNextMayDestroyIt) {
  for (int round = 0; round < 500; ++round) {
    qLock lock = nullptr;
    ASSERT_EQ(qLock_Construct(&lock, "short-lived", 0), qStatus_Success);
    Gate gate;
    std::thread first([&] {
      EXPECT_EQ(qLock_Enter(lock), qStatus_Success);
      gate.Open();
      EXPECT_EQ(qLock_Exit(lock), qStatus_Success);
    });
    ASSERT_TRUE(gate.Wait());
    EXPECT_EQ(qLock_Enter(lock), qStatus_Success);
    EXPECT_EQ(qLock_Exit(lock), qStatus_Success);
    qObject_Destroy(lock);
    first.join();
  }
}

TEST(Lock, InvalidArgumentsAreRefused) {
  EXPECT_EQ(qLock_Construct(nullptr, "lock", 0), qStatus_InvalidArgument);
  int something = 0;
  for (const auto& [name, rank] : {std::pair<const char*, int>{nullptr, 0}, {"lock", -1}}) {
    qLock lock = reinterpret_cast<qLock>(&something);
    EXPECT_EQ(qLock_Construct(&lock, name, rank), qStatus_InvalidArgument);
    EXPECT_EQ(lock, nullptr);
  }
  EXPECT_EQ(qLock_Enter(nullptr), qStatus_InvalidArgument);
  EXPECT_EQ(qLock_EnterEx(nullptr, 0), qStatus_InvalidArgument);
  EXPECT_EQ(qLock_Exit(nullptr), qStatus_InvalidArgument);
  qObject_Destroy(qLock{nullptr});
}

TEST(Lock, DestroyedLockIsNoLongerAlive) {
  const std::uint64_t before = qTest_LiveObjects();
  qLock lock = nullptr;
  ASSERT_EQ(qLock_Construct(&lock, "lock", 0), qStatus_Success);
  EXPECT_EQ(qTest_LiveObjects(), before + 1);
  qObject_Destroy(lock);
  EXPECT_EQ(qTest_LiveObjects(), before);
}

// Enters a lock on a thread of its own, notes its letter when it is in, and leaves.
class Waiting {
 public:
  Waiting(qLock lock, char letter, std::string& order, std::uint64_t timeout = generous)
      : thread([=, this, &order] {
          id = ::gettid();
          status = qLock_EnterEx(lock, timeout);
          if (status == qStatus_Success) {
            order += letter;
            EXPECT_EQ(qLock_Exit(lock), qStatus_Success);
          }
        }) {}
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;
  ~Waiting() { End(); }

  bool Waits() const { return FallsAsleep(id); }
  qStatus End() {
    if (thread.joinable()) {
      thread.join();
    }
    return status;
  }

 private:
  std::atomic<pid_t> id = 0;
  qStatus status = qStatus_Failure;
  std::thread thread;
};

TEST_F(LockTest, GoesToWhoWaitsBeforeWhoeverLeftEntersAgain) {
  std::string order;
  ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
  Waiting waiting(TheLock(), 'w', order);
  ASSERT_TRUE(waiting.Waits());
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
  ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
  order += 'a';
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
  EXPECT_EQ(waiting.End(), qStatus_Success);
  EXPECT_EQ(order, "wa");
}

TEST_F(LockTest, GoesToThoseWhoWaitInTheirOrder) {
  std::string order;
  ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
  Waiting first(TheLock(), '1', order);
  ASSERT_TRUE(first.Waits());
  Waiting second(TheLock(), '2', order);
  ASSERT_TRUE(second.Waits());
  Waiting third(TheLock(), '3', order);
  ASSERT_TRUE(third.Waits());
  EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
  for (Waiting* const each : {&first, &second, &third}) {
    EXPECT_EQ(each->End(), qStatus_Success);
  }
  EXPECT_EQ(order, "123");
}

// From the front, the middle and the end of those who wait.
TEST_F(LockTest, WhoeverGivesUpIsPassedOver) {
  for (const int impatient : {0, 1, 2}) {
    std::string order;
    ASSERT_EQ(qLock_Enter(TheLock()), qStatus_Success);
    std::deque<Waiting> all;
    for (int each = 0; each < 3; ++each) {
      constexpr std::uint64_t second = 1'000'000;
      all.emplace_back(TheLock(), static_cast<char>('0' + each), order,
                       each == impatient ? second : generous);
      ASSERT_TRUE(all.back().Waits());
    }
    EXPECT_EQ(all[static_cast<std::size_t>(impatient)].End(), qStatus_TimeOut);
    EXPECT_EQ(qLock_Exit(TheLock()), qStatus_Success);
    for (Waiting& each : all) {
      each.End();
    }
    EXPECT_EQ(order, impatient == 0 ? "12" : impatient == 1 ? "02" : "01");
  }
}

}  // namespace
