#include "tests/soak/histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace ZoSoak {

std::size_t Histogram::Bucket(std::uint64_t value) {
  const std::uint64_t linear = std::uint64_t{1} << kBits;
  if (value < linear) {
    return static_cast<std::size_t>(value);
  }
  const unsigned shift = static_cast<unsigned>(std::bit_width(value)) - kBits - 1;
  return static_cast<std::size_t>(((std::uint64_t{shift} + 1) << kBits) + ((value >> shift) - linear));
}

std::uint64_t Histogram::Upper(std::size_t bucket) {
  const std::size_t linear = std::size_t{1} << kBits;
  if (bucket < linear) {
    return bucket;
  }
  const std::size_t shift = (bucket >> kBits) - 1;
  const std::uint64_t first = (linear + (bucket & (linear - 1))) << shift;
  return first + ((std::uint64_t{1} << shift) - 1);
}

void Histogram::Add(std::chrono::nanoseconds value) {
  const std::int64_t amount = std::max<std::int64_t>(value.count(), 0);
  ++buckets[Bucket(static_cast<std::uint64_t>(amount))];
  ++count;
  std::int64_t before = most;
  while (before < amount && !most.compare_exchange_weak(before, amount)) {
  }
}

std::chrono::nanoseconds Histogram::Quantile(double share) const {
  const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(Count())));
  std::uint64_t seen = 0;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    seen += buckets[bucket];
    if (seen > 0 && seen >= wanted) {
      return std::min(std::chrono::nanoseconds(Upper(bucket)), Most());
    }
  }
  return Most();
}

}  // namespace ZoSoak
