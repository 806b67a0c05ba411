// The benchmark's own host: it counts what the plug-in calls back with.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/pluginlibrary.h"
#include "xhmi/iohandler.h"

namespace ZoBench {

using Plugin = ZoTest::PluginLibrary;

// One build that is measured.
struct Subject {
  std::string label;  // empty when there is only one
  const Plugin* plugin = nullptr;
};

// Counts callbacks; any thread.
struct Counters {
  std::atomic<std::uint64_t> values{0};
  std::atomic<std::uint64_t> invalid{0};
  std::atomic<std::uint64_t> lines{0};
  std::atomic<std::uint64_t> complaints{0};  // lines of a warning or worse
  std::atomic<double> last{0};               // the last number

  static void OnValue(const char* itemName, const ioDataValue* value, void* context);
  static void OnLog(void* context, std::int32_t level, const char* text);
};

// The number that a value holds, or 0 for a text.
double NumberOf(const ioDataValue& value);

// Names as the exports take them.
class Names {
 public:
  explicit Names(std::vector<std::string> names);
  int Count() const { return static_cast<int>(pointers.size()); }
  const char* const* Pointers() const { return pointers.data(); }
  const std::vector<std::string>& Texts() const { return texts; }

 private:
  std::vector<std::string> texts;
  std::vector<const char*> pointers;
};

// An instance with its callbacks. Raises CheckFailed when an export refuses what the benchmark needs.
class Instance {
 public:
  // A sensor on this machine.
  Instance(const Plugin& plugin, std::uint16_t port, ioItemValueCallback onValue, void* context);
  // With its own counters.
  Instance(const Plugin& plugin, std::uint16_t port);
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  void Read(const std::string& name) const;
  void Write(const std::string& name, const ioDataValue& value) const;
  void Subscribe(const Names& names, long long interval) const;
  void Unsubscribe(const Names& names) const;
  // Ends it before its time.
  void Destroy();

  void* Handle() const { return handle; }
  Counters& Count() { return *counters; }
  // The callbacks that the counters take.
  const ioHandlerParam& Param() const { return param; }

 private:
  const Plugin& plugin;
  std::unique_ptr<Counters> counters = std::make_unique<Counters>();
  ioHandlerParam param{};
  void* handle = nullptr;
};

// The port that stands for the built-in simulator.
constexpr std::uint16_t Simulator = 0;

// Waits until it holds, at most so long; raises CheckFailed with the text.
void Await(const std::function<bool()>& holds, const std::string& what, int seconds = 30);

}  // namespace ZoBench
