#include <gtest/gtest.h>

#include "tests/docs/markdown.h"

namespace {

using namespace ZoTest;

TEST(Documents, LinksLeadToFilesThatExist) {
  std::size_t count = 0;
  for (const std::filesystem::path& document : Documents()) {
    for (const std::string& target : LinkTargets(document)) {
      if (target.find("://") == std::string::npos) {
        ++count;
        EXPECT_TRUE(std::filesystem::exists(document.parent_path() / target)) << document << ": " << target;
      }
    }
  }
  EXPECT_GE(count, 10u);
}

}  // namespace
