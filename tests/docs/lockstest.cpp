// The lock order page names every lock there is.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>

#include "tests/docs/markdown.h"

namespace {

using namespace ZoTest;

const std::filesystem::path root = ZOIO_ROOT;

// By the name that the lock has in the code, as the page shows it.
std::map<std::string, int> DocumentedLocks() {
  std::map<std::string, int> locks;
  for (const auto& row : TableRows(root / "docs/architecture.md", "Lock order")) {
    locks.emplace(WithoutBackticks(row.at(1)), std::stoi(row.at(0)));
  }
  return locks;
}

std::map<std::string, int> Ranks() {
  const std::string header = ReadFile(root / "zoapi/threads/lockranks.h");
  static const std::regex entry(R"((LockRank_\w+) = (\d+))");
  std::map<std::string, int> ranks;
  for (std::sregex_iterator found(header.begin(), header.end(), entry), end; found != end; ++found) {
    ranks.emplace((*found)[1], std::stoi((*found)[2]));
  }
  return ranks;
}

// Every ranked lock in the sources: a Mutex with its literal name, or a call that makes a qLock. A name ends with its line:
// the matcher recurses for every character, and text between two literals would overflow a sanitizer's stack.
std::map<std::string, int> LocksInTheCode() {
  const std::map<std::string, int> ranks = Ranks();
  static const std::regex lock(R"re(\"([^\"\n]+)\",\s*(?:Zo::)?(LockRank_\w+)(?: ([+-]) (\d+))?[})])re");
  std::map<std::string, int> locks;
  for (const char* room : {"qapi", "zoapi", "zovyrnsdk", "zoiohandler"}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root / room)) {
      if (!entry.is_regular_file()) {
        continue;
      }
      const std::string text = ReadFile(entry.path());
      for (std::sregex_iterator found(text.begin(), text.end(), lock), end; found != end; ++found) {
        const int offset = (*found)[4].matched ? std::stoi((*found)[4]) : 0;
        locks.emplace((*found)[1], ranks.at((*found)[2]) + ((*found)[3] == "-" ? -offset : offset));
      }
    }
  }
  return locks;
}

TEST(LockOrderPage, NamesEveryLockOfTheCodeWithItsRank) {
  const std::map<std::string, int> locks = LocksInTheCode();
  EXPECT_GE(locks.size(), 10u);
  EXPECT_EQ(DocumentedLocks(), locks);
}

// The last row is the unranked lock.
TEST(LockOrderPage, IsSortedFromTheOutermostToTheInnermost) {
  const auto rows = TableRows(root / "docs/architecture.md", "Lock order");
  EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end() - 1, [](const auto& a, const auto& b) {
    return std::stoi(a.at(0)) < std::stoi(b.at(0));
  }));
}

}  // namespace
