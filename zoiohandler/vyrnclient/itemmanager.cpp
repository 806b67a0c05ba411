#include "zoiohandler/vyrnclient/itemmanager.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include "zoapi/exception.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/worker.h"

namespace ZoIO {

namespace {

constexpr const char* source = "hmi/zoiohandler/zoiohandler/vyrnclient/itemmanager";
constexpr const char* constructorName = "ZoIO::ItemManager::ItemManager";
constexpr const char* destructorName = "ZoIO::ItemManager::~ItemManager";
constexpr const char* itemName = "ZoIO::ItemManager::Item";
constexpr const char* workerName = "ZoIO::ItemManager::ManageInvalidItems";

constexpr std::uint64_t retryPeriod = 1'000'000;  // µs
constexpr std::uint64_t joinTimeout = 1'000'000;  // µs

// A missing element counts as null; everything else that may go wrong is the caller's to handle.
bool HasValue(const ZoJson& payload, const ZoJsonPointer& pointer) {
  return payload.HasKey(pointer) && !payload.At(pointer).IsNull();
}

// A list that is walked from the front while names leave it. What is kept closes up when the walk ends,
// however it ends.
class ListWalk {
 public:
  explicit ListWalk(std::vector<std::string>& list) : list(list) {}
  ListWalk(const ListWalk&) = delete;
  ListWalk& operator=(const ListWalk&) = delete;
  ~ListWalk() {
    while (!AtEnd()) {
      Keep();
    }
    list.resize(kept);
  }

  bool AtEnd() const { return cursor == list.size(); }
  const std::string& Current() const { return list[cursor]; }
  void Keep() {
    if (kept != cursor) {
      list[kept] = std::move(list[cursor]);
    }
    ++kept;
    ++cursor;
  }
  void Drop() { ++cursor; }

 private:
  std::vector<std::string>& list;
  std::size_t cursor = 0;
  std::size_t kept = 0;
};

}  // namespace

struct ItemManager::State {
  State(bool simulated, std::shared_ptr<CacheManager> cache, std::shared_ptr<Logger> logger,
        Source retrySource)
      : simulated(simulated),
        cache(std::move(cache)),
        logger(std::move(logger)),
        retrySource(std::move(retrySource)) {}

  ZoJson Read(const std::string& uri) const {
    if (givenUp) {
      throw std::runtime_error("The item registry was given up.");
    }
    return retrySource.read(uri);
  }

  void RetryPass() {
    retrySource.begin();  // which may wait: nobody else has to
    Zo::Locker held(lock);
    ListWalk walk(invalidItems);
    while (!walk.AtEnd()) {
      ItemInfo& entry = items.at(walk.Current());
      const bool exists = cache->Exists(entry.uri);
      const bool hasValues = cache->SizeAt(entry.uri) > 0;
      bool found = false;
      if (exists && hasValues) {
        found = HasValue(cache->Get(entry.uri, 0), entry.pointer);
      } else {
        const ZoJson response = Read(entry.uri);
        if (!response.HasKey("/payload")) {
          // Nothing is known of this resource yet: ask again at once, the cursor stays.
          continue;
        }
        const ZoJson payload = response.At("/payload");
        found = HasValue(payload, entry.pointer);
        if (found) {
          retrySource.keep(entry.uri, payload);
        }
      }
      if (found) {
        entry.valid = true;
        walk.Drop();
      } else {
        walk.Keep();
      }
    }
  }

  // Set once.
  Zo::Lock lock;
  const bool simulated;
  const std::shared_ptr<CacheManager> cache;  // null in a simulator's registry, which never asks it
  const std::shared_ptr<Logger> logger;
  const Source retrySource;

