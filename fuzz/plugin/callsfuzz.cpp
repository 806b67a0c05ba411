#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/plugin/calls.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ZoFuzz::PlayCalls({reinterpret_cast<const char*>(data), size});
  return 0;
}
