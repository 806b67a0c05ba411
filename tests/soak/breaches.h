// What went against a promise. Each is printed at once, with the seed and the time, and counted; any of them makes the
// soak fail.
//
// Threads: any. It takes no lock of others, so it may be called from callbacks.
#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <mutex>
#include <string>

namespace ZoSoak {

class Breaches {
 public:
  Breaches(std::uint64_t seed, std::ostream& out);

  // kind: a few words, the same for all of a kind. Of each kind the first ten are printed.
  void Report(const std::string& kind, const std::string& what);

  std::uint64_t Count() const;
  std::map<std::string, std::uint64_t> ByKind() const;

 private:
  const std::uint64_t seed;
  const std::chrono::steady_clock::time_point start;
  std::ostream& out;
  mutable std::mutex mutex;
  std::map<std::string, std::uint64_t> kinds;
};

}  // namespace ZoSoak
