// Each promise of the guarantees page names the tests that show it, and they exist.
#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <sstream>

#include "tests/docs/markdown.h"

namespace {

using namespace ZoTest;

const std::filesystem::path root = ZOIO_ROOT;

// "Suite.Name" of every test in the sources.
std::set<std::string> Tests() {
  std::set<std::string> tests;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "tests")) {
    if (entry.path().extension() != ".cpp") {
      continue;
    }
    std::istringstream text(ReadFile(entry.path()));
    std::string line;
    while (std::getline(text, line)) {
      const std::size_t open = line.find('(');
      const std::size_t comma = line.find(", ");
      const std::size_t close = line.find(')');
      if (line.starts_with("TEST") && comma < close && close != std::string::npos) {
        tests.insert(line.substr(open + 1, comma - open - 1) + '.' +
                     line.substr(comma + 2, close - comma - 2));
      }
    }
  }
  return tests;
}

// The names in backticks of a table's cell.
std::vector<std::string> NamesIn(const std::string& cell) {
  std::vector<std::string> names;
  std::size_t begin = cell.find('`');
  while (begin != std::string::npos) {
    const std::size_t end = cell.find('`', begin + 1);
    names.push_back(cell.substr(begin + 1, end - begin - 1));
    begin = end == std::string::npos ? end : cell.find('`', end + 1);
  }
  return names;
}

class Guarantees : public testing::TestWithParam<const char*> {};

TEST_P(Guarantees, AreShownByTestsThatExist) {
  const std::set<std::string> tests = Tests();
  const auto rows = TableRows(root / "docs/guarantees.md", GetParam());
  EXPECT_FALSE(rows.empty());
  for (const auto& row : rows) {
    const std::vector<std::string> names = NamesIn(row.at(1));
    EXPECT_FALSE(names.empty()) << row.at(0);
    for (const std::string& name : names) {
      EXPECT_TRUE(tests.contains(name)) << name;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, Guarantees,
                         testing::Values("Nothing is lost", "Values are right",
                                         "What blocks, and for how long", "The host's process is safe"),
                         [](const auto& instance) {
                           std::string name;
                           for (const char c : std::string(instance.param)) {
                             name +=
                                 std::isalpha(static_cast<unsigned char>(c)) != 0 ? std::string(1, c) : "";
                           }
                           return name;
                         });

}  // namespace
