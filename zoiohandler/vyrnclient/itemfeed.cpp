#include "zoiohandler/vyrnclient/itemfeed.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

#include "zoiohandler/vyrnclient/cachemanager.h"

namespace ZoIO {

namespace {

const ZoJsonPointer payloadPlace("/payload");

// What hosts are promised is the precision of a float.
double AsShown(float value) {
  return static_cast<double>(value);
}

// Takes a primitive into the item. The order of the tests decides: an integer that fits signed 64 bits is
// signed, though it may count as unsigned too.
void TakeValue(ItemManager::ItemInfo& item, const ZoJson& element) {
  if (element.IsInteger()) {
    item.type = enumtype_int64;
    item.value.store_int64(element.Get<long long>());
  } else if (element.IsUnsigned()) {
    item.type = enumtype_uint64;
    item.value.store_uint64(element.Get<unsigned long long>());
  } else if (element.IsFloat()) {
    item.type = enumtype_double;
    item.value.store_float64(AsShown(element.Get<float>()));
  } else if (element.IsBoolean()) {
    item.type = enumtype_bool;
    item.value.store_boolean(element.Get<int>() != 0);
  } else if (element.IsString()) {
    item.value = xhmi::variant_value(element.Get<std::string>());  // may raise, and then type stays too
    item.type = enumtype_string;
  } else {
    item.type = enumtype_invalid;
  }
}

// Reads a value by type; any type beyond 0 to 4 is "INVALID".
ioDataValue MakeRecord(const xhmi::variant_value& value, enumtype type) {
  ioDataValue data{};
  data.type = static_cast<std::uint32_t>(type);
  switch (type) {
    case enumtype_string:
      data.value.text = value.text().c_str();
      break;
    case enumtype_bool:
      data.value.boolean = value.boolean() ? 1 : 0;
      break;
    case enumtype_int64:
      data.value.int64 = value.int64();
      break;
    case enumtype_double:
      data.value.float64 = value.float64();
      break;
    case enumtype_uint64:
      data.value.uint64 = value.uint64();
      break;
    default:
      data.type = enumtype_invalid;
      data.value.text = "INVALID";
      break;
  }
  return data;
}

// Whether an element arrives at the host as what was shown of it before. Texts are left to a look at the item.
bool ShowsSame(const ZoJson& element, const ItemFeed::Shown& shown) {
  switch (shown.type) {
    case enumtype_int64:
      return element.IsInteger() && element.Get<long long>() == shown.value.int64;
    case enumtype_uint64:
      return element.IsUnsigned() && element.Get<unsigned long long>() == shown.value.uint64;
    case enumtype_double:
      return element.IsFloat() &&
             std::bit_cast<std::uint64_t>(AsShown(element.Get<float>())) == shown.value.uint64;
    case enumtype_bool:
      return element.IsBoolean() && (element.Get<int>() != 0) == (shown.value.boolean != 0);
    default:
      return false;
  }
}

}  // namespace

ItemFeed::ItemFeed(std::shared_ptr<const ioHandlerParam> parameters, std::shared_ptr<CallbackGate> gate,
                   std::shared_ptr<Logger> logger)
    : parameters(std::move(parameters)), gate(std::move(gate)), logger(std::move(logger)) {}

void ItemFeed::SetSensor(std::shared_ptr<ISensorManager> sensorManager) {
  sensor = std::move(sensorManager);
  cache = sensor->Cache();
}

bool ItemFeed::IsSensorManagerReady() const {
  return sensor != nullptr && sensor->IsConnected() && sensor->PLC() != nullptr && sensor->Cache() != nullptr;
}

void ItemFeed::UpdateResource(const std::string& resource) {
  try {
    const ZoJson payload = sensor->Read(resource, true).At(payloadPlace);
    sensor->Keep(resource, payload);
  } catch (const std::exception& e) {
    WriteLog(*logger, e.what(), LogLevel_Error, "ZoIO::ZoVyrnClient::UpdateResource");
  }
}

xhmi::variant_value ItemFeed::UpdateItemFromCache(ItemManager::ItemInfo& item) {
  NoteTime(std::chrono::system_clock::now());
  const std::uint64_t seen = item.seen;
  const enumtype type = item.type;
  RefreshFromCache(item);
  // One that was of version 0, which no slot has, was looked at anew in any case; a type alone changes when the cache has
  // nothing any more.
  refreshes += item.seen != seen || seen == 0 || item.type != type ? 1 : 0;
  LetGoOfDocument();
  return item.value;
}

void ItemFeed::LetGoOfDocument() noexcept {
  lastSlot = nullptr;
  lastDocument = ZoJson();
}

void ItemFeed::NoteTime(std::chrono::system_clock::time_point now) {
  if (now < lastTime) {
    ++clockRun;
    ++edition;
    lastSlot = nullptr;
  }
  lastTime = now;
}

void ItemFeed::RefreshFromCache(ItemManager::ItemInfo& item, const ZoJson* element) {
  if (item.slot != nullptr && CacheManager::Version(*item.slot) == item.seen && item.clockRun == clockRun) {
    return;
  }
  try {
    if (item.slot == nullptr) {
      item.slot = cache->Find(item.uri);
      if (item.slot == nullptr) {
        throw CacheError("Cache is empty.");
      }
    }
    if (element == nullptr) {
      element = Document(*item.slot).Find(item.pointer);
    }
    if (element == nullptr) {
      item.type = enumtype_invalid;
    } else if (element->IsPrimitive()) {
      TakeValue(item, *element);
    }
    item.seen = lastVersion;
    item.clockRun = clockRun;
  } catch (const ZoJsonError&) {
    item.type = enumtype_invalid;
    item.seen = lastVersion;
    item.clockRun = clockRun;
  } catch (const CacheError&) {
    item.type = enumtype_invalid;
  } catch (const std::exception&) {
    // The item keeps what it has: a passing fault, such as memory that ran out, says nothing about the value.
  }
}

const ZoJson& ItemFeed::Document(const CacheManager::Slot& slot) {
  if (&slot != lastSlot || CacheManager::Version(slot) != lastVersion) {
    lastSlot = nullptr;
    long long at = 0;
    lastDocument = cache->Get(slot, 0, lastVersion, at);
    // A pass may take long, and what it found at its end does not hold for a clock that was set back to before that.
    lastTime = std::max(lastTime, std::chrono::system_clock::time_point(std::chrono::milliseconds(at)));
    NoteShape(slot);
    lastSlot = &slot;
  }
  return lastDocument;
}

void ItemFeed::NoteShape(const CacheManager::Slot& slot) {
  const std::uint64_t shape = lastDocument.Shape();
  if (shape == 0 || lastVersion == 0) {
    sameSince = std::numeric_limits<std::uint64_t>::max();
    slot.look = {};
    return;
  }
  if (slot.look.shape != shape) {
    slot.look = {shape, lastVersion};
  }
  sameSince = slot.look.since;
}

void ItemFeed::Watch(ItemManager::ItemInfo& item) {
  ++item.watchers;
  refreshes += item.watchers > 1 ? 1 : 0;
}

bool ItemFeed::HoldsStill(const char* itemName, Shown& shown, const ZoJson*& element) {
  if (shown.slot == nullptr || shown.edition != edition || shown.refreshes != refreshes ||
      shown.memberSize == 0) {
    return false;
  }
  try {
    const ZoJson& document = Document(*shown.slot);
    // Names are looked at only where they may have changed: they lie wherever they were when the item was made.
    element = shown.version >= sameSince
                  ? document.ElementAt(shown.place)
                  : document.FindAt(shown.place, {itemName + shown.memberAt, shown.memberSize});
  } catch (const std::exception&) {
    return false;  // the look at the item knows what to do then
  }
  if (element == nullptr || !ShowsSame(*element, shown)) {
    return false;
  }
  shown.version = lastVersion;
  return true;
}

void ItemFeed::Show(const ItemManager::ItemInfo& item, Shown& shown, const ZoJson* element) const {
  if (item.slot == nullptr || item.clockRun != clockRun) {  // it could not be refreshed
    shown = {};
    return;
  }
  if ((element == nullptr && item.seen != shown.version) || item.watchers != 1) {
    shown = {};
    FindMember(item, shown);
  }
  const ioDataValue data = MakeRecord(item.value, item.type);
  shown.slot = item.slot;
  shown.version = item.seen;
  shown.value = data.value;
  shown.edition = edition;
  shown.refreshes = refreshes;
  shown.type = data.type & 0xFFU;
}

void ItemFeed::FindMember(const ItemManager::ItemInfo& item, Shown& shown) const {
  const auto& segments = item.pointer.Segments();
  if (segments.size() != 1 || lastSlot != item.slot || lastVersion != item.seen || item.watchers != 1 ||
      item.name.size() > std::numeric_limits<std::uint16_t>::max() ||
      !item.name.ends_with(segments.front().name)) {
    return;
  }
  const std::string& member = segments.front().name;
  const std::uint32_t place = lastDocument.PlaceOf(member);
  if (place < noPlace) {
    shown.place = place & noPlace;
    shown.memberSize = static_cast<std::uint16_t>(member.size());
    shown.memberAt = static_cast<std::uint16_t>(item.name.size() - member.size());
  }
}

void ItemFeed::ShowAgain(const char* itemName, const Shown& shown, const CallbackGate::Entry& showing) const {
  ioDataValue data{};
  data.type = shown.type;
  data.value = shown.value;
  Deliver(itemName, data, showing);
}

void ItemFeed::UpdateItem(const std::string& itemName, const xhmi::variant_value& value, enumtype type,
                          int status) const {
  ioDataValue data = MakeRecord(value, type);
  data.status = status;
  Deliver(itemName.c_str(), data, BeginShowing());
}

void ItemFeed::UpdateItem(const std::string& itemName, const ioDataValue& value) const {
  Deliver(itemName.c_str(), value, BeginShowing());
}

void ItemFeed::Deliver(const char* itemName, const ioDataValue& value,
                       const CallbackGate::Entry& showing) const {
  if (parameters->itemValue != nullptr && showing.StillOpen()) {
    parameters->itemValue(itemName, &value, parameters->context);
  }
}

}  // namespace ZoIO
