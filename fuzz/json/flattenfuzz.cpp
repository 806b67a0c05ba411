// Any document: flattening and unflattening are inverse, and unflattening takes whatever it is given.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/json/require.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsoniterator.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ZoJson document;
  try {
    document = ZoJson::ParseString({reinterpret_cast<const char*>(data), size});
  } catch (const ZoJsonError&) {
    return 0;
  }
  const ZoJson flat = document.Flatten();
  Require(flat.Unflatten().ToString() == document.ToString(), "unflattening undoes flattening");
  for (ZoJsonIterator it(flat); it.Valid(); it.Next()) {
    Require(document.At(it.Key()) == it.Value(), "each entry is named by its pointer");
  }
  // The document itself as a flat one, which may contradict itself.
  const ZoJson deep = document.Unflatten();
  Require(deep.Flatten().Unflatten() == deep, "what was unflattened flattens");
  return 0;
}
