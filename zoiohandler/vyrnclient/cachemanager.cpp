#include "zoiohandler/vyrnclient/cachemanager.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <vector>

#include "qapi/memory.h"
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

// Five seconds of whatever a sensor pushes may be more than a host can spare.
constexpr std::size_t oldLimit = std::size_t{64}
                                 << 20;  // bytes of values that are not the newest of their key
// Of large values the allocator may keep too much.
constexpr std::size_t huge = std::size_t{1} << 20;           // bytes of such a value
constexpr std::size_t giveBackFrom = std::size_t{16} << 20;  // bytes of all of them

}  // namespace

struct CacheManager::State {
  State(int maxAge, long long startTime) : maxAge(maxAge), startTime(startTime) {}

  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() {
    // What was there when memory was given back last may be there still.
    if (hugeBytes >= giveBackFrom || hasGivenBack) {
      cache.clear();
      qMemory_GiveBack();
    }
  }

  // What leaves the histories, to be freed when the lock is free again: documents may be large.
  using Old = std::multimap<long long, Entry>;

  void Trim(long long now) {
    Old old;
    bool giveBack = false;
    {
      Zo::Locker held(lock);
      const long long threshold = (now - maxAge) - startTime;
      TrimAll(threshold, old);
      giveBack = hugeBytes >= giveBackFrom && oldBytes < huge;
      hugeBytes = giveBack ? 0 : hugeBytes;
      hasGivenBack = hasGivenBack || giveBack;
    }
    if (giveBack) {
      old.clear();
      qMemory_GiveBack();
    }
  }

  // order: 0 for a value that has none.
  Added Add(const std::string& key, const Entry& entry, std::uint64_t order, long long now, Old& old)
      Q_REQUIRES(lock) {
    Slot& slot = cache[key];
    if (order != 0 && order < slot.order) {
      return Added::Outdated;
    }
    const auto [place, stored] = slot.history.try_emplace(now - startTime, entry);
    if (!stored) {
      return Added::MillisecondTaken;
    }
    if (slot.history.size() >= 2) {
      const auto newest = std::prev(slot.history.end());
      oldBytes += (place == newest ? std::prev(newest) : place)->second.bytes;
    }
    hugeBytes += entry.bytes >= huge ? entry.bytes : 0;
    slot.order = std::max(slot.order, order);
    slot.version.fetch_add(1, std::memory_order_release);
    if (slot.history.size() >= 2 && !slot.listed) {
      several.push_back(&slot);
      slot.listed = true;
    }
    if (oldBytes > oldLimit) {
      DropDownTo(oldLimit / 2, old);
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

  void Forget(const std::string& key, Old& old) Q_REQUIRES(lock) {
    const auto found = cache.find(key);
    if (found == cache.end()) {
      return;
    }
    Slot& slot = found->second;
    while (slot.history.size() >= 2) {
      Drop(slot, old);
    }
    if (!slot.history.empty()) {
      old.insert(slot.history.extract(slot.history.begin()));
      slot.version.fetch_add(1, std::memory_order_release);
    }
  }

  // The oldest of a slot that has others.
  void Drop(Slot& slot, Old& old) Q_REQUIRES(lock) {
    const auto oldest = slot.history.begin();
    oldBytes -= oldest->second.bytes;
    old.insert(slot.history.extract(oldest));  // which needs no memory
  }

  void TrimAll(long long threshold, Old& old) Q_REQUIRES(lock) {
    std::size_t kept = 0;
    for (Slot* const slot : several) {
      while (slot->history.size() >= 2 && slot->history.begin()->first < threshold) {
        Drop(*slot, old);
      }
      slot->listed = slot->history.size() >= 2;
      if (slot->listed) {
        several[kept++] = slot;
      }
    }
    several.resize(kept);
  }

  void DropDownTo(std::size_t bytes, Old& old) Q_REQUIRES(lock) {
    for (auto slot = several.begin(); slot != several.end() && oldBytes > bytes; ++slot) {
      while ((*slot)->history.size() >= 2 && oldBytes > bytes) {
        Drop(**slot, old);
      }
    }
  }

  // Set once.
  Zo::Lock lock;
  const int maxAge;
  const long long startTime;

  std::map<std::string, Slot> cache Q_GUARDED_BY(lock);  // slots stay where they are
  std::vector<Slot*> several
      Q_GUARDED_BY(lock);  // the slots that hold two values or more: trimming looks at no others
  std::size_t oldBytes Q_GUARDED_BY(lock) = 0;   // of all that are not the newest of their slot
  std::size_t hugeBytes Q_GUARDED_BY(lock) = 0;  // that came since memory was given back
  bool hasGivenBack Q_GUARDED_BY(lock) = false;
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

CacheManager::Added CacheManager::AddInOrder(const std::string& key, const ZoJson& value, std::uint64_t order,
                                             std::size_t bytes) {
  State::Old old;
  Zo::Locker held(state->lock);
  return state->Add(key, {value, bytes}, order, TimeInMills(), old);
}

void CacheManager::AddAt(const std::string& key, const ZoJson& value, long long now) {
  AddInOrderAt(key, value, 0, now);
}

CacheManager::Added CacheManager::AddInOrderAt(const std::string& key, const ZoJson& value,
                                               std::uint64_t order, long long now, std::size_t bytes) {
  State::Old old;
  Zo::Locker held(state->lock);
  return state->Add(key, {value, bytes}, order, now, old);
}

void CacheManager::Forget(const std::string& key) {
  State::Old old;
  Zo::Locker held(state->lock);
  state->Forget(key, old);
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

ZoJson CacheManager::Get(const Slot& slot, int age, std::uint64_t& version, long long& at) const {
  Zo::Locker held(state->lock);
  at = TimeInMills();
  if (slot.history.empty()) {
    throw CacheError("Cache is empty.");
  }
  const ZoJson& value = GetNearest(slot.history, (at - state->startTime) - age);
  // After the clock was set back it is not the newest that counts, and which one does changes without a new value.
  version = &value == &slot.history.rbegin()->second.value ? Version(slot) : 0;
  return value;
}

const ZoJson& CacheManager::GetNearest(const History& history, long long target) {
  // Of the values at or after the target the first is the nearest, as stamps only rise.
  const auto atOrAfter = history.lower_bound(target);
  return (atOrAfter != history.end() ? atOrAfter : std::prev(history.end()))->second.value;
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
