// A stack of plain values that begins in a buffer of its own, so that ordinary documents are parsed without
// asking for memory that is given back at the end. Internal to this folder.
//
// Threads: one. The values are moved as bytes and never destroyed; that is the user's business.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>

#include "zovyrnsdk/json/zojsonerror.h"

// What reading a document may still cost.
class ZoJsonBudget {
 public:
  explicit ZoJsonBudget(std::size_t bytes) noexcept : left(bytes) {}

  void Take(std::size_t bytes) {
    if (bytes > left) {
      throw ZoJsonTooLarge("JSON text: the document is too large");
    }
    left -= bytes;
  }
  void Give(std::size_t bytes) noexcept { left += bytes; }

 private:
  std::size_t left;
};

template <typename T, std::size_t OwnCount>
class ZoJsonStack {
 public:
  // budget pays for what does not fit into the own buffer; it may be null, and must live as long otherwise.
  // cppcheck-suppress uninitMemberVar ; own is raw memory
  explicit ZoJsonStack(ZoJsonBudget* budget = nullptr) noexcept
      : budget(budget), data(reinterpret_cast<T*>(own)) {}
  ~ZoJsonStack() {
    if (data != reinterpret_cast<T*>(own)) {
      ::operator delete(data);
    }
  }
  ZoJsonStack(const ZoJsonStack&) = delete;
  ZoJsonStack& operator=(const ZoJsonStack&) = delete;

  std::size_t Size() const noexcept { return size; }
  T* Top(std::size_t count) noexcept { return data + (size - count); }
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete): clang 14 destroys what a std::optional holds twice
  T* All() noexcept { return data; }
  void Drop(std::size_t count) noexcept { size -= count; }

  // Room for so many more on top, uninitialised; they count once Grow is called.
  T* Room(std::size_t count) {
    if (capacity - size < count) {
      Enlarge(count);
    }
    return data + size;
  }
  void Grow(std::size_t count) noexcept { size += count; }

 private:
  void Enlarge(std::size_t count) {
    const std::size_t wanted = capacity * 2 > size + count ? capacity * 2 : size + count;
    if (budget != nullptr) {
      budget->Take(wanted * sizeof(T));
    }
    T* larger = static_cast<T*>(::operator new(wanted * sizeof(T)));
    std::memcpy(static_cast<void*>(larger), static_cast<const void*>(data), size * sizeof(T));
    if (data != reinterpret_cast<T*>(own)) {
      ::operator delete(data);
      if (budget != nullptr) {
        budget->Give(capacity * sizeof(T));
      }
    }
    data = larger;
    capacity = wanted;
  }

  ZoJsonBudget* const budget;
  T* data;
  std::size_t size = 0;
  std::size_t capacity = OwnCount;
  alignas(T) unsigned char own[OwnCount * sizeof(T)];
};
