#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/sdk/stream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ZoFuzz::PlayStream({reinterpret_cast<const char*>(data), size});
  return 0;
}
