// What the fuzzer found worth keeping, played again.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "fuzz/sdk/receive.h"
#include "fuzz/sdk/stream.h"

namespace ZoTest {
namespace {

// Plays every file of the folder; each play aborts when an invariant breaks.
std::size_t Replay(const char* folder, void (*play)(std::string_view)) {
  std::size_t played = 0;
  const std::filesystem::path path = std::filesystem::path(ZOIO_SDK_CORPUS) / folder;
  for (const auto& file : std::filesystem::directory_iterator(path)) {
    std::ifstream stream(file.path(), std::ios::binary);
    const std::string input((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    SCOPED_TRACE(file.path());
    play(input);
    ++played;
  }
  return played;
}

TEST(ReceiveReplay, EveryScriptOfTheCorpusKeepsTheInvariants) {
  EXPECT_GE(Replay("receive", ZoFuzz::ReceiveScript), 5U) << "the corpus is there";
}

TEST(StreamReplay, EveryInputOfTheCorpusKeepsTheInvariants) {
  EXPECT_GE(Replay("stream", ZoFuzz::PlayStream), 34U) << "the corpus is there";
}

}  // namespace
}  // namespace ZoTest
