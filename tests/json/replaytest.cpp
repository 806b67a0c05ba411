// Runs a fuzz target over its committed inputs: what was found once stays found, with any compiler.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> Inputs() {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(ZOIO_CORPUS)) {
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

TEST(ZoJsonReplay, EveryCommittedInputKeepsThePromises) {
  const auto paths = Inputs();
  ASSERT_GE(paths.size(), 10U) << ZOIO_CORPUS;
  for (const auto& path : paths) {
    SCOPED_TRACE(path);
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file.is_open());
    // In memory of exactly its size, so that the address sanitizer sees any byte that is read behind it.
    const std::vector<std::uint8_t> input{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(LLVMFuzzerTestOneInput(input.data(), input.size()), 0);
  }
}

}  // namespace
