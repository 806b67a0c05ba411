// One thread of the host: does whatever its random generator says, to any instance.
//
// Threads: its own. Owner: the soak.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/soak/callboard.h"
#include "tests/soak/slots.h"
#include "tests/support/pluginlibrary.h"

namespace ZoSoak {

// What all host threads share.
struct Host {
  const ZoTest::PluginLibrary& plugin;
  Slots& slots;
  CallBoard& board;
  Tallies& tallies;
  Breaches& breaches;
};

class HostThread {
 public:
  HostThread(Host& host, std::size_t number, std::uint64_t seed);

  // Until it is told to end.
  void Run(const std::atomic<bool>& end);

  // An instance for a slot that has none; its guard is held.
  void Create(Slot& slot);
  // Its guard is held.
  void Destroy(Slot& slot);
  // Its guard is held, shared at least.
  int ReadItem(Slot& slot, const std::string& name);
  void SubscribeItems(Slot& slot, const std::vector<const Item*>& items, long long interval);

 private:
  void Step();
  void Use(Slot& slot);

  void Read(Slot& slot);
  void Write(Slot& slot);
  void WriteAndRead(Slot& slot);
  void Subscribe(Slot& slot);
  void Unsubscribe(Slot& slot);
  void Method(Slot& slot);
  void MakeAndDelete(Slot& slot);
  void StopAndRun(Slot& slot);

  // The exports, timed and judged.
  int WriteItem(Slot& slot, const std::string& name, const ioDataValue& value);
  int CallMethod(Slot& slot, const std::string& method, const std::string& uri, const std::string& arguments);

  void CheckRefusal(Slot& slot, const Item& item, int result, std::uint64_t generation);
  std::int64_t NextWritten(const Slot& slot, int item);
  const Item& AnyItem(const Slot& slot);
  std::vector<const Item*> AnyItems(const Slot& slot);
  bool Chance(double share) { return std::uniform_real_distribution<double>(0, 1)(random) < share; }
  std::size_t Below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
  }
  // Whether the next call is made alone; so each kind's own time is seen now and then.
  bool Alone() { return Chance(0.03); }

  Host& host;
  const std::size_t number;
  std::mt19937_64 random;
};

}  // namespace ZoSoak
