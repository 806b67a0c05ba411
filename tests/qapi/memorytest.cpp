// What the base library does when memory runs out, and that it gives back what it took.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "qapi/library.h"
#include "qapi/lock.h"
#include "qapi/memory.h"
#include "qapi/testing.h"
#include "qapi/thread.h"
#include "tests/qapi/failingnew.h"

namespace {

using ZoTest::FailingNew;

constexpr std::uint64_t generous = 100'000'000;  // microseconds

// Lets the allocations of operation fail one after the other, until it gets through. Every failure is
// reported as such and leaves nothing behind.
void FailAtEveryAllocation(const std::function<qStatus()>& operation) {
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, 100) << "the failures do not end";
    const std::ptrdiff_t blocks = ZoTest::LiveAllocations();
    const std::uint64_t objects = qTest_LiveObjects();
    qStatus status = qStatus_Failure;
    bool hasFailed = false;
    {
      const FailingNew failing(nth);
      status = operation();
      hasFailed = failing.HasFailed();
    }
    if (!hasFailed) {
      EXPECT_EQ(status, qStatus_Success);
      EXPECT_GT(nth, 1) << "allocates nothing";
      return;
    }
    EXPECT_EQ(status, qStatus_OutOfMemory) << "allocation " << nth;
    EXPECT_EQ(ZoTest::LiveAllocations(), blocks) << "allocation " << nth;
    EXPECT_EQ(qTest_LiveObjects(), objects) << "allocation " << nth;
  }
}

TEST(OutOfMemory, LibraryIsNotConstructed) {
  qApiLib library = nullptr;
  FailAtEveryAllocation([&] { return qApiLib_Construct(&library); });
  EXPECT_NE(library, nullptr);
  qObject_Destroy(library);
}

TEST(OutOfMemory, LockIsNotConstructed) {
  qLock lock = nullptr;
  FailAtEveryAllocation([&] { return qLock_Construct(&lock, "lock", 0); });
  EXPECT_NE(lock, nullptr);
  qObject_Destroy(lock);
}

TEST(OutOfMemory, ThreadIsNotConstructedNamedOrStarted) {
  qThread thread = nullptr;
  FailAtEveryAllocation([&] { return qThread_Construct(&thread); });
  ASSERT_NE(thread, nullptr);
  FailAtEveryAllocation([&] { return qThread_SetName(thread, "CacheManager::ManageCache::Thread"); });
  std::atomic<int> runs{0};
  const auto body = [](void* argument) { return ++*static_cast<std::atomic<int>*>(argument); };
  FailAtEveryAllocation([&] { return qThread_Start(thread, body, &runs); });
  EXPECT_EQ(qThread_Join(thread, generous, nullptr), qStatus_Success);
  EXPECT_EQ(runs, 1) << "a start that failed ran the body";
  qObject_Destroy(thread);
}

TEST(OutOfMemory, AdoptedThreadIsWaitedForInstead) {
  std::atomic<bool> ended{false};
  std::atomic<bool> adopting{false};
  std::thread thread([&] {
    while (!adopting) {
      std::this_thread::yield();
    }
    ended = true;
  });
  const std::uint64_t before = qTest_LiveObjects();
  {
    const FailingNew failing(1);
    adopting = true;
    qThread_Adopt(std::move(thread));
    EXPECT_TRUE(failing.HasFailed());
  }
  EXPECT_TRUE(ended);
  EXPECT_EQ(qTest_LiveObjects(), before);
}

