#include "tests/json/countingmemory.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t never = std::numeric_limits<std::size_t>::max();

std::atomic<std::size_t> requests{0};
std::atomic<std::size_t> living{0};
std::atomic<std::size_t> left{never};
std::atomic<bool> failed{false};

void* Allocate(std::size_t size) {
  requests.fetch_add(1, std::memory_order_relaxed);
  if (left != never && left-- == 0) {
    left = never;
    failed = true;
    throw std::bad_alloc();
  }
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  living.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void Free(void* block) noexcept {
  if (block != nullptr) {
    living.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
  }
}

}  // namespace

std::size_t CountingMemory::Requests() {
  return requests;
}
std::size_t CountingMemory::Living() {
  return living;
}

void CountingMemory::FailAfter(std::size_t count) {
  failed = false;
  left = count;
}

bool CountingMemory::StopFailing() {
  left = never;
  return failed;
}

void* operator new(std::size_t size) {
  return Allocate(size);
}
void* operator new[](std::size_t size) {
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
