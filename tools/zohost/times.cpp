#include "tools/zohost/times.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <ctime>

#include "tools/zohost/text.h"
#include "tools/zohost/usageerror.h"

namespace zohost {
namespace {

struct Unit {
  std::string_view name;
  double milliseconds;
};
constexpr std::array<Unit, 4> units = {{{"ms", 1.0}, {"s", 1e3}, {"min", 60e3}, {"h", 3600e3}}};
constexpr double longest = 366.0 * 24 * 3600e3;  // a year: longer is a slip of the finger

}  // namespace

std::chrono::milliseconds ParseDuration(std::string_view text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  const std::string_view suffix(parsed.ptr, static_cast<std::size_t>(end - parsed.ptr));
  if (parsed.ec == std::errc() && std::isfinite(number) && !std::signbit(number)) {
    for (const Unit& unit : units) {
      if (unit.name == suffix && number * unit.milliseconds <= longest) {
        return std::chrono::milliseconds(std::llround(number * unit.milliseconds));
      }
    }
  }
  throw UsageError(fmt::format("\"{}\" is no duration: write a number and ms, s, min or h, such as 200ms.",
                               Printable(text)));
}

std::string IsoTime(std::chrono::system_clock::time_point time) {
  const auto since = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  const std::time_t whole = seconds.count();
  std::tm parts = {};
  gmtime_r(&whole, &parts);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.tm_year + 1900, parts.tm_mon + 1,
                     parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, (since - seconds).count());
}

std::string ShortDuration(std::chrono::milliseconds duration) {
  const auto milliseconds = std::max<std::chrono::milliseconds::rep>(duration.count(), 0);
  const auto seconds = milliseconds / 1000;
  if (milliseconds < 9950) {
    return fmt::format("{:.1f}s", static_cast<double>(milliseconds) / 1e3);
  }
  if (seconds < 60) {
    return fmt::format("{}s", seconds);
  }
  if (seconds < 3600) {
    return fmt::format("{}min", seconds / 60);
  }
  return seconds < 48 * 3600 ? fmt::format("{}h", seconds / 3600) : fmt::format("{}d", seconds / 86400);
}

}  // namespace zohost
