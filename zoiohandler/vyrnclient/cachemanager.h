// The time-stamped value cache: for each key (a resource URI) a short history of JSON values.
//
// Threads: any, at once. A thread of its own, "CacheManager::ManageCache::Thread", trims the histories once a
// second. Owner: a sensor manager; shared with the instance and the registry. The worker co-owns the data, so
// that a join that runs out of time leaves nothing dangling. Lock: rank Cache, innermost but for logging;
// held for each operation, never during a callback. Invariants: 1. a key is never removed; 2. the newest
// value of a key is never removed, unless Forget is asked for it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "zoapi/threads/locker.h"
#include "zoiohandler/vyrnclient/cacheerror.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoIO {

class CacheManager {
 public:
  // maxAge in milliseconds. Raises Zo::Exception when a lock or thread cannot be had.
  explicit CacheManager(int maxAge);
  CacheManager(const CacheManager&) = delete;
  CacheManager& operator=(const CacheManager&) = delete;
  ~CacheManager();

  // Ends the worker, at most a second later. Values stay readable. Done by the destructor at the latest.
  void Shutdown() noexcept;

  // Stores value under key at the current time. Of two values within one millisecond the first is kept.
  void Add(const std::string& key, const ZoJson& value);

  // The same for values that come in an order of their own, in which they need not get here: a value that is older
  // than one of the key's that was stored so is left out.
  enum class Added { Stored, Outdated, MillisecondTaken };
  // bytes: of memory that the value holds, as far as that is known. Of values that are not the newest of their key the
  // cache holds 64 MiB at most, whatever their age.
  Added AddInOrder(const std::string& key, const ZoJson& value, std::uint64_t order, std::size_t bytes = 0);

  // Drops all values of a key, which stays: that of a resource which nobody looks at, since it has no item.
  void Forget(const std::string& key);

  bool Exists(const std::string& key) const;

  // The first value of key at or after age milliseconds ago, else the newest; age 0 gives the newest. Raises CacheError for a key
  // that has none. The copy is a reference count.
  ZoJson Get(const std::string& key, int age) const;

  // For who looks at one key again and again: its slot, null as long as the key has no value. Valid as long as the
  // cache. A slot's version rises from 1 with each value that is stored; what Get gave of a version still holds
  // while the version does.
  struct Slot;
  const Slot* Find(const std::string& key) const;
  static std::uint64_t Version(const Slot& slot) noexcept;
  // version: what the value belongs to; 0 for a value that may change without a new one being stored. at: when that was,
  // as TimeInMills gives it.
  ZoJson Get(const Slot& slot, int age, std::uint64_t& version, long long& at) const;

  // The number of keys, and of values held for a key (0 for an unknown one).
  std::size_t Size() const;
  std::size_t SizeAt(const std::string& key) const;

  // Wall-clock time in milliseconds since the Unix epoch.
  static long long TimeInMills();

  // The steps behind Add, Get and the worker, at a time (as TimeInMills gives it) that the caller chooses.
  void AddAt(const std::string& key, const ZoJson& value, long long now);
  Added AddInOrderAt(const std::string& key, const ZoJson& value, std::uint64_t order, long long now,
                     std::size_t bytes = 0);
  ZoJson GetAt(const std::string& key, int age, long long now) const;
  void TrimAt(long long now);

 private:
  struct Entry {
    ZoJson value;
    std::size_t bytes = 0;
  };
  using History = std::map<long long, Entry>;  // by time stamp, relative to startTime

  struct State;

  static const ZoJson& GetNearest(const History& history, long long target);
  static int ManageCache(void* self);

  std::shared_ptr<State> state;
  Zo::Thread thread;
};

struct CacheManager::Slot {
  // What its one reader notes of the values that it has looked at: the shape of the last one, and the version from which on
  // all had it. Guarded by whatever guards the reader.
  struct Look {
    std::uint64_t shape = 0;
    std::uint64_t since = 0;
  };

  std::atomic<std::uint64_t> version = 0;
  mutable Look look;
  // The rest is the cache's, and guarded by its lock.
  History history;
  std::uint64_t order = 0;  // of the newest value that has one
  bool listed = false;      // among those with something to trim
};

inline std::uint64_t CacheManager::Version(const Slot& slot) noexcept {
  return slot.version.load(std::memory_order_acquire);
}

}  // namespace ZoIO
