#include "zoiohandler/vyrnclient/cachemanager.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iterator>
#include <vector>

#include "zoapi/exception.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/worker.h"

namespace ZoIO {

namespace {

constexpr const char* source = "hmi/zoiohandler/zoiohandler/vyrnclient/cachemanager";
constexpr const char* constructorName = "ZoIO::CacheManager::CacheManager";
constexpr const char* destructorName = "ZoIO::CacheManager::~CacheManager";
constexpr const char* workerName = "ZoIO::CacheManager::ManageCache";

constexpr std::uint64_t trimPeriod = 1'000'000;   // µs
constexpr std::uint64_t joinTimeout = 1'000'000;  // µs

}  // namespace

struct CacheManager::Slot {
  History history;
  std::uint64_t order = 0;  // of the newest value that has one
  std::atomic<std::uint64_t> version = 0;
  bool listed = false;  // among those with something to trim
};

struct CacheManager::State {
  State(int maxAge, long long startTime) : maxAge(maxAge), startTime(startTime) {}

  void Trim(long long now) {
    std::multimap<long long, ZoJson> old;  // freed when the lock is free again: documents may be large
    Zo::Locker held(lock);
    const long long threshold = (now - maxAge) - startTime;
    std::erase_if(several, [&](Slot* slot) {
      History& history = slot->history;
      while (history.size() >= 2 && history.begin()->first < threshold) {
        old.insert(history.extract(history.begin()));  // which needs no memory
      }
      slot->listed = history.size() >= 2;
      return !slot->listed;
    });
  }

  // order: 0 for a value that has none.
  Added Add(const std::string& key, const ZoJson& value, std::uint64_t order, long long now)
      Q_REQUIRES(lock) {
    Slot& slot = cache[key];
    if (order != 0 && order < slot.order) {
      return Added::Outdated;
    }
    if (!slot.history.try_emplace(now - startTime, value).second) {
      return Added::MillisecondTaken;
    }
    slot.order = std::max(slot.order, order);
    slot.version.fetch_add(1, std::memory_order_release);
    if (slot.history.size() >= 2 && !slot.listed) {
      several.push_back(&slot);
      slot.listed = true;
    }
    return Added::Stored;
  }

  const ZoJson& Value(const std::string& key, int age, long long now) const Q_REQUIRES(lock) {
    const auto found = cache.find(key);
    if (found == cache.end() || found->second.history.empty()) {
      throw CacheError("Cache is empty.");
    }
    return GetNearest(found->second.history, (now - startTime) - age);
  }

  // Set once.
  Zo::Lock lock;
  const int maxAge;
  const long long startTime;

  std::map<std::string, Slot> cache Q_GUARDED_BY(lock);  // slots stay where they are
  std::vector<Slot*> several
      Q_GUARDED_BY(lock);  // the slots that hold two values or more: trimming looks at no others
  std::atomic<bool> running = false;
};

CacheManager::CacheManager(int maxAge) : state(std::make_shared<State>(maxAge, TimeInMills())) {
  state->running = true;
  Zo::Check(qLock_Construct(state->lock.Out(), "CacheManager", Zo::LockRank_Cache), __LINE__, source,
            constructorName);
  Zo::Check(qThread_Construct(thread.Out()), __LINE__, source, constructorName);
  Zo::Check(qThread_SetName(thread.Get(), "CacheManager::ManageCache::Thread"), __LINE__, source,
            constructorName);
  Zo::Check(StartWorker(thread.Get(), &ManageCache, state), __LINE__, source, constructorName);
}

CacheManager::~CacheManager() {
  Shutdown();
}

void CacheManager::Shutdown() noexcept {
  if (thread.Get() == nullptr) {
    return;
  }
  try {
    state->running = false;
    Zo::Check(qThread_Join(thread.Get(), joinTimeout, nullptr), __LINE__, source, destructorName);
  } catch (const std::exception&) {
    // The worker owns what it still touches, and the cache has no log of its own.
  }
  thread.Reset();
}

void CacheManager::Add(const std::string& key, const ZoJson& value) {
  AddInOrder(key, value, 0);
}

CacheManager::Added CacheManager::AddInOrder(const std::string& key, const ZoJson& value,
                                             std::uint64_t order) {
  Zo::Locker held(state->lock);
  return state->Add(key, value, order, TimeInMills());
}

void CacheManager::AddAt(const std::string& key, const ZoJson& value, long long now) {
  AddInOrderAt(key, value, 0, now);
}

CacheManager::Added CacheManager::AddInOrderAt(const std::string& key, const ZoJson& value,
                                               std::uint64_t order, long long now) {
  Zo::Locker held(state->lock);
  return state->Add(key, value, order, now);
}

bool CacheManager::Exists(const std::string& key) const {
  Zo::Locker held(state->lock);
  return state->cache.contains(key);
}

ZoJson CacheManager::Get(const std::string& key, int age) const {
  Zo::Locker held(state->lock);
  return state->Value(key, age, TimeInMills());
}

ZoJson CacheManager::GetAt(const std::string& key, int age, long long now) const {
  Zo::Locker held(state->lock);
  return state->Value(key, age, now);
}

const CacheManager::Slot* CacheManager::Find(const std::string& key) const {
  Zo::Locker held(state->lock);
  const auto found = state->cache.find(key);
  return found == state->cache.end() || found->second.history.empty() ? nullptr : &found->second;
}

std::uint64_t CacheManager::Version(const Slot& slot) noexcept {
  return slot.version.load(std::memory_order_acquire);
}

ZoJson CacheManager::Get(const Slot& slot, int age, std::uint64_t& version) const {
  Zo::Locker held(state->lock);
  const ZoJson& value = GetNearest(slot.history, (TimeInMills() - state->startTime) - age);
  // After the clock was set back it is not the newest that counts, and which one does changes without a new value.
  version = &value == &slot.history.rbegin()->second ? Version(slot) : 0;
  return value;
}

const ZoJson& CacheManager::GetNearest(const History& history, long long target) {
  // Of the values at or after the target the first is the nearest, as stamps only rise.
  const auto atOrAfter = history.lower_bound(target);
  return atOrAfter != history.end() ? atOrAfter->second : std::prev(history.end())->second;
}

std::size_t CacheManager::Size() const {
  Zo::Locker held(state->lock);
  return state->cache.size();
}

std::size_t CacheManager::SizeAt(const std::string& key) const {
  Zo::Locker held(state->lock);
  const auto found = state->cache.find(key);
  return found == state->cache.end() ? 0 : found->second.history.size();
}

long long CacheManager::TimeInMills() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

void CacheManager::TrimAt(long long now) {
  state->Trim(now);
}

int CacheManager::ManageCache(void* self) {
  const std::shared_ptr<State> state = WorkerState<State>(self);
  while (state->running) {
    try {
      Zo::Check(qThread_Sleep(trimPeriod), __LINE__, source, workerName);
      state->Trim(TimeInMills());
    } catch (const std::exception&) {
      // The next pass trims what this one could not.
    }
  }
  return qStatus_Success;
}

}  // namespace ZoIO
