// A pointer's text up to the first line break, and behind it a document to use it on (null when it is no
// JSON).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/json/require.h"
#include "zovyrnsdk/json/zojson.h"

namespace {

ZoJson DocumentOf(std::string_view text) {
  try {
    return ZoJson::ParseString(text);
  } catch (const ZoJsonError&) {
    return {};
  }
}

bool Appends(const ZoJsonPointer& pointer) {
  const auto& segments = pointer.Segments();
  return std::any_of(segments.begin(), segments.end(),
                     [](const auto& segment) { return segment.name == "-"; });
}

void CheckText(const ZoJsonPointer& pointer) {
  const std::string text = pointer.ToString();
  Require(ZoJsonPointer(text) == pointer, "a pointer reads back from its text");
  Require(ZoJsonPointer(text).ToString() == text, "the canonical text is canonical");
  Require(ZoJsonPointer::Combine(ZoJsonPointer(), pointer) == pointer, "nothing above changes nothing");
}

void CheckEdits(const ZoJson& original, std::string_view key, const ZoJsonPointer& pointer) {
  const std::string before = original.ToString();
  Require(original.HasKey(key) == original.HasKey(pointer), "text and pointer find the same");
  ZoJson byText = original;
  ZoJson byPointer = original;
  bool done = true;
  try {
    byText.Set(key, "value");
  } catch (const ZoJsonError&) {
    done = false;
  }
  try {
    byPointer.Set(pointer, "value");
    Require(done, "text and pointer set the same");
  } catch (const ZoJsonError&) {
    Require(!done, "text and pointer raise for the same");
  }
  Require(byText.ToString() == byPointer.ToString(), "text and pointer edit the same");
  Require(done || byText == original, "an edit that raises changes nothing");
  if (done && !Appends(pointer)) {
    Require(byText.At(key) == ZoJson::Of("value"), "what was set is there");
    Require(byPointer.Remove(pointer), "what is there can be removed");
  }
  Require(original.ToString() == before, "a copy's edits are not seen");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view key = input.substr(0, input.find('\n'));
  const ZoJsonPointer pointer(key);
  CheckText(pointer);
  CheckEdits(ZoJson(), key, pointer);
  CheckEdits(DocumentOf(input.substr(std::min(key.size() + 1, input.size()))), key, pointer);
  return 0;
}
