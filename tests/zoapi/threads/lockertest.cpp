#include "zoapi/threads/locker.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "qapi/library.h"
#include "qapi/testing.h"
#include "tests/support/deadline.h"
#include "tests/zoapi/debuglogrecorder.h"
#include "zoapi/exception.h"

namespace {

using Zo::Locker;

constexpr const char* lockerSource = "zoapi/zoapi/threads/locker";
constexpr qStatus injected = -4711;

class LockerTest : public testing::Test {
 protected:
  LockerTest() {
    qTest_Reset();
    EXPECT_EQ(qLock_Construct(lock.Out(), "lock under test", 0), qStatus_Success);
  }
  ~LockerTest() override { qTest_Reset(); }

  bool IsHeld() {
    bool held = false;
    std::thread([&] {
      held = qLock_EnterEx(lock.Get(), 0) != qStatus_Success;
      if (!held) {
        EXPECT_EQ(qLock_Exit(lock.Get()), qStatus_Success);
      }
    }).join();
    return held;
  }

  // The exception that making a locker raises.
  std::optional<Zo::Exception> Raised(long long timeout) {
    try {
      const Locker locker(lock, timeout);
    } catch (const Zo::Exception& exception) {
      return exception;
    }
    return std::nullopt;
  }

  Zo::Lock lock;
};

TEST_F(LockerTest, HoldsTheLockForItsScope) {
  EXPECT_FALSE(IsHeld());
  {
    const Locker locker(lock);
    EXPECT_TRUE(IsHeld());
  }
  EXPECT_FALSE(IsHeld());
}

TEST_F(LockerTest, TakesABareHandleToo) {
  {
    const Locker locker(lock.Get(), 1000);
    EXPECT_TRUE(IsHeld());
  }
  EXPECT_FALSE(IsHeld());
  EXPECT_THROW(Locker(static_cast<qLock>(nullptr)), Zo::Exception);
}

TEST_F(LockerTest, WaitsWithoutLimitByDefaultAndForMinusOne) {
  qTest_FailOperation(qOperation::LockEnter, 0, injected);
  { const Locker locker(lock); }
  { const Locker locker(lock, -1); }
  EXPECT_EQ(qTest_CallCount(), 2u);
  qTest_FailOperation(qOperation::LockEnterEx, 0, injected);
  { const Locker locker(lock); }
  EXPECT_EQ(qTest_CallCount(), 0u);
}

TEST_F(LockerTest, WaitsWithoutLimitForABareHandleToo) {
  qTest_FailOperation(qOperation::LockEnterEx, 0, injected);
  { const Locker locker(lock.Get()); }
  EXPECT_EQ(qTest_CallCount(), 0u);
  qTest_FailOperation(qOperation::LockEnter, 0, injected);
  { const Locker locker(lock.Get()); }
  EXPECT_EQ(qTest_CallCount(), 1u);
}

TEST_F(LockerTest, AnyOtherTimeOutIsGivenToEnterEx) {
  qTest_FailOperation(qOperation::LockEnterEx, 0, injected);
  for (const long long timeout : {0LL, 1LL, 1'000'000LL, -2LL}) {
    const Locker locker(lock, timeout);
    EXPECT_TRUE(IsHeld());
  }
  EXPECT_EQ(qTest_CallCount(), 8u) << "four by the lockers and four by the test's own question";
  qTest_FailOperation(qOperation::LockEnter, 0, injected);
  { const Locker locker(lock, 0); }
  EXPECT_EQ(qTest_CallCount(), 0u);
}

TEST_F(LockerTest, TimeOutIsInMicroseconds) {
  const Locker locker(lock);
  std::thread([&] {
    const ZoTest::Stopwatch watch;
    const auto raised = Raised(20'000);
    EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(20));
    EXPECT_LT(watch.Elapsed(), std::chrono::seconds(15));
    ASSERT_TRUE(raised);
    EXPECT_EQ(raised->Status(), qStatus_TimeOut);
  }).join();
}

TEST_F(LockerTest, FailedEnterRaises) {
  qTest_FailOperation(qOperation::LockEnter, 1, injected);
  const auto raised = Raised(-1);
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->Status(), injected);
  EXPECT_EQ(raised->Source(), lockerSource);
  EXPECT_EQ(raised->Function(), "Zo::Locker::Locker");
  EXPECT_EQ(raised->Line(), 36);
  EXPECT_EQ(raised->Message(), "");
  EXPECT_FALSE(IsHeld());
}

TEST_F(LockerTest, FailedEnterExRaises) {
  qTest_FailOperation(qOperation::LockEnterEx, 1, injected);
  const auto raised = Raised(1000);
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->Status(), injected);
  EXPECT_EQ(raised->Source(), lockerSource);
  EXPECT_EQ(raised->Function(), "Zo::Locker::Locker");
  EXPECT_EQ(raised->Line(), 40);
  EXPECT_EQ(raised->Message(), "");
  EXPECT_FALSE(IsHeld());
}

TEST_F(LockerTest, EnteringAgainRaisesAndKeepsTheOuterLock) {
  {
    const Locker outer(lock);
    const auto raised = Raised(-1);
    ASSERT_TRUE(raised);
    EXPECT_EQ(raised->Status(), qStatus_Deadlock);
    EXPECT_TRUE(IsHeld());
  }
  EXPECT_FALSE(IsHeld());
}

TEST_F(LockerTest, LockThatWasNeverConstructedRaises) {
  Zo::Lock empty;
  try {
    const Locker locker(empty);
    FAIL();
  } catch (const Zo::Exception& exception) {
    EXPECT_EQ(exception.Status(), qStatus_InvalidArgument);
    EXPECT_EQ(exception.Line(), 36);
  }
}

