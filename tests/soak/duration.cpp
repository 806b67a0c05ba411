#include "tests/soak/duration.h"

#include <charconv>
#include <stdexcept>

namespace ZoSoak {
namespace {

constexpr long long kLongest = 7LL * 24 * 3600;

long long SecondsIn(std::string_view unit) {
  if (unit == "s") {
    return 1;
  }
  if (unit == "m") {
    return 60;
  }
  return unit == "h" ? 3600 : 0;
}

}  // namespace

std::chrono::seconds ParseDuration(std::string_view text) {
  const std::string quoted = "\"" + std::string(text) + "\"";
  long long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
  const long long factor = SecondsIn(unit);
  if (error == std::errc::invalid_argument || (error == std::errc() && factor == 0)) {
    throw std::invalid_argument(quoted + " is no duration: write a number and s, m or h, such as 90s or 10m");
  }
  // The comparison is made before the product, which might not fit.
  if (error != std::errc() || number < 1 || number > kLongest / factor) {
    throw std::invalid_argument(quoted + " is out of range: from 1s to 168h");
  }
  return std::chrono::seconds(number * factor);
}

std::string DurationText(std::chrono::seconds duration) {
  const long long all = duration.count();
  std::string text;
  for (const auto& [amount, unit] : {std::pair(all / 3600, 'h'), {all / 60 % 60, 'm'}, {all % 60, 's'}}) {
    if (amount != 0) {
      text += (text.empty() ? "" : " ") + std::to_string(amount) + unit;
    }
  }
  return text.empty() ? "0s" : text;
}

}  // namespace ZoSoak
