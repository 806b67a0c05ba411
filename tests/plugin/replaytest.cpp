// The inputs that fuzzing began with and what it found worth keeping, played again: with the real threads, and with any
// compiler.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "fuzz/plugin/calls.h"
#include "fuzz/plugin/methods.h"
#include "fuzz/plugin/names.h"

namespace ZoTest {
namespace {

// Plays every file of the folder; each play aborts when a promise is broken.
std::size_t Replay(const char* folder, void (*play)(std::string_view)) {
  std::size_t played = 0;
  const std::filesystem::path path = std::filesystem::path(ZOIO_PLUGIN_CORPUS) / folder;
  for (const auto& file : std::filesystem::directory_iterator(path)) {
    std::ifstream stream(file.path(), std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << file.path();
    const std::string input((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    play(input);
    ++played;
  }
  return played;
}

TEST(PluginReplay, EveryNameOfTheCorpusMeansWhatItsPageSays) {
  EXPECT_GE(Replay("names", ZoFuzz::CheckName), 32U) << "the corpus is there";
}

TEST(PluginReplay, EveryMethodOfTheCorpusIsAnsweredOrRefused) {
  EXPECT_GE(Replay("methods", ZoFuzz::PlayMethod), 44U) << "the corpus is there";
}

TEST(PluginReplay, EveryHostOfTheCorpusGetsWhatItIsPromised) {
  EXPECT_GE(Replay("calls", ZoFuzz::PlayCalls), 31U) << "the corpus is there";
}

}  // namespace
}  // namespace ZoTest
