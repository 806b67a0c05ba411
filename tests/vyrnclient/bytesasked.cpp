#include "tests/vyrnclient/bytesasked.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constinit std::atomic<std::size_t> asked{0};

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  asked.fetch_add(size, std::memory_order_relaxed);
  return std::malloc(size != 0 ? size : 1);
}
void* operator new(std::size_t size) {
  void* const block = operator new(size, std::nothrow);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}

namespace ZoTest {

std::size_t BytesAsked() {
  return asked.load(std::memory_order_relaxed);
}

}  // namespace ZoTest
