#include "qapi/thread.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "qapi/library.h"
#include "qapi/testing.h"
#include "tests/support/childprocess.h"
#include "tests/support/deadline.h"
#include "tests/support/recorder.h"

namespace {

using ZoTest::Gate;
using ZoTest::Stopwatch;

constexpr std::uint64_t second = 1'000'000;  // microseconds
constexpr std::uint64_t generous = 100 * second;
constexpr std::uint64_t longSleep = 300 * second;  // longer than any test may take

// A thread of the base library that runs a function; every object is gone at the end of the test.
class ThreadTest : public testing::Test {
 protected:
  ThreadTest() { EXPECT_EQ(qThread_Construct(&thread), qStatus_Success); }
  ~ThreadTest() override {
    qObject_Destroy(thread);
    EXPECT_EQ(qTest_LiveObjects(), before);
  }

  void Start(std::function<int()> function) {
    body = std::move(function);
    ASSERT_EQ(qThread_Start(thread, &ThreadTest::Run, this), qStatus_Success);
  }

  qStatus Join(std::uint64_t timeout = generous) { return qThread_Join(thread, timeout, nullptr); }

  qThread thread = nullptr;

 private:
  static int Run(void* argument) { return static_cast<ThreadTest*>(argument)->body(); }

  const std::uint64_t before = qTest_LiveObjects();
  std::function<int()> body;
};

std::string SystemName(std::uint64_t number) {
  std::ifstream file("/proc/self/task/" + std::to_string(number) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

TEST_F(ThreadTest, RunsTheBodyOnAnotherThreadAndHandsOutItsExitCode) {
  std::uint64_t number = 0;
  Start([&] {
    number = qThread_CurrentId();
    return 42;
  });
  int exitCode = 0;
  EXPECT_EQ(qThread_Join(thread, generous, &exitCode), qStatus_Success);
  EXPECT_EQ(exitCode, 42);
  EXPECT_NE(number, 0u);
  EXPECT_NE(number, qThread_CurrentId());
}

TEST_F(ThreadTest, JoiningAgainSucceedsAtOnceWithTheSameExitCode) {
  Start([] { return -7; });
  EXPECT_EQ(Join(), qStatus_Success);
  int exitCode = 0;
  EXPECT_EQ(qThread_Join(thread, 0, &exitCode), qStatus_Success);
  EXPECT_EQ(exitCode, -7);
}

TEST_F(ThreadTest, JoiningAThreadThatNeverStartedSucceedsAtOnce) {
  int exitCode = 5;
  EXPECT_EQ(qThread_Join(thread, longSleep, &exitCode), qStatus_Success);
  EXPECT_EQ(exitCode, 0);
}

// The join before the start is no join of the thread that runs afterwards: it may sleep.
TEST_F(ThreadTest, JoinBeforeTheStartDoesNotKeepTheThreadAwake) {
  EXPECT_EQ(Join(0), qStatus_Success);
  Gate slept;
  Start([&] {
    const Stopwatch watch;
    EXPECT_EQ(qThread_Sleep(20'000), qStatus_Success);
    EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(20));
    slept.Open();
    return 0;
  });
  EXPECT_TRUE(slept.Wait());
  EXPECT_EQ(Join(), qStatus_Success);
}

TEST_F(ThreadTest, StartsOnceOnly) {
  Start([] { return 0; });
  const auto never = [](void*) {
    ADD_FAILURE() << "started twice";
    return 0;
  };
  EXPECT_EQ(qThread_Start(thread, never, nullptr), qStatus_WrongState);
  EXPECT_EQ(Join(), qStatus_Success);
  EXPECT_EQ(qThread_Start(thread, never, nullptr), qStatus_WrongState);
}

TEST_F(ThreadTest, JoinOfItselfIsADeadlock) {
  Start([&] {
    EXPECT_EQ(qThread_Join(thread, 0, nullptr), qStatus_Deadlock);
    EXPECT_EQ(qThread_Join(thread, generous, nullptr), qStatus_Deadlock);
    return 0;
  });
  EXPECT_EQ(Join(), qStatus_Success);
}

// A profiler's, say.
TEST_F(ThreadTest, SignalHandlerDoesNotEndASleep) {
  struct sigaction before {};
  struct sigaction handled {};
  handled.sa_handler = [](int) {};  // without SA_RESTART, so that the wait itself is cut short
  ASSERT_EQ(::sigaction(SIGPROF, &handled, &before), 0);
  std::promise<pthread_t> sleeper;
  std::atomic<bool> over = false;
  Start([&] {
    sleeper.set_value(::pthread_self());
    const Stopwatch watch;
    EXPECT_EQ(qThread_Sleep(50'000), qStatus_Success);
    EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(50));
    over = true;
    return 0;
  });
  const pthread_t thread = sleeper.get_future().get();
  while (!over) {
    ::pthread_kill(thread, SIGPROF);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(Join(), qStatus_Success);
  EXPECT_EQ(::sigaction(SIGPROF, &before, nullptr), 0);
}

TEST_F(ThreadTest, JoinWakesASleepingThread) {
  Gate awake;
  std::atomic<bool> running{true};
  Start([&] {
    awake.Open();
    while (running) {
      EXPECT_EQ(qThread_Sleep(longSleep), qStatus_Success);
    }
    return 3;
  });
  ASSERT_TRUE(awake.Wait());
  running = false;
  const Stopwatch watch;
  int exitCode = 0;
  EXPECT_EQ(qThread_Join(thread, generous, &exitCode), qStatus_Success);
  EXPECT_EQ(exitCode, 3);
  EXPECT_LT(watch.Elapsed(), std::chrono::seconds(20)) << "the sleep of 300 s was waited for";
}

TEST_F(ThreadTest, JoinWithoutWaitingWakesASleepingThreadToo) {
  Gate woken;
  Gate goOn;
  Start([&] {
    EXPECT_EQ(qThread_Sleep(longSleep), qStatus_Success);
    woken.Open();
    EXPECT_TRUE(goOn.Wait());
    return 0;
  });
  EXPECT_EQ(Join(0), qStatus_TimeOut);
  EXPECT_TRUE(woken.Wait());
  goOn.Open();
  EXPECT_EQ(Join(), qStatus_Success);
}

TEST_F(ThreadTest, EverySleepAfterTheStartOfAJoinReturnsAtOnce) {
  Gate joined;
  const Stopwatch watch;
  Start([&] {
    EXPECT_TRUE(joined.Wait());
    for (int i = 0; i < 1000; ++i) {
      EXPECT_EQ(qThread_Sleep(longSleep), qStatus_Success);
    }
    EXPECT_EQ(qThread_Sleep(UINT64_MAX), qStatus_Success);
    return 0;
  });
  EXPECT_EQ(Join(0), qStatus_TimeOut);
  joined.Open();
  EXPECT_EQ(Join(), qStatus_Success);
  EXPECT_LT(watch.Elapsed(), std::chrono::seconds(60));
}

TEST_F(ThreadTest, JoinGivesUpWhenTheTimeIsUpAndALaterOneSucceeds) {
  Gate gate;
  Start([&] {
    EXPECT_TRUE(gate.Wait());
    return 9;
  });
  int exitCode = 77;
  const Stopwatch watch;
  EXPECT_EQ(qThread_Join(thread, 50'000, &exitCode), qStatus_TimeOut);
  EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(50));
  EXPECT_EQ(exitCode, 77) << "written although the thread has not ended";
  EXPECT_EQ(Join(0), qStatus_TimeOut);
  gate.Open();
  EXPECT_EQ(qThread_Join(thread, UINT64_MAX, &exitCode), qStatus_Success);
  EXPECT_EQ(exitCode, 9);
}

// The greatest number is no overflow on the way to the system's clock, but a wait without limit.
TEST_F(ThreadTest, GreatestTimeIsWithoutLimit) {
  Gate sleeping;
  std::atomic<bool> joining{false};
  Start([&] {
    sleeping.Open();
    EXPECT_EQ(qThread_Sleep(UINT64_MAX), qStatus_Success);
    EXPECT_TRUE(joining) << "woke by itself";
    EXPECT_EQ(std::async(std::launch::async, [] { return qThread_Sleep(20'000); }).get(), qStatus_Success);
    return 0;
  });
  ASSERT_TRUE(sleeping.Wait());
  // This sleep, and the one above, give the library time to be wrong; nothing depends on them.
  EXPECT_EQ(qThread_Sleep(20'000), qStatus_Success);
  joining = true;
  EXPECT_EQ(Join(UINT64_MAX), qStatus_Success);
}

TEST_F(ThreadTest, SeveralThreadsMayJoin) {
  Gate gate;
  Start([&] {
    EXPECT_TRUE(gate.Wait());
    return 11;
  });
  std::vector<std::future<int>> joiners;
  for (int i = 0; i < 4; ++i) {
    joiners.push_back(std::async(std::launch::async, [&] {
      int exitCode = 0;
      EXPECT_EQ(qThread_Join(thread, generous, &exitCode), qStatus_Success);
      return exitCode;
    }));
  }
  ASSERT_TRUE(gate.WaitForArrivals());
  gate.Open();
  for (std::future<int>& joiner : joiners) {
    EXPECT_EQ(joiner.get(), 11);
  }
}

TEST_F(ThreadTest, JoinedThreadIsGoneFromTheSystem) {
  std::uint64_t number = 0;
  Start([&] {
    number = qThread_CurrentId();
    return 0;
  });
  EXPECT_EQ(Join(), qStatus_Success);
  // The kernel wakes joiners a moment before the entry goes.
  const ZoTest::Deadline deadline;
  while (std::ifstream("/proc/self/task/" + std::to_string(number) + "/comm").good() && !deadline.Expired()) {
    std::this_thread::yield();
  }
  EXPECT_FALSE(deadline.Expired());
}

TEST_F(ThreadTest, NameGivenBeforeTheStartIsShownCutToFifteenBytes) {
  EXPECT_EQ(qThread_SetName(thread, "CacheManager::ManageCache::Thread"), qStatus_Success);
  Gate gate;
  std::promise<std::uint64_t> number;
  Start([&] {
    number.set_value(qThread_CurrentId());
    gate.Wait();
    return 0;
  });
  EXPECT_EQ(SystemName(number.get_future().get()), "CacheManager::M");
  gate.Open();
  EXPECT_EQ(Join(), qStatus_Success);
}

TEST_F(ThreadTest, NameGivenAfterTheStartIsShown) {
  Gate gate;
  std::promise<std::uint64_t> promise;
  Start([&] {
    promise.set_value(qThread_CurrentId());
    gate.Wait();
    EXPECT_EQ(qThread_SetName(thread, "by itself"), qStatus_Success);
    EXPECT_EQ(SystemName(qThread_CurrentId()), "by itself");
    qThread_NameCurrent("by itself again");
    EXPECT_EQ(SystemName(qThread_CurrentId()), "by itself again");
    return 0;
  });
  const std::uint64_t number = promise.get_future().get();
  EXPECT_EQ(qThread_SetName(thread, "from outside"), qStatus_Success);
  EXPECT_EQ(SystemName(number), "from outside");
  EXPECT_EQ(qThread_SetName(thread, "exactly fifteen"), qStatus_Success);
  EXPECT_EQ(SystemName(number), "exactly fifteen");
  gate.Open();
  EXPECT_EQ(Join(), qStatus_Success);
  EXPECT_EQ(qThread_SetName(thread, "after the end"), qStatus_Success);
}

TEST(Thread, AnyThreadMayNameItself) {
  std::thread([] {
    qThread_NameCurrent("a std::thread with a long name");
    EXPECT_EQ(SystemName(qThread_CurrentId()), "a std::thread w");
    qThread_NameCurrent(nullptr);
    EXPECT_EQ(SystemName(qThread_CurrentId()), "a std::thread w");
  }).join();
}

TEST(Thread, CurrentIdIsStableAndUniqueAndTheSystemsNumber) {
  const std::uint64_t mine = qThread_CurrentId();
  EXPECT_EQ(qThread_CurrentId(), mine);
  std::set<std::uint64_t> numbers{mine};
  Gate gate;
  std::vector<std::future<std::uint64_t>> threads;
  for (int i = 0; i < 8; ++i) {
    threads.push_back(std::async(std::launch::async, [&] {
      const std::uint64_t number = qThread_CurrentId();
      EXPECT_TRUE(std::ifstream("/proc/self/task/" + std::to_string(number) + "/comm").good()) << number;
      gate.Wait();  // all of them live at once, so that no number is used again
      EXPECT_EQ(qThread_CurrentId(), number);
      return number;
    }));
  }
  EXPECT_TRUE(gate.WaitForArrivals(8));
  gate.Open();
  for (std::future<std::uint64_t>& thread : threads) {
    EXPECT_TRUE(numbers.insert(thread.get()).second);
  }
}

TEST_F(ThreadTest, SleepLastsItsTime) {
  Start([] {
    const Stopwatch watch;
    EXPECT_EQ(qThread_Sleep(30'000), qStatus_Success);
    EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(30));
    EXPECT_EQ(qThread_Sleep(0), qStatus_Success);
    return 0;
  });
  // Not joined before it has ended: a join would wake it.
  const ZoTest::Deadline deadline;
  qObject_Destroy(std::exchange(thread, nullptr));
  while (qTest_LiveObjects() != 0 && !deadline.Expired()) {
    std::this_thread::yield();
  }
  EXPECT_FALSE(deadline.Expired());
}

TEST(Thread, SleepOfAnyOtherThreadLastsItsTime) {
  const Stopwatch watch;
  EXPECT_EQ(qThread_Sleep(30'000), qStatus_Success);
  EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(30));
}

TEST_F(ThreadTest, EverythingWorksAfterTheLibraryHandleWasDestroyed) {
  qApiLib library = nullptr;
  ASSERT_EQ(qApiLib_Construct(&library), qStatus_Success);
  Gate gate;
  Start([&] {
    gate.Wait();
    EXPECT_EQ(qThread_Sleep(longSleep), qStatus_Success);
    return 4;
  });
  qObject_Destroy(library);
  gate.Open();
  EXPECT_EQ(qThread_SetName(thread, "named late"), qStatus_Success);
  int exitCode = 0;
  EXPECT_EQ(qThread_Join(thread, generous, &exitCode), qStatus_Success);
  EXPECT_EQ(exitCode, 4);
  qThread another = nullptr;
  EXPECT_EQ(qThread_Construct(&another), qStatus_Success);
  qObject_Destroy(another);
}

TEST(Thread, LibraryMayBeConstructedSeveralTimes) {
  const std::uint64_t before = qTest_LiveObjects();
  qApiLib first = nullptr;
  qApiLib second_ = nullptr;
  EXPECT_EQ(qApiLib_Construct(&first), qStatus_Success);
  EXPECT_EQ(qApiLib_Construct(&second_), qStatus_Success);
  EXPECT_EQ(qTest_LiveObjects(), before + 2);
  qObject_Destroy(first);
  qObject_Destroy(second_);
  EXPECT_EQ(qTest_LiveObjects(), before);
  EXPECT_EQ(qApiLib_Construct(nullptr), qStatus_InvalidArgument);
  qObject_Destroy(qApiLib{nullptr});
}

TEST_F(ThreadTest, InvalidArgumentsAreRefused) {
  EXPECT_EQ(qThread_Construct(nullptr), qStatus_InvalidArgument);
  EXPECT_EQ(qThread_SetName(nullptr, "name"), qStatus_InvalidArgument);
  EXPECT_EQ(qThread_SetName(thread, nullptr), qStatus_InvalidArgument);
  EXPECT_EQ(qThread_Start(
                nullptr, [](void*) { return 0; }, nullptr),
            qStatus_InvalidArgument);
  EXPECT_EQ(qThread_Start(thread, nullptr, nullptr), qStatus_InvalidArgument);
  EXPECT_EQ(qThread_Join(nullptr, 0, nullptr), qStatus_InvalidArgument);
  qObject_Destroy(qThread{nullptr});
}

TEST_F(ThreadTest, LeavesTheProcessSignalsToTheHost) {
  Start([] {
    sigset_t blocked;
    EXPECT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &blocked), 0);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGUSR1, SIGCHLD}) {
      EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
    }
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
      EXPECT_EQ(sigismember(&blocked, fault), 0) << fault;
    }
    return 0;
  });
  EXPECT_EQ(Join(), qStatus_Success);
  sigset_t mine;
  EXPECT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &mine), 0);
  EXPECT_EQ(sigismember(&mine, SIGTERM), 0) << "the starting thread's own mask has changed";
}

TEST(Thread, StartFailsWhenTheSystemHasNoThreadToGive) {
  if (ZoTest::kSanitized) {
    GTEST_SKIP() << "the sanitizers need more address space than this test leaves";
  }
  const ZoTest::ChildResult child = ZoTest::RunInChild([] {
    qThread thread = nullptr;
    ASSERT_EQ(qThread_Construct(&thread), qStatus_Success);
    const rlimit none{0, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
    EXPECT_EQ(qThread_Start(
                  thread, [](void*) { return 1; }, nullptr),
              qStatus_System);
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &unlimited), 0);
    // The failure left the thread as it was.
    EXPECT_EQ(qThread_Start(
                  thread, [](void*) { return 2; }, nullptr),
              qStatus_Success);
    int exitCode = 0;
    EXPECT_EQ(qThread_Join(thread, generous, &exitCode), qStatus_Success);
    EXPECT_EQ(exitCode, 2);
    qObject_Destroy(thread);
    EXPECT_EQ(qTest_LiveObjects(), 0u);
  });
  EXPECT_TRUE(child.Succeeded()) << child.Describe();
}

}  // namespace
