// Any text: it is parsed or refused, and what was parsed prints to a text that parses to the same.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/json/require.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonshapes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ZoJson document;
  try {
    document = ZoJson::ParseString({reinterpret_cast<const char*>(data), size});
  } catch (const ZoJsonError& error) {
    Require(std::string_view(error.what()).starts_with("JSON text, byte "), "a refusal names the position");
    return 0;
  }
  const std::string text = document.ToString();
  const ZoJson back = ZoJson::ParseString(text);
  Require(back == document, "what is printed parses to the same");
  Require(back.ToString() == text, "what is printed again is the same text");
  ZoJsonShapes shapes;
  // What comes once is not remembered; from the third time on it is of use.
  for (int time = 0; time < 3; ++time) {
    std::size_t memory = std::size_t{1} << 30;
    Require(ZoJson::ParseString(text, memory, shapes).ToString() == text,
            "what is remembered changes nothing");
  }
  return 0;
}
