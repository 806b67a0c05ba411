#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "qapi/address.h"
#include "qapi/library.h"
#include "qapi/lock.h"
#include "qapi/testing.h"
#include "qapi/thread.h"
#include "tests/support/deadline.h"
#include "tests/support/recorder.h"

namespace {

using ZoTest::Gate;

constexpr std::uint64_t generous = 100'000'000;  // microseconds
constexpr qStatus injected = -4711;

class FaultSwitch : public testing::Test {
 protected:
  FaultSwitch() { qTest_Reset(); }
  ~FaultSwitch() override { qTest_Reset(); }
};

// One operation with all that it needs to succeed any number of times.
struct Subject {
  const char* name;
  qOperation operation;
  std::function<qStatus()> call;
};

void PrintTo(const Subject& subject, std::ostream* out) {
  *out << subject.name;
}

qStatus ConstructLibrary() {
  qApiLib library = nullptr;
  const qStatus status = qApiLib_Construct(&library);
  EXPECT_EQ(library != nullptr, status == qStatus_Success);
  qObject_Destroy(library);
  return status;
}

qStatus ConstructLock() {
  qLock lock = nullptr;
  const qStatus status = qLock_Construct(&lock, "lock", 0);
  EXPECT_EQ(lock != nullptr, status == qStatus_Success);
  qObject_Destroy(lock);
  return status;
}

qStatus ConstructThread() {
  qThread thread = nullptr;
  const qStatus status = qThread_Construct(&thread);
  EXPECT_EQ(thread != nullptr, status == qStatus_Success);
  qObject_Destroy(thread);
  return status;
}

qStatus EnterWith(const std::function<qStatus(qLock)>& enter) {
  qLock lock = nullptr;
  EXPECT_EQ(qLock_Construct(&lock, "lock", 0), qStatus_Success);
  const qStatus status = enter(lock);
  EXPECT_EQ(qLock_Exit(lock), status == qStatus_Success ? qStatus_Success : qStatus_WrongState)
      << "a failed enter does not hold the lock";
  qObject_Destroy(lock);
  return status;
}

qStatus ExitLock() {
  qLock lock = nullptr;
  EXPECT_EQ(qLock_Construct(&lock, "lock", 0), qStatus_Success);
  EXPECT_EQ(qLock_Enter(lock), qStatus_Success);
  const qStatus status = qLock_Exit(lock);
  EXPECT_EQ(qLock_Enter(lock), qStatus_Success) << "left all the same";
  qObject_Destroy(lock);
  return status;
}

qStatus NameThread() {
  qThread thread = nullptr;
  EXPECT_EQ(qThread_Construct(&thread), qStatus_Success);
  const qStatus status = qThread_SetName(thread, "name");
  qObject_Destroy(thread);
  return status;
}

qStatus StartThread() {
  qThread thread = nullptr;
  std::atomic<int> runs{0};
  EXPECT_EQ(qThread_Construct(&thread), qStatus_Success);
  const qStatus status = qThread_Start(
      thread, [](void* argument) { return ++*static_cast<std::atomic<int>*>(argument); }, &runs);
  EXPECT_EQ(qThread_Join(thread, generous, nullptr), qStatus_Success);
  EXPECT_EQ(runs, status == qStatus_Success ? 1 : 0);
  qObject_Destroy(thread);
  return status;
}

qStatus JoinThread() {
  qThread thread = nullptr;
  EXPECT_EQ(qThread_Construct(&thread), qStatus_Success);
  const qStatus status = qThread_Join(thread, generous, nullptr);
  qObject_Destroy(thread);
  return status;
}

qStatus ParseAddress() {
  qIpAddress address{qIpFamily::V4, {9, 9, 9, 9}, 0};
  const qStatus status = qIpAddress_Parse("192.0.2.1", &address);
  EXPECT_EQ(address.family, status == qStatus_Success ? qIpFamily::V4 : qIpFamily::None);
  return status;
}

class EveryOperation : public FaultSwitch, public testing::WithParamInterface<Subject> {
 protected:
  qStatus Call() { return GetParam().call(); }
  qOperation Operation() const { return GetParam().operation; }
};

TEST_P(EveryOperation, SucceedsWhileTheSwitchIsOff) {
  EXPECT_EQ(Call(), qStatus_Success);
  EXPECT_EQ(qTest_CallCount(), 0u);
}

TEST_P(EveryOperation, FailsAtTheNthCallOnly) {
  qTest_FailOperation(Operation(), 3, injected);
  EXPECT_EQ(Call(), qStatus_Success);
  EXPECT_EQ(Call(), qStatus_Success);
  EXPECT_EQ(Call(), injected);
  EXPECT_EQ(Call(), qStatus_Success);
  EXPECT_EQ(qTest_FailureCount(), 1u);
}

TEST_P(EveryOperation, FailsAsOftenAsAsked) {
  qTest_FailOperation(Operation(), 2, injected, 2);
  EXPECT_EQ(Call(), qStatus_Success);
  EXPECT_EQ(Call(), injected);
  EXPECT_EQ(Call(), injected);
  EXPECT_EQ(Call(), qStatus_Success);
  EXPECT_EQ(qTest_FailureCount(), 2u);
}

TEST_P(EveryOperation, FailsForeverForZeroTimes) {
  qTest_FailOperation(Operation(), 1, injected, 0);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Call(), injected);
  }
  EXPECT_EQ(qTest_FailureCount(), 20u);
  qTest_Reset();
  EXPECT_EQ(Call(), qStatus_Success);
}

