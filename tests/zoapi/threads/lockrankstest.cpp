#include "zoapi/threads/lockranks.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

#include "zoapi/threads/locker.h"

namespace {

using Zo::Mutex;
using Zo::MutexLock;

TEST(Mutex, ExcludesThreadsFromEachOther) {
  constexpr int rounds = 10'000;
  Mutex mutex("counter", Zo::LockRank_Cache);
  int counter = 0;  // plain on purpose
  const auto count = [&] {
    for (int i = 0; i < rounds; ++i) {
      const MutexLock lock(mutex);
      ++counter;
    }
  };
  std::thread first(count);
  std::thread second(count);
  first.join();
  second.join();
  EXPECT_EQ(counter, 2 * rounds);
}

bool TryElsewhere(Mutex& mutex) {
  bool entered = false;
  std::thread([&] {
    if (mutex.try_lock()) {
      entered = true;
      mutex.unlock();
    }
  }).join();
  return entered;
}

TEST(Mutex, TryLockDoesNotWait) {
  Mutex mutex("mutex", Zo::LockRank_Cache);
  EXPECT_TRUE(TryElsewhere(mutex));
  {
    const MutexLock lock(mutex);
    EXPECT_FALSE(TryElsewhere(mutex));
  }
  EXPECT_TRUE(TryElsewhere(mutex));
}

TEST(Mutex, IsNeitherCopiedNorMoved) {
  static_assert(!std::is_copy_constructible_v<Mutex> && !std::is_move_constructible_v<Mutex>);
  static_assert(!std::is_copy_constructible_v<MutexLock> && !std::is_move_constructible_v<MutexLock>);
  constinit static Mutex atCompileTime("static", Zo::LockRank_None);
  EXPECT_TRUE(TryElsewhere(atCompileTime));
}

TEST(LockOrder, RanksRiseFromTheOutermostToTheInnermost) {
  int before = Zo::LockRank_None;
  for (const int rank :
       {Zo::LockRank_Entry, Zo::LockRank_Instance, Zo::LockRank_Simulator, Zo::LockRank_Registry,
        Zo::LockRank_Link, Zo::LockRank_HandlerGate, Zo::LockRank_Cache, Zo::LockRank_LogBuffer}) {
    EXPECT_GT(rank, before);
    before = rank;
  }
}

// The whole chain at once, through both kinds of lock.
TEST(LockOrder, LocksOfBothKindsNestInTheirOrder) {
  Mutex entry("entry", Zo::LockRank_Entry);
  Zo::Lock instance;
  Mutex simulator("simulator", Zo::LockRank_Simulator);
  Zo::Lock registry;
  Mutex cache("cache", Zo::LockRank_Cache);
  ASSERT_EQ(qLock_Construct(instance.Out(), "instance", Zo::LockRank_Instance), qStatus_Success);
  ASSERT_EQ(qLock_Construct(registry.Out(), "registry", Zo::LockRank_Registry), qStatus_Success);
  {
    const MutexLock first(entry);
    const Zo::Locker second(instance);
    const MutexLock third(simulator);
    const Zo::Locker fourth(registry, 0);
    const MutexLock fifth(cache);
#ifdef NDEBUG
    EXPECT_EQ(qLockRank_Depth(), 0);
#else
    EXPECT_EQ(qLockRank_Depth(), 5);
#endif
  }
  EXPECT_EQ(qLockRank_Depth(), 0);
}

#ifdef NDEBUG

TEST(LockOrderDeathTest, FallingRankAborts) {
  GTEST_SKIP() << "ranks are checked in builds without NDEBUG only";
}

#else

TEST(LockOrderDeathTest, FallingRankAborts) {
  Mutex cache("the cache", Zo::LockRank_Cache);
  Mutex entry("the entry", Zo::LockRank_Entry);
  const MutexLock lock(cache);
  EXPECT_DEATH(const MutexLock wrong(entry), "the entry.*the cache");
}

TEST(LockOrderDeathTest, FallingRankAbortsInTryLockToo) {
  Mutex cache("the cache", Zo::LockRank_Cache);
  Mutex entry("the entry", Zo::LockRank_Entry);
  const MutexLock lock(cache);
  EXPECT_DEATH(
      {
        if (entry.try_lock()) {
          entry.unlock();
        }
      },
      "the entry.*the cache");
}

TEST(LockOrderDeathTest, FallingRankAbortsAcrossTheKindsOfLock) {
  Mutex cache("the cache", Zo::LockRank_Cache);
  Zo::Lock instance;
  ASSERT_EQ(qLock_Construct(instance.Out(), "the instance", Zo::LockRank_Instance), qStatus_Success);
  {
    const MutexLock lock(cache);
    EXPECT_DEATH(const Zo::Locker wrong(instance), "the instance.*the cache");
  }
  Zo::Lock registry;
  ASSERT_EQ(qLock_Construct(registry.Out(), "the registry", Zo::LockRank_Registry), qStatus_Success);
  Mutex simulator("the simulator", Zo::LockRank_Simulator);
  const Zo::Locker lock(registry);
  EXPECT_DEATH(const MutexLock wrong(simulator), "the simulator.*the registry");
}

// A try that fails must leave no trace, or the next lock would be judged by a lock that is not held.
TEST(LockOrder, FailedTryDoesNotCount) {
  Mutex cache("the cache", Zo::LockRank_Cache);
  const MutexLock lock(cache);
  std::thread([&] {
    if (cache.try_lock()) {
      cache.unlock();
      ADD_FAILURE() << "entered twice";
    }
    EXPECT_EQ(qLockRank_Depth(), 0);
  }).join();
}

#endif

}  // namespace
