#include "tests/docs/outputpattern.h"

#include <span>
#include <string_view>

namespace ZoTest {

namespace {

constexpr std::string_view any = "…";

bool TextMatches(std::string_view pattern, std::string_view text) {
  const std::size_t gap = pattern.find(any);
  if (gap == std::string_view::npos) {
    return pattern == text;
  }
  if (text.substr(0, gap) != pattern.substr(0, gap)) {
    return false;
  }
  for (std::size_t skipped = gap; skipped <= text.size(); ++skipped) {
    if (TextMatches(pattern.substr(gap + any.size()), text.substr(skipped))) {
      return true;
    }
  }
  return false;
}

bool LinesMatch(std::span<const std::string> pattern, std::span<const std::string> lines) {
  if (pattern.empty()) {
    return lines.empty();
  }
  if (pattern.front() != any) {
    return !lines.empty() && LineMatches(pattern.front(), lines.front()) &&
           LinesMatch(pattern.subspan(1), lines.subspan(1));
  }
  for (std::size_t skipped = 0; skipped <= lines.size(); ++skipped) {
    if (LinesMatch(pattern.subspan(1), lines.subspan(skipped))) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool LineMatches(const std::string& pattern, const std::string& line) {
  return TextMatches(pattern, line);
}

bool OutputMatches(const std::vector<std::string>& pattern, const std::vector<std::string>& lines) {
  return LinesMatch(pattern, lines);
}

}  // namespace ZoTest
