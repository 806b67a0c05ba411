#include "tests/qapi/failingnew.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local int countdown = 0;  // 0: off
thread_local bool failed = false;
thread_local bool spared = false;
constinit std::atomic<int> workersCountdown{0};  // 0 or less: off
constinit std::atomic<bool> workerFailed{false};
constinit std::atomic<std::ptrdiff_t> live{0};

using Name = std::array<char, 16>;
constinit Name programs{};  // set before workersCountdown

Name NameOfThread() {
  Name name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name;
}

// Asked each time, for a thread gets its name a moment after its start.
bool IsWorker() {
  return NameOfThread() != programs;
}

bool IsToFail() {
  if (spared) {
    return false;
  }
  if (countdown > 0 && --countdown == 0) {
    failed = true;
    return true;
  }
  if (workersCountdown > 0 && IsWorker() && --workersCountdown == 0) {
    workerFailed = true;
    return true;
  }
  return false;
}

void* Allocate(std::size_t size) {
  if (IsToFail()) {
    return nullptr;
  }
  void* const block = std::malloc(size != 0 ? size : 1);
  if (block != nullptr) {
    live.fetch_add(1, std::memory_order_relaxed);
  }
  return block;
}

void Free(void* block) {
  if (block != nullptr) {
    live.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
  }
}

void* AllocateOrThrow(std::size_t size) {
  void* const block = Allocate(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

}  // namespace

void* operator new(std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* block) noexcept {
  Free(block);
}
void operator delete[](void* block) noexcept {
  Free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  Free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  Free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  Free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  Free(block);
}

namespace ZoTest {

FailingNew::FailingNew(int nth) {
  failed = false;
  countdown = nth;
}

FailingNew::~FailingNew() {
  countdown = 0;
}

bool FailingNew::HasFailed() const {
  return failed;
}

FailingWorkersNew::FailingWorkersNew(int nth) {
  programs = NameOfThread();
  workerFailed = false;
  workersCountdown = nth;
}

FailingWorkersNew::~FailingWorkersNew() {
  workersCountdown = 0;
}

bool FailingWorkersNew::HasFailed() const {
  return workerFailed;
}

SparedNew::SparedNew(bool spare) : before(spared) {
  spared = spare;
}

SparedNew::~SparedNew() {
  spared = before;
}

std::ptrdiff_t LiveAllocations() {
  return live.load(std::memory_order_relaxed);
}

}  // namespace ZoTest
