// The way of values from the sensor to the host: into the cache, out of it, and through the item-value
// callback.
//
// The part of an instance that its monitor thread works with. It is a class of its own because the thread may
// outlive the instance for a while: the thread co-owns the feed, and the host's callbacks lie behind a gate
// that closes with the instance.
//
// Threads: one at a time, under the instance lock; Sensor from any. Owner: shared by the
// instance and its monitor thread. Its ways in and out are set once, before the monitor thread starts; what it remembers
// changes under the instance lock.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "xhmi/iohandler.h"
#include "xhmi/variant_value.h"
#include "zoiohandler/vyrnclient/callbackgate.h"
#include "zoiohandler/vyrnclient/isensormanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"

namespace ZoIO {

class ItemFeed {
 public:
  ItemFeed(std::shared_ptr<const ioHandlerParam> parameters, std::shared_ptr<CallbackGate> gate,
           std::shared_ptr<Logger> logger);

  // Once, as soon as the sensor manager exists.
  void SetSensor(std::shared_ptr<ISensorManager> sensorManager);

  // May be null.
  std::shared_ptr<ISensorManager> Sensor() const { return sensor; }

  // Whether there is a connected sensor manager with a registry and a cache.
  bool IsSensorManagerReady() const;

  // Reads a resource once from the sensor and puts its payload into the cache, a null one too. Failures are
  // logged.
  void UpdateResource(const std::string& resource);

  // Refreshes the item's value and type from the cache and returns a copy of the value. What is missing or
  // malformed makes the type invalid; an object or array leaves both as they were. Never raises for such
  // data.
  xhmi::variant_value UpdateItemFromCache(ItemManager::ItemInfo& item);
  // The same without the copy, at the time that was noted last. Costs next to nothing while the cache has nothing newer.
  // element: what HoldsStill found just now; null for one that is to be looked for.
  void RefreshFromCache(ItemManager::ItemInfo& item, const ZoJson* element = nullptr);

  // Notes what the clock shows. Which of a resource's documents counts depends on it once it was set back, so every
  // item is then looked at anew.
  void NoteTime(std::chrono::system_clock::time_point now);
  // Notes that an item got a value that is not the cache's.
  void NoteEdit() { ++edition; }

  // Once for each group that an item is in, and when it leaves.
  void Watch(ItemManager::ItemInfo& item);
  void Unwatch(ItemManager::ItemInfo& item) { --item.watchers; }

  static constexpr std::uint32_t noPlace = 0xFFFFFF;

  // What the host was shown of an item, so that the same can be shown again without a look at the item, whose memory
  // lies wherever it was when the item was made.
  struct Shown {
    const CacheManager::Slot* slot = nullptr;  // null: the item is to be looked at
    std::uint64_t version = 0;                 // of the slot
    decltype(ioDataValue::value) value{};      // a text is the item's own
    std::uint32_t edition = 0;
    std::uint32_t refreshes = 0;
    // Of an item that is a member of the document itself, and in no other group: where documents have had it, and its
    // name, as the end of the item's name; the document of that version has it there. A memberSize of 0 stands for any
    // other item.
    std::uint32_t place : 24 = noPlace;
    std::uint32_t type : 8 = enumtype_invalid;
    std::uint16_t memberAt = 0;
    std::uint16_t memberSize = 0;
  };
  // Whether a look at the item would find what was shown.
  bool Holds(const Shown& shown) const {
    return shown.slot != nullptr && shown.edition == edition &&
           CacheManager::Version(*shown.slot) == shown.version;
  }
  // The same after a look at a newer document, which is noted in shown. Only while nobody else refreshes the item: an
  // element that leaves it as it is would bring back what the other one took. Otherwise element is what the document has
  // in the item's place, as far as that was found; it is valid until the next document is looked at.
  bool HoldsStill(const char* itemName, Shown& shown, const ZoJson*& element);
  // Notes in shown, where there may be what was shown before, what there is to show of an item that was refreshed just
  // now, from element or, when that is null, anew. Its slot is null when there is nothing.
  void Show(const ItemManager::ItemInfo& item, Shown& shown, const ZoJson* element) const;
  // Items that come one after the other share a look at their document. Behind the last of them: a document may be large,
  // and the cache thinks that it is gone.
  void LetGoOfDocument() noexcept;
  // For showing many of them: held while they are shown.
  CallbackGate::Entry BeginShowing() const { return CallbackGate::Entry(gate.get()); }
  // Delivers it to the host, with status 0, unless the gate has closed meanwhile. showing: what BeginShowing gave.
  void ShowAgain(const char* itemName, const Shown& shown, const CallbackGate::Entry& showing) const;

  // Delivers a value to the host, read by type (not by the variant's kind); any type beyond 0 to 4 arrives as
  // "INVALID". Nothing happens without a callback.
  void UpdateItem(const std::string& itemName, const xhmi::variant_value& value, enumtype type,
                  int status) const;
  void UpdateItem(const std::string& itemName, const ioDataValue& value) const;

 private:
  const std::shared_ptr<const ioHandlerParam> parameters;
  const std::shared_ptr<CallbackGate> gate;
  const std::shared_ptr<Logger> logger;
  std::shared_ptr<ISensorManager> sensor;
  const ZoJson& Document(const CacheManager::Slot& slot);
  void NoteShape(const CacheManager::Slot& slot);
  void FindMember(const ItemManager::ItemInfo& item, Shown& shown) const;
  void Deliver(const char* itemName, const ioDataValue& value, const CallbackGate::Entry& showing) const;

  std::shared_ptr<CacheManager> cache;
  // The document looked at last, until it is let go of: items of one resource mostly come one after the other.
  const CacheManager::Slot* lastSlot = nullptr;
  std::uint64_t lastVersion = 0;
  ZoJson lastDocument;
  std::uint64_t sameSince =
      0;  // the version from which on all documents of the slot had their members where it has them
  // The clock, as it was noted last, and how often it was set back.
  std::chrono::system_clock::time_point lastTime = std::chrono::system_clock::time_point::min();
  std::uint32_t clockRun = 0;
  // How often what was shown of items lost its hold in another way than by a newer document, and how often items came
  // by values in another way than by the tick of their only group.
  std::uint32_t edition = 0;
  std::uint32_t refreshes = 0;
};

}  // namespace ZoIO
