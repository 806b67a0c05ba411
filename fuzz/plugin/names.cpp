#include "fuzz/plugin/names.h"

#include <algorithm>
#include <exception>
#include <string>

#include "fuzz/json/require.h"
#include "fuzz/plugin/namemodel.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace ZoFuzz {

namespace {

using ZoIO::ItemInfo;
using ZoIO::ItemManager;

ItemInfo RecordOf(const std::string& name) {
  try {
    return ItemManager::CreateItem(name);
  } catch (const std::exception&) {
    Require(false, "no name is refused");
    throw;
  }
}

bool SamePlace(const ZoJsonPointer& pointer, const std::vector<std::string>& names) {
  const auto& segments = pointer.Segments();
  return std::equal(segments.begin(), segments.end(), names.begin(), names.end(),
                    [](const auto& segment, const std::string& name) { return segment.name == name; });
}

void CheckEndpoint(const ZoJson& endpoint, const std::vector<std::string>& members) {
  ZoJson level = endpoint;
  for (const std::string& member : members) {
    Require(level.IsObject() && level.Size() == 1, "an endpoint has one member at each level");
    const ZoJsonIterator only(level);
    Require(only.Key() == member, "an endpoint's members are the tidied segments");
    level = ZoJson(only.Value());
  }
  Require(level.IsInteger() && level.Get<int>() == 0, "an endpoint's one leaf is 0");
}

// The way of a write: flattened, the leaf replaced, unflattened.
void CheckFlat(const ZoJson& endpoint) {
  const ZoJson flat = endpoint.Flatten();
  Require(flat.Size() == 1, "a flat endpoint is one entry");
  Require(flat.Unflatten() == endpoint, "an endpoint survives being flattened");
}

void CheckFresh(const ItemInfo& info) {
  Require(info.valid && !info.subscribed, "a new record is valid and not subscribed");
  Require(info.type == enumtype_invalid, "a new record has no value");
  Require(info.value == xhmi::variant_value(0LL), "a new record's variant is the integer 0");
}

void CheckSame(const ItemInfo& first, const ItemInfo& second) {
  Require(first.name == second.name && first.uri == second.uri &&
              first.subscriptionUri == second.subscriptionUri && first.endpoint == second.endpoint &&
              first.pointer == second.pointer,
          "a name means the same each time");
}

}  // namespace

void CheckName(std::string_view text) {
  const std::string name(text);
  const ItemInfo info = RecordOf(name);
  const NameModel model(name);
  Require(info.name == name, "the name stays as it is");
  Require(info.uri == model.uri, "the resource is what stands before the first #");
  Require(info.subscriptionUri.ends_with('*'), "a pattern ends with a star");
  Require(info.subscriptionUri == model.subscriptionUri, "the pattern is the documented one");
  Require(SamePlace(info.pointer, model.place), "the place is the documented one");
  if (model.endpoint) {
    CheckEndpoint(info.endpoint, *model.endpoint);
  } else {
    Require(info.endpoint.IsNull(), "a name without # has no endpoint");
  }
  CheckFlat(info.endpoint);
  Require(model.endpoint.has_value() ? info.endpoint == model.Body(ZoJson::Of(0)) : info.endpoint.Empty(),
          "the endpoint is the body of a write of 0");
  CheckFresh(info);
  CheckSame(info, RecordOf(name));
}

}  // namespace ZoFuzz
