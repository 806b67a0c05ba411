// How long calls took, in a fixed amount of memory: what the soak remembers must not look like growth of the plug-in.
//
// Threads: any number may add; the figures are exact once nobody adds.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace ZoSoak {

class Histogram {
 public:
  void Add(std::chrono::nanoseconds value);

  std::uint64_t Count() const { return count; }
  std::chrono::nanoseconds Most() const { return std::chrono::nanoseconds(most); }
  // At least this share of the values is no larger than this. Too large by 1/16 at most, and never above Most; 0 for
  // no values.
  std::chrono::nanoseconds Quantile(double share) const;

  // The bucket of a value, and the largest value of a bucket.
  static std::size_t Bucket(std::uint64_t value);
  static std::uint64_t Upper(std::size_t bucket);

 private:
  static constexpr unsigned kBits = 4;  // 2^4 buckets for each power of two
  static constexpr std::size_t kBuckets = (64 - kBits + 1) << kBits;

  std::array<std::atomic<std::uint64_t>, kBuckets> buckets{};
  std::atomic<std::uint64_t> count = 0;
  std::atomic<std::int64_t> most = 0;
};

}  // namespace ZoSoak
