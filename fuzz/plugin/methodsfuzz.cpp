#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/plugin/methods.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ZoFuzz::PlayMethod({reinterpret_cast<const char*>(data), size});
  return 0;
}
