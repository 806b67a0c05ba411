#include "tests/soak/breaches.h"

#include <iomanip>
#include <ostream>

namespace ZoSoak {
namespace {

constexpr std::uint64_t kPrinted = 10;

}  // namespace

Breaches::Breaches(std::uint64_t seed, std::ostream& out)
    : seed(seed), start(std::chrono::steady_clock::now()), out(out) {}

void Breaches::Report(const std::string& kind, const std::string& what) {
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  const std::lock_guard lock(mutex);
  if (++kinds[kind] <= kPrinted) {
    out << "BREACH seed " << seed << ", " << std::fixed << std::setprecision(3) << time.count()
        << " s: " << kind << ": " << what << std::endl;
  }
}

std::uint64_t Breaches::Count() const {
  std::uint64_t count = 0;
  for (const auto& [kind, number] : ByKind()) {
    count += number;
  }
  return count;
}

std::map<std::string, std::uint64_t> Breaches::ByKind() const {
  const std::lock_guard lock(mutex);
  return kinds;
}

}  // namespace ZoSoak
