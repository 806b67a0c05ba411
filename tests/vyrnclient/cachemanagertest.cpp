// The value cache: its times are chosen by the tests, except where the worker is what is tested.
#include "zoiohandler/vyrnclient/cachemanager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "qapi/testing.h"
#include "tests/qapi/failingnew.h"
#include "tests/support/memorynow.h"
#include "tests/vyrnclient/eventually.h"

namespace ZoTest {
namespace {

using Added = ZoIO::CacheManager::Added;

constexpr int maxAge = 5000;

ZoJson Number(int number) {
  return ZoJson::Of(number);
}

class CacheManager : public ::testing::Test {
 protected:
  int GetAt(const std::string& key, int age, long long now) const {
    return cache.GetAt(key, age, now).Get<int>();
  }

  // Later than the cache's start, and late enough that its worker finds nothing old in what is added from
  // here on.
  const long long start = ZoIO::CacheManager::TimeInMills() + 3'600'000;
  ZoIO::CacheManager cache{maxAge};
};

void ExpectEmpty(const ZoIO::CacheManager& cache, const std::string& key) {
  try {
    cache.Get(key, 0);
    ADD_FAILURE() << "Get gave a value";
  } catch (const ZoIO::CacheError& error) {
    EXPECT_STREQ(error.what(), "Cache is empty.");
  }
}

TEST_F(CacheManager, FreshOneHoldsNothing) {
  EXPECT_EQ(cache.Size(), 0u);
  EXPECT_EQ(cache.SizeAt("/k"), 0u);
  EXPECT_FALSE(cache.Exists("/k"));
  ExpectEmpty(cache, "/k");
}

TEST_F(CacheManager, AskingForAnUnknownKeyDoesNotMakeIt) {
  ExpectEmpty(cache, "/k");
  cache.SizeAt("/k");
  EXPECT_FALSE(cache.Exists("/k"));
  EXPECT_EQ(cache.Size(), 0u);
}

TEST_F(CacheManager, ErrorIsARuntimeError) {
  EXPECT_THROW(cache.Get("/k", 0), std::runtime_error);
}

TEST_F(CacheManager, UnknownKeyIsEmptyAmongOthers) {
  cache.Add("/a", Number(1));
  ExpectEmpty(cache, "/b");
  EXPECT_EQ(cache.Size(), 1u);
}

TEST_F(CacheManager, AddedValueIsTheNewest) {
  cache.Add("/k", Number(1));
  EXPECT_TRUE(cache.Exists("/k"));
  EXPECT_EQ(cache.SizeAt("/k"), 1u);
  EXPECT_EQ(cache.Get("/k", 0), Number(1));
}

TEST_F(CacheManager, LaterValueWins) {
  cache.AddAt("/k", Number(1), start);
  cache.AddAt("/k", Number(2), start + 1);
  EXPECT_EQ(cache.SizeAt("/k"), 2u);
  EXPECT_EQ(GetAt("/k", 0, start + 1), 2);
  EXPECT_EQ(GetAt("/k", 0, start + 100), 2);
}

TEST_F(CacheManager, SecondValueOfAMillisecondIsDropped) {
  cache.AddAt("/k", Number(1), start);
  cache.AddAt("/k", Number(2), start);
  EXPECT_EQ(cache.SizeAt("/k"), 1u);
  EXPECT_EQ(GetAt("/k", 0, start), 1);
}

TEST_F(CacheManager, KeysDoNotShareMilliseconds) {
  cache.AddAt("/a", Number(1), start);
  cache.AddAt("/b", Number(2), start);
  EXPECT_EQ(cache.Size(), 2u);
  EXPECT_EQ(GetAt("/a", 0, start), 1);
  EXPECT_EQ(GetAt("/b", 0, start), 2);
}

TEST_F(CacheManager, KeysAreComparedByteByByte) {
  cache.AddAt("/a", Number(1), start);
  cache.AddAt("/a/", Number(2), start);
  cache.AddAt("/A", Number(3), start);
  cache.AddAt("", Number(4), start);
  cache.AddAt(std::string("/a\0b", 4), Number(5), start);
  EXPECT_EQ(cache.Size(), 5u);
  EXPECT_EQ(GetAt("", 0, start), 4);
  EXPECT_EQ(GetAt("/a", 0, start), 1);
}

TEST_F(CacheManager, AgeGivesTheFirstValueAtOrAfterThatTime) {
  cache.AddAt("/k", Number(0), start);
  cache.AddAt("/k", Number(100), start + 100);
  cache.AddAt("/k", Number(200), start + 200);
  const long long now = start + 250;
  EXPECT_EQ(GetAt("/k", 0, now), 200);
  EXPECT_EQ(GetAt("/k", 50, now), 200);
  EXPECT_EQ(GetAt("/k", 150, now), 100);
  // 101 is nearer to 100 than to 200, yet what counts is the first value that is not earlier.
  EXPECT_EQ(GetAt("/k", 149, now), 200);
  EXPECT_EQ(GetAt("/k", 250, now), 0);
  EXPECT_EQ(GetAt("/k", 100'000, now), 0);
}

TEST_F(CacheManager, TimeAfterEveryValueGivesTheNewest) {
  cache.AddAt("/k", Number(1), start);
  cache.AddAt("/k", Number(2), start + 1);
  EXPECT_EQ(GetAt("/k", 0, start + 1'000'000), 2);
  EXPECT_EQ(GetAt("/k", -1000, start + 1), 2);
}

TEST_F(CacheManager, ClockThatStepsBackLeavesTheLaterStampOnTop) {
  cache.AddAt("/k", Number(1), start + 100);
  cache.AddAt("/k", Number(2), start + 50);
  EXPECT_EQ(cache.SizeAt("/k"), 2u);
  EXPECT_EQ(GetAt("/k", 0, start + 60), 1);
  EXPECT_EQ(GetAt("/k", 0, start + 200), 1);
}

TEST_F(CacheManager, OfValuesInOrderAnOlderOneIsLeftOut) {
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(1), 7, start), Added::Stored);
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(2), 9, start + 1), Added::Stored);
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(3), 8, start + 2), Added::Outdated);
  EXPECT_EQ(GetAt("/k", 0, start + 2), 2);
  EXPECT_EQ(cache.SizeAt("/k"), 2u);
  EXPECT_EQ(cache.AddInOrderAt("/other", Number(4), 8, start + 2), Added::Stored);
}

