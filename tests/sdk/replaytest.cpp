// What the fuzzer found worth keeping, played again.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/sdk/receive.h"

namespace ZoTest {
namespace {

TEST(ReceiveReplay, EveryScriptOfTheCorpusKeepsTheInvariants) {
  std::size_t played = 0;
  for (const auto& file : std::filesystem::directory_iterator(ZOIO_SDK_CORPUS)) {
    std::ifstream stream(file.path(), std::ios::binary);
    const std::string script((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    SCOPED_TRACE(file.path());
    ZoFuzz::ReceiveScript(script);  // aborts when an invariant breaks
    ++played;
  }
  EXPECT_GE(played, 5U) << "the corpus is there";
}

}  // namespace
}  // namespace ZoTest