TEST(Memory, ObjectsGiveBackWhatTheyTook) {
  const auto useEverything = [] {
    qApiLib library = nullptr;
    qLock lock = nullptr;
    qThread thread = nullptr;
    EXPECT_EQ(qApiLib_Construct(&library), qStatus_Success);
    EXPECT_EQ(qLock_Construct(&lock, "lock", 0), qStatus_Success);
    EXPECT_EQ(qThread_Construct(&thread), qStatus_Success);
    EXPECT_EQ(qThread_SetName(thread, "a name too long for any small buffer"), qStatus_Success);
    EXPECT_EQ(qThread_Start(
                  thread, [](void*) { return 0; }, nullptr),
              qStatus_Success);
    EXPECT_EQ(qThread_Join(thread, generous, nullptr), qStatus_Success);
    qObject_Destroy(thread);
    qObject_Destroy(lock);
    qObject_Destroy(library);
  };
  useEverything();
  const std::ptrdiff_t before = ZoTest::LiveAllocations();
  for (int i = 0; i < 10; ++i) {
    useEverything();
  }
  EXPECT_EQ(ZoTest::LiveAllocations(), before);
}

// Whole pages alone are given back, and no even one at the start: it may be that of a huge page.
TEST(Memory, DiscardingABlockLeavesItsNeighboursAndTheErrorNumberAlone) {
  struct Case {
    std::size_t begin, size;        // bytes
    std::size_t discarded, beyond;  // pages
  };
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  constexpr std::size_t pages = 64;
  std::string memory((pages + 2) * page, 'x');
  // From an even page on, wherever the allocator has put the block.
  const auto odd = reinterpret_cast<std::uintptr_t>(memory.data()) % (2 * page);
  const std::size_t start = odd == 0 ? 0 : 2 * page - odd;
  for (const Case& tried : {Case{0, 0, 0, 0}, Case{1, 100, 0, 0}, Case{1, page, 0, 0}, Case{page, page, 1, 2},
                            Case{page - 3, page + 3, 1, 2}, Case{2 * page, 3 * page - 1, 3, 4},
                            Case{2 * page - 3, 40 * page + 5, 3, 42}, Case{page + 1, 20 * page, 3, 21}}) {
    SCOPED_TRACE(testing::Message() << tried.size << " bytes from " << tried.begin << " on");
    std::fill(memory.begin(), memory.end(), 'x');
    std::string expected = memory;
    std::fill(expected.begin() + static_cast<std::ptrdiff_t>(start + tried.discarded * page),
              expected.begin() + static_cast<std::ptrdiff_t>(start + tried.beyond * page), '\0');
    errno = 77;
    qMemory_Discard(memory.data() + start + tried.begin, tried.size);
    EXPECT_EQ(errno, 77);
    EXPECT_TRUE(memory == expected);
  }
}

bool Exists(std::uint64_t threadNumber) {
  return std::ifstream("/proc/self/task/" + std::to_string(threadNumber) + "/comm").good();
}

// Whoever makes threads pays for those that ended meanwhile: nothing else has to be called for it.
TEST(Memory, NextConstructionJoinsEndedStragglers) {
  constexpr int count = 20;
  std::vector<std::atomic<std::uint64_t>> numbers(count);
  const auto body = [](void* argument) {
    static_cast<std::atomic<std::uint64_t>*>(argument)->store(qThread_CurrentId());
    return 0;
  };
  std::vector<qThread> threads(count);
  for (qThread& thread : threads) {
    ASSERT_EQ(qThread_Construct(&thread), qStatus_Success);
  }
  for (std::size_t i = 0; i < threads.size(); ++i) {
    ASSERT_EQ(qThread_Start(threads[i], body, &numbers[i]), qStatus_Success);
  }
  for (const qThread thread : threads) {
    qObject_Destroy(thread);
  }
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (const auto& number : numbers) {
    while ((number == 0 || Exists(number)) && std::chrono::steady_clock::now() < limit) {
      std::this_thread::yield();
    }
    ASSERT_LT(std::chrono::steady_clock::now(), limit);
  }
  // At least the last one is unjoined: its handle was destroyed after every construction so far. (An earlier
  // one may have been found by a later destruction.)
  qThread kept = nullptr;
  const std::ptrdiff_t before = ZoTest::LiveAllocations();
  ASSERT_EQ(qThread_Construct(&kept), qStatus_Success);
  EXPECT_LE(ZoTest::LiveAllocations(), before) << "one object more, and no ended thread less";
  qObject_Destroy(kept);
}

}  // namespace