TEST_P(EveryOperation, IsOnlyCountedForTheZerothCall) {
  qTest_FailOperation(Operation(), 0, injected, 0);
  EXPECT_EQ(Call(), qStatus_Success);
  EXPECT_EQ(Call(), qStatus_Success);
  EXPECT_GE(qTest_CallCount(), 2u);
  EXPECT_EQ(qTest_FailureCount(), 0u);
}

TEST_P(EveryOperation, LeavesNothingBehindWhenItFails) {
  const std::uint64_t before = qTest_LiveObjects();
  qTest_FailOperation(Operation(), 1, injected, 1);
  EXPECT_EQ(Call(), injected);
  EXPECT_EQ(qTest_LiveObjects(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Operations, EveryOperation,
    testing::Values(Subject{"LibraryConstruct", qOperation::LibraryConstruct, ConstructLibrary},
                    Subject{"LockConstruct", qOperation::LockConstruct, ConstructLock},
                    Subject{"LockEnter", qOperation::LockEnter, [] { return EnterWith(qLock_Enter); }},
                    Subject{"LockEnterEx", qOperation::LockEnterEx,
                            [] { return EnterWith([](qLock lock) { return qLock_EnterEx(lock, 0); }); }},
                    Subject{"ThreadConstruct", qOperation::ThreadConstruct, ConstructThread},
                    Subject{"ThreadSetName", qOperation::ThreadSetName, NameThread},
                    Subject{"ThreadStart", qOperation::ThreadStart, StartThread},
                    Subject{"ThreadSleep", qOperation::ThreadSleep, [] { return qThread_Sleep(0); }},
                    Subject{"ThreadJoin", qOperation::ThreadJoin, JoinThread},
                    Subject{"LockExit", qOperation::LockExit, ExitLock},
                    Subject{"AddressParse", qOperation::AddressParse, ParseAddress}),
    [](const auto& subject) { return std::string(subject.param.name); });

TEST_F(FaultSwitch, OtherOperationsAreNeitherCountedNorFailed) {
  qTest_FailOperation(qOperation::LockEnterEx, 1, injected, 0);
  EXPECT_EQ(EnterWith(qLock_Enter), qStatus_Success);
  EXPECT_EQ(ParseAddress(), qStatus_Success);
  EXPECT_EQ(qTest_CallCount(), 0u);
}

TEST_F(FaultSwitch, AnyCountsOperationsOfEveryKind) {
  qTest_FailOperation(qOperation::Any, 3, injected);
  EXPECT_EQ(qThread_Sleep(0), qStatus_Success);
  EXPECT_EQ(ParseAddress(), qStatus_Success);
  EXPECT_EQ(ConstructLibrary(), injected);
  EXPECT_EQ(qThread_Sleep(0), qStatus_Success);
  EXPECT_EQ(qTest_CallCount(), 4u);
  EXPECT_EQ(qTest_FailureCount(), 1u);
}

TEST_F(FaultSwitch, NewSettingReplacesTheOldOneAndCountsFromZero) {
  qTest_FailOperation(qOperation::ThreadSleep, 1, injected, 0);
  EXPECT_EQ(qThread_Sleep(0), injected);
  qTest_FailOperation(qOperation::AddressParse, 2, injected);
  EXPECT_EQ(qTest_CallCount(), 0u);
  EXPECT_EQ(qTest_FailureCount(), 0u);
  EXPECT_EQ(qThread_Sleep(0), qStatus_Success);
  EXPECT_EQ(ParseAddress(), qStatus_Success);
  EXPECT_EQ(ParseAddress(), injected);
}

TEST_F(FaultSwitch, ResetStartsAtZero) {
  qTest_FailOperation(qOperation::ThreadSleep, 1, injected);
  EXPECT_EQ(qThread_Sleep(0), injected);
  qTest_Reset();
  EXPECT_EQ(qTest_CallCount(), 0u);
  EXPECT_EQ(qTest_FailureCount(), 0u);
}

TEST_F(FaultSwitch, FailedSleepReturnsAtOnce) {
  qTest_FailOperation(qOperation::ThreadSleep, 1, injected);
  const ZoTest::Stopwatch watch;
  EXPECT_EQ(qThread_Sleep(300'000'000), injected);
  EXPECT_LT(watch.Elapsed(), std::chrono::seconds(60));
}

struct Sleeper {
  Gate awake;
  std::atomic<bool> woken{false};
};

TEST_F(FaultSwitch, FailedJoinNeitherWaitsNorWakes) {
  qThread thread = nullptr;
  Sleeper sleeper;
  ASSERT_EQ(qThread_Construct(&thread), qStatus_Success);
  const auto body = [](void* argument) {
    auto& mine = *static_cast<Sleeper*>(argument);
    mine.awake.Wait();
    EXPECT_EQ(qThread_Sleep(20'000), qStatus_Success);
    mine.woken = true;
    return 0;
  };
  ASSERT_EQ(qThread_Start(thread, body, &sleeper), qStatus_Success);
  qTest_FailOperation(qOperation::ThreadJoin, 1, injected);
  // Were it to wait, it would wait for the gate, which is opened below.
  EXPECT_EQ(qThread_Join(thread, UINT64_MAX, nullptr), injected);
  EXPECT_FALSE(sleeper.woken);
  const ZoTest::Stopwatch watch;
  sleeper.awake.Open();
  const ZoTest::Deadline deadline;
  while (!sleeper.woken && !deadline.Expired()) {
    std::this_thread::yield();
  }
  EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(20)) << "the failed join woke the thread";
  EXPECT_EQ(qThread_Join(thread, generous, nullptr), qStatus_Success);
  qObject_Destroy(thread);
}

// A thread that sleeps (for no time) again and again, until told to end, and counts its failures.
struct Looper {
  std::atomic<bool> running{true};
  std::atomic<int> passes{0};
  std::atomic<int> failures{0};

  static int Run(void* argument) {
    auto& mine = *static_cast<Looper*>(argument);
    while (mine.running) {
      if (qThread_Sleep(0) != qStatus_Success) {
        ++mine.failures;
      }
      ++mine.passes;
      std::this_thread::yield();
    }
    return 0;
  }

  // After two more passes, one has begun since the call.
  bool WaitForAPass() const {
    const int seen = passes;
    const ZoTest::Deadline deadline;
    while (passes < seen + 2 && !deadline.Expired()) {
      std::this_thread::yield();
    }
    return passes >= seen + 2;
  }
};

TEST_F(FaultSwitch, FailureInOneThreadSparesTheOthers) {
  // The two names differ only beyond what the operating system keeps.
  Looper hit;
  Looper spared;
  qThread hitThread = nullptr;
  qThread sparedThread = nullptr;
  ASSERT_EQ(qThread_Construct(&hitThread), qStatus_Success);
  ASSERT_EQ(qThread_Construct(&sparedThread), qStatus_Success);
  ASSERT_EQ(qThread_SetName(hitThread, "ItemManager::ManageInvalidItems::Thread"), qStatus_Success);
  ASSERT_EQ(qThread_SetName(sparedThread, "ItemManager::ManageInvalidItems::Other"), qStatus_Success);
  ASSERT_EQ(qThread_Start(hitThread, Looper::Run, &hit), qStatus_Success);
  ASSERT_EQ(qThread_Start(sparedThread, Looper::Run, &spared), qStatus_Success);
  EXPECT_TRUE(hit.WaitForAPass());
  EXPECT_EQ(hit.failures, 0);
  qTest_FailOperationIn("ItemManager::ManageInvalidItems::Thread", qOperation::Any, 1, injected, 0);
  EXPECT_EQ(qThread_Sleep(0), qStatus_Success);
  EXPECT_TRUE(hit.WaitForAPass());
  EXPECT_TRUE(spared.WaitForAPass());
  hit.running = false;
  spared.running = false;
  // This thread is not the one that fails either.
  EXPECT_EQ(qThread_Join(hitThread, generous, nullptr), qStatus_Success);
  EXPECT_EQ(qThread_Join(sparedThread, generous, nullptr), qStatus_Success);
  EXPECT_GT(hit.failures, 0);
  EXPECT_EQ(spared.failures, 0);
  EXPECT_EQ(qTest_CallCount(), qTest_FailureCount());
  qObject_Destroy(hitThread);
  qObject_Destroy(sparedThread);
}

TEST_F(FaultSwitch, FailureInAThreadThatNamedItself) {
  qTest_FailOperationIn("a thread of somebody else's", qOperation::ThreadSleep, 1, injected, 0);
  std::thread([] {
    EXPECT_EQ(qThread_Sleep(0), qStatus_Success);
    qThread_NameCurrent("a thread of somebody else's");
    EXPECT_EQ(qThread_Sleep(0), injected);
  }).join();
  EXPECT_EQ(qThread_Sleep(0), qStatus_Success);
}

// A small life of everything that the library offers. Ends early at the first failure, and cleans up in any
// case.
qStatus UseEverything() {
  struct Handles {
    ~Handles() {
      qObject_Destroy(thread);
      qObject_Destroy(lock);
      qObject_Destroy(library);
    }
    qApiLib library = nullptr;
    qLock lock = nullptr;
    qThread thread = nullptr;
  } handles;
  qIpAddress address;
  for (const std::function<qStatus()>& step : std::initializer_list<std::function<qStatus()>>{
           [&] { return qApiLib_Construct(&handles.library); },
           [&] { return qIpAddress_Parse("::1", &address); },
           [&] { return qLock_Construct(&handles.lock, "lock", 0); },
           [&] { return qThread_Construct(&handles.thread); },
           [&] { return qThread_SetName(handles.thread, "worker"); },
           [&] {
             // The status comes back as the exit code, which only a join that succeeds hands out.
             return qThread_Start(
                 handles.thread, [](void*) { return int{qThread_Sleep(1)}; }, nullptr);
           },
           [&] { return qLock_Enter(handles.lock); },
           [&] { return qLock_Exit(handles.lock); },
           [&] { return qLock_EnterEx(handles.lock, 0); },
           [&] { return qLock_Exit(handles.lock); },
           [&] {
             int slept = 0;
             const qStatus joined = qThread_Join(handles.thread, generous, &slept);
             return joined != qStatus_Success ? joined : slept;
           },
       }) {
    if (const qStatus status = step(); status != qStatus_Success) {
      return status;
    }
  }
  return qStatus_Success;
}

TEST_F(FaultSwitch, EveryFailureInTurnIsReportedAndLeaksNothing) {
  const std::uint64_t before = qTest_LiveObjects();
  std::uint64_t nth = 1;
  for (;; ++nth) {
    ASSERT_LT(nth, 100u) << "the failures do not end";
    qTest_FailOperation(qOperation::Any, nth, injected);
    const qStatus status = UseEverything();
    // A thread whose join failed goes on without a handle.
    const ZoTest::Deadline deadline;
    while (qTest_LiveObjects() != before && !deadline.Expired()) {
      std::this_thread::yield();
    }
    EXPECT_EQ(qTest_LiveObjects(), before) << "call " << nth;
    if (qTest_FailureCount() == 0) {
      EXPECT_EQ(status, qStatus_Success);
      break;
    }
    EXPECT_TRUE(status == injected || status == qStatus_Success) << status;
    if (status == qStatus_Success) {
      ADD_FAILURE() << "call " << nth << " failed and nobody was told";
    }
  }
  EXPECT_EQ(nth, 13u) << "twelve operations, and one round without a failure";
}

}  // namespace