TEST_F(CacheManager, ValueOfTheSameOrderIsStored) {
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(1), 7, start), Added::Stored);
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(2), 7, start + 1), Added::Stored);
  EXPECT_EQ(GetAt("/k", 0, start + 1), 2);
}

TEST_F(CacheManager, ValueThatFindsItsMillisecondTakenDoesNotCountAsStored) {
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(1), 7, start), Added::Stored);
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(2), 9, start), Added::MillisecondTaken);
  EXPECT_EQ(GetAt("/k", 0, start), 1);
  // What is newer than the value that is there, if older than the one that was not stored, is still welcome.
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(3), 8, start + 1), Added::Stored);
  EXPECT_EQ(GetAt("/k", 0, start + 1), 3);
}

TEST_F(CacheManager, ValueWithoutAnOrderIsAlwaysStoredAndLeavesTheOrderAsItIs) {
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(1), 7, start), Added::Stored);
  cache.AddAt("/k", Number(2), start + 1);
  EXPECT_EQ(GetAt("/k", 0, start + 1), 2);
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(3), 6, start + 2), Added::Outdated);
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(4), 7, start + 2), Added::Stored);
}

TEST_F(CacheManager, AddStoresWhateverOrderTheValueBeforeHas) {
  const long long before = ZoIO::CacheManager::TimeInMills() - 1000;
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(1), 7, before), Added::Stored);
  cache.Add("/k", Number(2));
  EXPECT_EQ(cache.Get("/k", 0), Number(2));
}

