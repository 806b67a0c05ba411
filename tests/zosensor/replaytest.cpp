// The inputs that fuzzing began with and what it found worth keeping, played again.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/zosensor/scripts.h"

namespace ZoSensor {
namespace {

std::size_t PlayAll(const std::string& target, void (*play)(std::string_view)) {
  std::size_t played = 0;
  for (const auto& file :
       std::filesystem::directory_iterator(std::filesystem::path(ZOSENSOR_CORPUS) / target)) {
    std::ifstream stream(file.path(), std::ios::binary);
    const std::string script((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    SCOPED_TRACE(file.path());
    play(script);  // aborts when a promise is broken
    ++played;
  }
  return played;
}

TEST(Replay, SessionsKeepTheirPromises) {
  EXPECT_GE(PlayAll("fuzz_zosensor_session", ZoFuzz::PlaySession), 5U);
}
TEST(Replay, RestDoorKeepsItsPromises) {
  EXPECT_GE(PlayAll("fuzz_zosensor_rest", ZoFuzz::PlayRest), 2U);
}
TEST(Replay, ResourceFilesAreRefusedOrRun) {
  EXPECT_GE(PlayAll("fuzz_zosensor_resources", ZoFuzz::PlayResourceFile), 4U);
}

}  // namespace
}  // namespace ZoSensor