void ExpectFaultReport(const std::vector<ZoTest::RecordedEntry>& entries, qStatus status) {
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].line, 59);
  EXPECT_EQ(entries[0].source, lockerSource);
  EXPECT_EQ(entries[0].flags, 0x8000000000000002u);
  EXPECT_EQ(entries[0].function, "Zo::Locker::~Locker");
  EXPECT_EQ(entries[0].text, "Exception thrown in destructor");
  EXPECT_EQ(entries[1].line, 54);
  EXPECT_EQ(entries[1].source, lockerSource);
  EXPECT_EQ(entries[1].flags, 0u);
  EXPECT_EQ(entries[1].function, "Zo::Locker::~Locker");
  EXPECT_EQ(entries[1].text, Zo::Exception(54, lockerSource, status, "Zo::Locker::~Locker").what());
  EXPECT_EQ(entries[2].line, 54);
  EXPECT_EQ(entries[2].text, "  at Zo::Locker::~Locker (zoapi/zoapi/threads/locker:54)");
}

TEST_F(LockerTest, FailedExitIsReportedAndStaysInside) {
  const ZoTest::DebugLogRecorder log;
  EXPECT_NO_THROW({
    const Locker locker(lock);
    qTest_FailOperation(qOperation::LockExit, 1, injected);
  });
  ExpectFaultReport(log.Entries(), injected);
}

TEST_F(LockerTest, FailedExitDoesNotDisturbAnExceptionOnItsWay) {
  const ZoTest::DebugLogRecorder log;
  try {
    const Locker locker(lock);
    qTest_FailOperation(qOperation::LockExit, 1, injected);
    throw std::runtime_error("on its way");
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "on its way");
  }
  ExpectFaultReport(log.Entries(), injected);
}

TEST_F(LockerTest, LockerDestroyedByAnotherThreadIsReported) {
  const ZoTest::DebugLogRecorder log;
  {
    Locker locker(lock);
    std::thread([&locker] { const Locker taken(std::move(locker)); }).join();
  }
  ExpectFaultReport(log.Entries(), qStatus_WrongState);
  EXPECT_TRUE(IsHeld());
  EXPECT_EQ(qLock_Exit(lock.Get()), qStatus_Success);
}

TEST_F(LockerTest, MovedFromLockerHoldsNothing) {
  static_assert(std::is_nothrow_move_constructible_v<Locker>);
  static_assert(!std::is_copy_constructible_v<Locker>);
  static_assert(!std::is_move_assignable_v<Locker>);
  const ZoTest::DebugLogRecorder log;
  std::optional<Locker> outer;
  {
    Locker inner(lock);
    outer.emplace(std::move(inner));
    qTest_FailOperation(qOperation::LockExit, 0, injected);
  }
  EXPECT_EQ(qTest_CallCount(), 0u) << "a moved-from locker does nothing";
  EXPECT_TRUE(IsHeld());
  outer.reset();
  EXPECT_EQ(qTest_CallCount(), 1u);
  EXPECT_FALSE(IsHeld());
  EXPECT_TRUE(log.Entries().empty());
}

TEST_F(LockerTest, ExcludesThreadsFromEachOther) {
  constexpr int rounds = 10'000;
  int counter = 0;  // plain on purpose
  const auto count = [&] {
    for (int i = 0; i < rounds; ++i) {
      const Locker locker(lock);
      ++counter;
    }
  };
  std::thread first(count);
  std::thread second(count);
  first.join();
  second.join();
  EXPECT_EQ(counter, 2 * rounds);
}

TEST(Handle, DestroysWhatItOwns) {
  const std::uint64_t before = qTest_LiveObjects();
  {
    Zo::Lock lock;
    Zo::Thread thread;
    Zo::Library library;
    EXPECT_EQ(lock.Get(), nullptr);
    EXPECT_EQ(qLock_Construct(lock.Out(), "lock", 0), qStatus_Success);
    EXPECT_EQ(qThread_Construct(thread.Out()), qStatus_Success);
    EXPECT_EQ(qApiLib_Construct(library.Out()), qStatus_Success);
    EXPECT_NE(lock.Get(), nullptr);
    EXPECT_EQ(qTest_LiveObjects(), before + 3);
    library.Reset();
    EXPECT_EQ(library.Get(), nullptr);
    EXPECT_EQ(qTest_LiveObjects(), before + 2);
    library.Reset();
    EXPECT_EQ(qTest_LiveObjects(), before + 2);
  }
  EXPECT_EQ(qTest_LiveObjects(), before);
}

TEST(Handle, TakingAnotherObjectReleasesTheFirst) {
  const std::uint64_t before = qTest_LiveObjects();
  Zo::Thread thread;
  EXPECT_EQ(qThread_Construct(thread.Out()), qStatus_Success);
  EXPECT_EQ(qThread_Construct(thread.Out()), qStatus_Success);
  EXPECT_EQ(qTest_LiveObjects(), before + 1);
  EXPECT_EQ(qThread_Construct(nullptr), qStatus_InvalidArgument);
}

TEST(Handle, OwnsNothingAfterAFailedConstruction) {
  const std::uint64_t before = qTest_LiveObjects();
  Zo::Lock lock;
  qTest_FailOperation(qOperation::LockConstruct, 1, injected);
  EXPECT_EQ(qLock_Construct(lock.Out(), "lock", 0), injected);
  qTest_Reset();
  EXPECT_EQ(lock.Get(), nullptr);
  EXPECT_EQ(qTest_LiveObjects(), before);
}

}  // namespace