TEST_F(CacheManager, VersionOfASlotRisesFrom1WithEachValueThatIsStored) {
  EXPECT_EQ(cache.Find("/k"), nullptr);
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(cache.AddInOrderAt("/k", Number(i), 7, start + i), Added::Stored);
    const ZoIO::CacheManager::Slot* const slot = cache.Find("/k");
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(ZoIO::CacheManager::Version(*slot), static_cast<std::uint64_t>(i));
  }
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(4), 6, start + 4), Added::Outdated);
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(4), 7, start + 3), Added::MillisecondTaken);
  EXPECT_EQ(ZoIO::CacheManager::Version(*cache.Find("/k")), 3u);
}

TEST_F(CacheManager, SlotThatNobodyHasLookedAtYetHasTheShapeOfNoDocument) {
  cache.AddAt("/k", Number(1), start);
  const ZoIO::CacheManager::Slot* const slot = cache.Find("/k");
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(slot->look.shape, 0u);
  EXPECT_EQ(slot->look.since, 0u);
}

TEST_F(CacheManager, ValueOfASlotComesWithItsVersionUnlessItMayGiveWayWithoutANewOne) {
  std::uint64_t version = 77;
  long long at = 0;
  cache.AddAt("/k", Number(1), start);
  const ZoIO::CacheManager::Slot* const slot = cache.Find("/k");
  ASSERT_NE(slot, nullptr);
  const long long before = ZoIO::CacheManager::TimeInMills();
  EXPECT_EQ(cache.Get(*slot, 0, version, at), Number(1));
  EXPECT_EQ(version, 1u);
  EXPECT_GE(at, before);
  EXPECT_LE(at, ZoIO::CacheManager::TimeInMills());
  // Both lie ahead of the clock: the first counts until its time has passed.
  cache.AddAt("/k", Number(2), start + 1);
  EXPECT_EQ(cache.Get(*slot, 0, version, at), Number(1));
  EXPECT_EQ(version, 0u);
}

TEST_F(CacheManager, OldValuesAreDroppedBeforeTheirTimeWhenTheyHoldTooMuchMemory) {
  constexpr std::size_t mebibyte = std::size_t{1} << 20;
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(cache.AddInOrderAt("/a", Number(i), 0, start + i, mebibyte), Added::Stored);
  }
  EXPECT_EQ(cache.AddInOrderAt("/b", Number(1), 0, start, 100 * mebibyte), Added::Stored);
  EXPECT_EQ(cache.AddInOrderAt("/a", Number(64), 0, start + 64, mebibyte), Added::Stored);
  EXPECT_EQ(cache.SizeAt("/a"), 65u) << "64 MiB of old values may stay, and the newest do not count";
  EXPECT_EQ(cache.AddInOrderAt("/a", Number(65), 0, start + 65, mebibyte), Added::Stored);
  EXPECT_EQ(cache.SizeAt("/a"), 33u);
  EXPECT_EQ(GetAt("/a", 0, start + 65), 65);
  EXPECT_EQ(GetAt("/a", 100'000, start + 65), 33) << "the oldest went";
  EXPECT_EQ(GetAt("/b", 0, start), 1) << "the newest of a key never goes";
}

TEST_F(CacheManager, MemoryOfOldValuesIsCountedAsTheyComeAndGo) {
  constexpr std::size_t mebibyte = std::size_t{1} << 20;
  // A stamp that is not the newest is old from the beginning.
  EXPECT_EQ(cache.AddInOrderAt("/a", Number(1), 0, start + 10, mebibyte), Added::Stored);
  EXPECT_EQ(cache.AddInOrderAt("/a", Number(2), 0, start + 5, 40 * mebibyte), Added::Stored);
  EXPECT_EQ(cache.SizeAt("/a"), 2u);
  cache.TrimAt(start + 10 + maxAge);
  EXPECT_EQ(cache.SizeAt("/a"), 1u);
  // What was trimmed does not count any more.
  EXPECT_EQ(cache.AddInOrderAt("/b", Number(1), 0, start, 40 * mebibyte), Added::Stored);
  EXPECT_EQ(cache.AddInOrderAt("/b", Number(2), 0, start + 1, mebibyte), Added::Stored);
  EXPECT_EQ(cache.SizeAt("/b"), 2u);
  EXPECT_EQ(cache.AddInOrderAt("/c", Number(1), 0, start, 40 * mebibyte), Added::Stored);
  EXPECT_EQ(cache.AddInOrderAt("/c", Number(2), 0, start + 1, mebibyte), Added::Stored);
  EXPECT_EQ(cache.SizeAt("/b") + cache.SizeAt("/c"), 2u);
}

TEST_F(CacheManager, ValueThatFindsNoMemoryDoesNotCountAsStored) {
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(1), 7, start), Added::Stored);
  const ZoJson value = Number(2);
  {
    const FailingNew failing(1);
    EXPECT_THROW(cache.AddInOrderAt("/k", value, 9, start + 1), std::bad_alloc);
  }
  EXPECT_EQ(cache.AddInOrderAt("/k", Number(3), 8, start + 1), Added::Stored);
}

