// What the documents show is executed, and must print what they show.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/docs/markdown.h"
#include "tests/docs/outputpattern.h"
#include "tests/docs/shell.h"

namespace {

using namespace ZoTest;

// By file name, which also names the test.
std::vector<std::string> DocumentsWithCommands() {
  std::vector<std::string> names;
  for (const std::filesystem::path& document : Documents()) {
    if (!ConsoleCommands(document).empty()) {
      names.push_back(document.lexically_relative(ZOIO_ROOT).string());
    }
  }
  return names;
}

class ConsoleOf : public testing::TestWithParam<std::string> {};

TEST_P(ConsoleOf, PrintsWhatIsShown) {
  for (const ConsoleCommand& shown : ConsoleCommands(std::filesystem::path(ZOIO_ROOT) / GetParam())) {
    const ChildResult result = RunInShell(shown.command);
    EXPECT_TRUE(result.finished && result.signal == 0) << shown.place << ": " << result.Describe();
    EXPECT_TRUE(OutputMatches(shown.output, SplitLines(result.output)))
        << shown.place << ": \"" << shown.command << "\" printed\n"
        << result.output;
  }
}

std::string TestName(const testing::TestParamInfo<std::string>& document) {
  std::string name = document.param;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == '/' || c == '-' || c == '.'; }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Documents, ConsoleOf, testing::ValuesIn(DocumentsWithCommands()), TestName);

TEST(Documents, ReadmeShowsCommands) {
  EXPECT_GE(ConsoleCommands(std::filesystem::path(ZOIO_ROOT) / "README.md").size(), 6u);
}

}  // namespace
