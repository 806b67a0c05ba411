#include "zovyrnsdk/json/zojsonhash.h"

#include <cstddef>
#include <cstring>

namespace {

std::uint64_t Read64(const char* from) noexcept {
  std::uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

std::uint64_t Read32(const char* from) noexcept {
  std::uint32_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

std::uint64_t Byte(char byte) noexcept {
  return static_cast<unsigned char>(byte);
}

// Both halves of the 128-bit product, folded: every bit of either factor reaches every bit of the result.
std::uint64_t Mix(std::uint64_t a, std::uint64_t b) noexcept {
#if defined(__SIZEOF_INT128__)
  __extension__ using Product = unsigned __int128;
  const Product product = static_cast<Product>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
#else
  const std::uint64_t aLow = a & 0xFFFFFFFFU, aHigh = a >> 32U, bLow = b & 0xFFFFFFFFU, bHigh = b >> 32U;
  const std::uint64_t low = aLow * bLow, middle = aHigh * bLow + (low >> 32U);
  const std::uint64_t other = aLow * bHigh + (middle & 0xFFFFFFFFU);
  const std::uint64_t high = aHigh * bHigh + (middle >> 32U) + (other >> 32U);
  return ((other << 32U) | (low & 0xFFFFFFFFU)) ^ high;
#endif
}

// The seed is where the loader has put this byte. Unlike a number drawn at start-up it is there before any
// static constructor of another file makes its first pointer.
const char seedPlace = 0;

}  // namespace

std::uint64_t ZoJsonHash(std::string_view name) noexcept {
  const std::uint64_t place = reinterpret_cast<std::uintptr_t>(&seedPlace);
  std::uint64_t first = place * 0x9E3779B97F4A7C15U;
  const std::uint64_t second = (place + 0x5851F42D4C957F2DU) * 0xD1342543DE82EF95U;
  const char* from = name.data();
  std::size_t size = name.size();
  std::uint64_t a = 0;
  std::uint64_t b = 0;
  if (size <= 16) {
    if (size >= 8) {
      a = Read64(from);
      b = Read64(from + size - 8);
    } else if (size >= 4) {
      a = (Read32(from) << 32U) | Read32(from + size - 4);
    } else if (size > 0) {
      a = (Byte(from[0]) << 16U) | (Byte(from[size / 2]) << 8U) | Byte(from[size - 1]);
    }
  } else {
    for (; size > 16; size -= 16, from += 16) {
      first = Mix(Read64(from) ^ first, Read64(from + 8) ^ second);
    }
    // The last sixteen bytes of the name, some of them for the second time.
    a = Read64(from + size - 16);
    b = Read64(from + size - 8);
  }
  return Mix(a ^ first, b ^ second ^ (static_cast<std::uint64_t>(name.size()) << 32U));
}