  std::atomic<bool> running = false;
  std::atomic<bool> givenUp = false;
  std::vector<std::string> invalidItems Q_GUARDED_BY(lock);
  std::unordered_map<std::string, ItemInfo> items Q_GUARDED_BY(lock);
};

ItemManager::ItemManager(ISensorManager& sensorManager, bool simulated)
    : ItemManager(sensorManager, simulated,
                  {[] {}, [&sensorManager](const std::string& uri) { return sensorManager.Read(uri, false); },
                   [&sensorManager](const std::string& uri, const ZoJson& payload) {
                     sensorManager.Keep(uri, payload);
                   }}) {}

ItemManager::ItemManager(ISensorManager& sensorManager, bool simulated, Source retrySource)
    : sensorManager(sensorManager),
      state(std::make_shared<State>(simulated, sensorManager.Cache(), sensorManager.GetLogger(),
                                    std::move(retrySource))) {
  state->running = true;
  Zo::Check(qLock_Construct(state->lock.Out(), "ItemManager", Zo::LockRank_Registry), __LINE__, source,
            constructorName);
  Zo::Check(qThread_Construct(thread.Out()), __LINE__, source, constructorName);
  Zo::Check(qThread_SetName(thread.Get(), "ItemManager::ManageInvalidItems::Thread"), __LINE__, source,
            constructorName);
  Zo::Check(StartWorker(thread.Get(), &ManageInvalidItems, state), __LINE__, source, constructorName);
}

ItemManager::~ItemManager() {
  Shutdown();
}

void ItemManager::Shutdown() noexcept {
  // Only the first one has a worker to end and something to say.
  if (thread.Get() == nullptr) {
    return;
  }
  try {
    Log("Destroying item manager.", LogLevel_Notice, destructorName);
    state->givenUp = true;
    state->running = false;
    Zo::Check(qThread_Join(thread.Get(), joinTimeout, nullptr), __LINE__, source, destructorName);
    Log("Item manager destroyed.", LogLevel_Notice, destructorName);
  } catch (const std::exception& e) {
    Log(e.what(), LogLevel_Error, destructorName);
  }
  thread.Reset();
}

ItemInfo& ItemManager::Item(const std::string& name) {
  Zo::Locker held(state->lock);
  const auto known = state->items.find(name);
  if (known != state->items.end()) {
    return known->second;
  }
  Log(name + " does not exist. Creating.", LogLevel_Info, itemName);
  ItemInfo info = CreateItem(name);
  Log(name + " created.", LogLevel_Info, itemName);
  state->retrySource.note(info.uri);
  if (state->simulated || Validate(info)) {
    return state->items.emplace(name, std::move(info)).first->second;
  }
  state->invalidItems.push_back(name);
  try {
    info.valid = false;
    Log(name + " does not exists.", LogLevel_Warning, itemName);
    return state->items.emplace(name, std::move(info)).first->second;
  } catch (...) {
    // A name without a record would end every later pass of the worker.
    state->invalidItems.pop_back();
    throw;
  }
}

bool ItemManager::Validate(const ItemInfo& info) {
  try {
    const CacheManager& cache = *state->cache;
    if (sensorManager.IsConnected() && (!cache.Exists(info.uri) || cache.SizeAt(info.uri) == 0)) {
      Log("Retrieving " + info.name + " value.", LogLevel_Info, itemName);
      const ZoJson payload = sensorManager.Read(info.uri, true).At("/payload");
      if (payload.IsNull()) {
        // A sensor's error document. Caching it would stop the retries.
        return false;
      }
      sensorManager.Keep(info.uri, payload);
      Log(info.name + " value updated.", LogLevel_Info, itemName);
    }
    if (cache.Get(info.uri, 0).At(info.pointer).IsNull()) {
      return false;
    }
    Log("Adding item " + info.name, LogLevel_Info, itemName);
    return true;
  } catch (const std::exception&) {
    // Whatever the reason, the value is not there yet; the worker keeps looking for it.
    return false;
  }
}

std::unordered_map<std::string, ItemInfo>& ItemManager::Items() Q_NO_THREAD_SAFETY_ANALYSIS {
  return state->items;
}

const std::unordered_map<std::string, ItemInfo>& ItemManager::Items() const Q_NO_THREAD_SAFETY_ANALYSIS {
  return state->items;
}

std::vector<const ItemInfo*> ItemManager::Snapshot() const {
  Zo::Locker held(state->lock);
  std::vector<const ItemInfo*> records;
  records.reserve(state->items.size());
  for (const auto& [name, info] : state->items) {
    records.push_back(&info);
  }
  return records;
}

std::vector<std::string> ItemManager::InvalidItems() const {
  Zo::Locker held(state->lock);
  return state->invalidItems;
}

void ItemManager::RetryInvalidItems() {
  state->RetryPass();
}

int ItemManager::ManageInvalidItems(void* self) {
  const std::shared_ptr<State> state = WorkerState<State>(self);
  while (state->running) {
    try {
      Zo::Check(qThread_Sleep(retryPeriod), __LINE__, source, workerName);
      state->RetryPass();
    } catch (const std::exception&) {
      // The next pass tries again; a sensor that is away is no news worth a line every second.
    }
  }
  return qStatus_Success;
}

void ItemManager::Log(std::string_view message, int level, const char* function) const noexcept {
  WriteLog(*state->logger, message, level, function);
}

}  // namespace ZoIO
