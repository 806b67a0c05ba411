#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/sdk/receive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ZoFuzz::ReceiveScript({reinterpret_cast<const char*>(data), size});
  return 0;
}
