#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "fuzz/plugin/calls.h"

// An input takes thousands of branches, and by default most of the time would go into counting which of them are rare.
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
  static char plain[] = "-entropic=0";
  static std::vector<char*> extended(*arguments, *arguments + *count + 1);
  extended.insert(extended.begin() + 1, plain);  // before all others, which may say it differently
  *arguments = extended.data();
  ++*count;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ZoFuzz::PlayCalls({reinterpret_cast<const char*>(data), size});
  return 0;
}