TEST_F(CacheManager, TrimmingDropsWhatIsStrictlyOlderThanTheMaximumAge) {
  cache.AddAt("/k", Number(1), start);
  cache.AddAt("/k", Number(2), start + 1);
  cache.AddAt("/k", Number(3), start + 2);
  cache.TrimAt(start + maxAge);
  EXPECT_EQ(cache.SizeAt("/k"), 3u);
  cache.TrimAt(start + maxAge + 1);
  EXPECT_EQ(cache.SizeAt("/k"), 2u);
  EXPECT_EQ(GetAt("/k", 100'000, start + maxAge + 1), 2);
}

TEST_F(CacheManager, KeyThatKeepsTwoValuesIsTrimmedAgain) {
  cache.AddAt("/k", Number(1), start);
  cache.AddAt("/k", Number(2), start + 1);
  cache.TrimAt(start + maxAge);
  EXPECT_EQ(cache.SizeAt("/k"), 2u);
  cache.TrimAt(start + maxAge + 1);
  EXPECT_EQ(cache.SizeAt("/k"), 1u);
}

// What there is to trim is noted behind the value, which then is there all the same.
TEST_F(CacheManager, KeyThatCouldNotBeNotedForTrimmingIsNotedWithItsNextValue) {
  bool failed = true;
  for (int nth = 1; failed; ++nth) {
    ASSERT_LT(nth, 100);
    ZoIO::CacheManager other(maxAge);  // which has no memory for its notes yet
    other.AddAt("/k", Number(1), start);
    const ZoJson value = Number(2);
    {
      const FailingNew failing(nth);
      try {
        other.AddAt("/k", value, start + 1);
      } catch (const std::bad_alloc&) {
      }
      failed = failing.HasFailed();
    }
    other.AddAt("/k", Number(3), start + 2);
    other.TrimAt(start + 100'000);
    EXPECT_EQ(other.SizeAt("/k"), 1u) << nth;
  }
}

// Each key is noted once for trimming, and no longer than it has something to trim: the notes would grow for ever.
TEST_F(CacheManager, ValuesThatComeAndGoTakeNoMemoryButTheirOwn) {
  const ZoJson value = Number(1);
  cache.AddAt("/k", value, start);
  cache.AddAt("/k", value, start + 1);
  for (int i = 2; i < 20; ++i) {
    {
      const FailingNew failing(2);  // the first allocation is the value's
      EXPECT_NO_THROW(cache.AddAt("/k", value, start + i));
      EXPECT_FALSE(failing.HasFailed()) << i;
    }
    if (i % 2 == 1) {
      cache.TrimAt(start + i + maxAge);
      EXPECT_EQ(cache.SizeAt("/k"), 1u);
    }
  }
}

TEST_F(CacheManager, TrimmingKeepsTheNewestOfEachKeyHoweverOld) {
  for (int i = 0; i < 10; ++i) {
    cache.AddAt("/a", Number(i), start + i);
    cache.AddAt("/b", Number(100 + i), start + i);
  }
  cache.TrimAt(start + 100'000);
  EXPECT_EQ(cache.SizeAt("/a"), 1u);
  EXPECT_EQ(cache.SizeAt("/b"), 1u);
  EXPECT_EQ(GetAt("/a", 0, start + 100'000), 9);
  EXPECT_EQ(GetAt("/b", 0, start + 100'000), 109);
}

TEST_F(CacheManager, ValueSurvivesAnyNumberOfTrimmings) {
  cache.AddAt("/k", Number(1), start);
  for (int i = 1; i <= 100; ++i) {
    cache.TrimAt(start + i * 10'000LL);
  }
  EXPECT_EQ(cache.SizeAt("/k"), 1u);
  EXPECT_EQ(GetAt("/k", 0, start + 10'000'000), 1);
}

TEST_F(CacheManager, KeysAreNeverRemoved) {
  cache.AddAt("/a", Number(1), start);
  cache.AddAt("/b", Number(1), start);
  cache.TrimAt(start + 1'000'000);
  EXPECT_EQ(cache.Size(), 2u);
  EXPECT_TRUE(cache.Exists("/a"));
}

TEST_F(CacheManager, ValueThatWasHandedOutOutlivesItsTrimming) {
  cache.AddAt("/k", ZoJson::ParseString("{\"a\":[1,2,3]}"), start);
  const ZoJson held = cache.GetAt("/k", 0, start);
  cache.AddAt("/k", Number(2), start + 1);
  cache.TrimAt(start + 1'000'000);
  EXPECT_EQ(cache.SizeAt("/k"), 1u);
  EXPECT_EQ(held.At("/a/1"), Number(2));
}

TEST_F(CacheManager, KeepsACopyThatLaterEditsDoNotReach) {
  ZoJson value = ZoJson::ParseString("{\"a\":1}");
  cache.AddAt("/k", value, start);
  value.Set("/a", 2);
  EXPECT_EQ(cache.GetAt("/k", 0, start).At("/a"), Number(1));
}

TEST_F(CacheManager, NullIsAValue) {
  cache.Add("/k", ZoJson());
  EXPECT_TRUE(cache.Exists("/k"));
  EXPECT_EQ(cache.SizeAt("/k"), 1u);
  EXPECT_TRUE(cache.Get("/k", 0).IsNull());
}

TEST_F(CacheManager, MaximumAgeIsTheArgument) {
  ZoIO::CacheManager brief(10);
  brief.AddAt("/k", Number(1), start);
  brief.AddAt("/k", Number(2), start + 5);
  brief.TrimAt(start + 11);
  EXPECT_EQ(brief.SizeAt("/k"), 1u);
}

TEST_F(CacheManager, TimeIsTheSystemClockInMilliseconds) {
  using namespace std::chrono;
  const auto clock = [] {
    return static_cast<long long>(
        duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
  };
  const long long before = clock();
  const long long time = ZoIO::CacheManager::TimeInMills();
  EXPECT_LE(before, time);
  EXPECT_LE(time, clock());
}

TEST_F(CacheManager, WorkerDropsOldValuesByItself) {
  const long long now = ZoIO::CacheManager::TimeInMills();
  cache.AddAt("/k", Number(1), now - 7000);
  cache.AddAt("/k", Number(2), now - 6000);
  EXPECT_TRUE(Eventually([&] { return cache.SizeAt("/k") == 1; }));
  EXPECT_EQ(cache.Get("/k", 0), Number(2));
}

TEST_F(CacheManager, WorkerGoesOnPassAfterPass) {
  for (int i = 0; i < 2; ++i) {
    const long long now = ZoIO::CacheManager::TimeInMills();
    const std::string key = "/k" + std::to_string(i);
    cache.AddAt(key, Number(1), now - 7000);
    cache.AddAt(key, Number(2), now);
    EXPECT_TRUE(Eventually([&] { return cache.SizeAt(key) == 1; }));
  }
}

// A busy machine makes passes late, never early, and not all of them late.
TEST_F(CacheManager, WorkerMakesAPassEachSecond) {
  const Deadline deadline;
  const Clock::time_point begin = Clock::now();
  ZoIO::CacheManager other(maxAge);
  Clock::time_point last = begin;
  Clock::duration smallestGap = Clock::duration::max();
  for (int pass = 1; pass <= 2 || (smallestGap >= std::chrono::milliseconds(1500) && !deadline.Expired());
       ++pass) {
    const long long now = ZoIO::CacheManager::TimeInMills();
    const std::string key = "/k" + std::to_string(pass);
    other.AddAt(key, Number(1), now - 7000);
    other.AddAt(key, Number(2), now - 6000);
    ASSERT_TRUE(Eventually([&] { return other.SizeAt(key) == 1; }));
    const Clock::time_point seen = Clock::now();
    EXPECT_GE(seen - begin, pass * std::chrono::milliseconds(990));
    smallestGap = std::min(smallestGap, seen - last);
    last = seen;
  }
  EXPECT_LT(smallestGap, std::chrono::milliseconds(1500));
}

TEST_F(CacheManager, EndsWhileItsWorkerSleeps) {
  const Stopwatch watch;
  for (int i = 0; i < 20; ++i) {
    ZoIO::CacheManager other(maxAge);
    other.Add("/k", Number(1));
  }
  // Waiting out a sleep would take a second each.
  EXPECT_LT(watch.Milliseconds().count(), 10'000);
}

// Whether to go on is looked at before a sleep alone. Within less than a second no sleep ends by itself and
// no join runs out of time; a busy machine takes longer now and then, which says nothing.
TEST_F(CacheManager, WorkerMakesOnePassMoreWhenItsSleepIsCutShortByTheEnd) {
  cache.Shutdown();  // from here on the worker's name is that of the one under test
  const Deadline deadline;
  bool cutShort = false;
  while (!cutShort && !deadline.Expired()) {
    qTest_FailOperationIn("CacheManager::ManageCache::Thread", qOperation::ThreadSleep, 0, qStatus_Success);
    const Stopwatch watch;
    ZoIO::CacheManager other(maxAge);
    EXPECT_TRUE(Eventually([] { return qTest_CallCount() >= 1; }));
    const long long now = ZoIO::CacheManager::TimeInMills();
    for (int age = 9000; age >= 6000; age -= 1000) {
      other.AddAt("/old", Number(age), now - age);
    }
    other.AddAt("/young", Number(1), now + 3'600'000);
    other.AddAt("/young", Number(2), now + 3'600'001);
    other.Shutdown();
    cutShort = watch.Elapsed() < std::chrono::milliseconds(990);
    qTest_Reset();
    if (cutShort) {
      EXPECT_EQ(other.SizeAt("/old"), 1u);
      EXPECT_EQ(other.Get("/old", 0), Number(6000));
      EXPECT_EQ(other.SizeAt("/young"), 2u);
    }
  }
  EXPECT_TRUE(cutShort);
}

TEST_F(CacheManager, ValuesStayReadableAfterShutdown) {
  cache.Add("/k", Number(1));
  cache.Shutdown();
  cache.Shutdown();
  EXPECT_EQ(cache.Get("/k", 0), Number(1));
  cache.Add("/l", Number(2));
  EXPECT_EQ(cache.Size(), 2u);
}

TEST_F(CacheManager, ThreadsMayUseItAtOnce) {
  constexpr int rounds = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      const std::string key = "/k" + std::to_string(t);
      for (int i = 0; i < rounds; ++i) {
        cache.AddAt(key, Number(i), start + i);
        EXPECT_EQ(cache.GetAt(key, 0, start + i), Number(i));
        EXPECT_GE(cache.SizeAt(key), 1u);
      }
    });
  }
  threads.emplace_back([&] {
    for (int i = 0; i < rounds; ++i) {
      cache.TrimAt(start + maxAge + i);
      cache.Size();
      cache.Exists("/k0");
    }
  });
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(cache.Size(), 2u);
  EXPECT_EQ(GetAt("/k0", 0, start + rounds), rounds - 1);
}

TEST_F(CacheManager, ForgetsAllValuesOfAKeyAndKeepsTheKey) {
  for (int i = 0; i < 3; ++i) {
    cache.AddInOrderAt("/a", Number(i), 10, start + i);
  }
  cache.AddAt("/b", Number(7), start);
  cache.Forget("/a");
  cache.Forget("/unknown");
  EXPECT_TRUE(cache.Exists("/a"));
  EXPECT_FALSE(cache.Exists("/unknown"));
  EXPECT_EQ(cache.SizeAt("/a"), 0u);
  EXPECT_EQ(cache.Find("/a"), nullptr);
  EXPECT_THROW(cache.Get("/a", 0), ZoIO::CacheError);
  EXPECT_EQ(cache.Get("/b", 0), Number(7));
  EXPECT_EQ(cache.AddInOrderAt("/a", Number(8), 9, start + 5), ZoIO::CacheManager::Added::Outdated)
      << "what came before what was forgotten is no news";
  cache.AddInOrderAt("/a", Number(9), 20, start + 6);
  cache.TrimAt(start + 100'000);
  EXPECT_EQ(cache.Get("/a", 0), Number(9));
}

// Documents that are huge, though they lie in small pieces, which the allocator would keep for later.
class CacheMemory : public CacheManager {
 protected:
  void SetUp() override {
    if (kSanitized) {
      GTEST_SKIP() << "Sanitizers keep freed memory.";
    }
  }

  // Sixteen documents of a mebibyte each, under keys of their own.
  void FillWithNewest(ZoIO::CacheManager& other) {
    for (int i = 0; i < 16; ++i) {
      EXPECT_EQ(other.AddInOrderAt(Key(i), MakeDocument(), 0, start, mebibyte), Added::Stored);
    }
  }

  // Likewise, and none of them the newest value.
  void Fill(ZoIO::CacheManager& other) {
    FillWithNewest(other);
    for (int i = 0; i < 16; ++i) {
      EXPECT_EQ(other.AddInOrderAt(Key(i), Number(i), 0, start + 1), Added::Stored);
    }
  }

  static void ExpectGivenBackSince(std::size_t before) { EXPECT_LT(MemoryNow() + 8 * mebibyte, before); }

 private:
  static std::string Key(int i) { return "/k" + std::to_string(i); }

  static constexpr std::size_t mebibyte = std::size_t{1} << 20;

  ZoJson MakeDocument() {
    constexpr std::size_t piece = 1000;
    ZoJson document = ZoJson::EmptyArray();
    for (std::size_t i = 0; i <= mebibyte / piece; ++i) {
      document.Set("/-", std::string(piece, 'x'));
    }
    // Two of its pieces stay in use: the allocator would give back the end of its memory by itself.
    used.push_back(document.At("/0"));
    used.push_back(document.At("/" + std::to_string(mebibyte / piece)));
    return document;
  }

  std::vector<ZoJson> used;
};

TEST_F(CacheMemory, OfHugeValuesIsGivenBackOnceTheyAreTrimmed) {
  Fill(cache);
  const std::size_t before = MemoryNow();
  cache.TrimAt(start + maxAge + 1);
  ExpectGivenBackSince(before);
}

TEST_F(CacheMemory, OfHugeValuesThatWereTheNewestIsGivenBackWhenTheCacheGoes) {
  auto other = std::make_unique<ZoIO::CacheManager>(maxAge);
  FillWithNewest(*other);
  other->TrimAt(start + maxAge + 1);  // which finds nothing old
  const std::size_t before = MemoryNow();
  other.reset();
  ExpectGivenBackSince(before);
}

TEST_F(CacheMemory, OfHugeValuesIsGivenBackWhenTheCacheGoes) {
  auto other = std::make_unique<ZoIO::CacheManager>(maxAge);
  Fill(*other);
  const std::size_t before = MemoryNow();
  other.reset();
  ExpectGivenBackSince(before);
}

}  // namespace
}  // namespace ZoTest
