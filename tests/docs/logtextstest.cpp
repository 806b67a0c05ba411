// The log texts that docs/host-abi.md promises are the ones that the plug-in writes.
#include <gtest/gtest.h>

#include <string_view>

#include "tests/docs/markdown.h"

namespace {

using namespace ZoTest;

// Everything that is compiled into the plug-in's own rooms, with adjacent literals as they stand.
std::string Sources() {
  std::string text;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(std::filesystem::path(ZOIO_ROOT) / "zoiohandler")) {
    if (entry.path().extension() == ".cpp") {
      text += ReadFile(entry.path());
    }
  }
  return text;
}

// The parts of a documented text between its gaps.
std::vector<std::string> Parts(std::string_view text) {
  constexpr std::string_view gap = "…";
  std::vector<std::string> parts;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = text.find(gap);
    if (end != 0 && !text.empty()) {
      parts.emplace_back(text.substr(0, end));
    }
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + gap.size());
  }
  return parts;
}

TEST(LogTexts, AreThoseOfTheCode) {
  const std::string sources = Sources();
  const auto rows = TableRows(std::filesystem::path(ZOIO_ROOT) / "docs/host-abi.md", "Log texts");
  EXPECT_GE(rows.size(), 20u);
  for (const auto& row : rows) {
    for (const std::string& part : Parts(WithoutBackticks(row.at(1)))) {
      EXPECT_NE(sources.find(part), std::string::npos) << "\"" << part << "\" is logged by nobody";
    }
  }
}

}  // namespace
