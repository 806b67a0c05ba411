#include "bench/zobench/host.h"

#include <chrono>
#include <thread>

#include "bench/zobench/checkfailed.h"

namespace ZoBench {

void Counters::OnValue(const char* /*itemName*/, const ioDataValue* value, void* context) {
  auto& counters = *static_cast<Counters*>(context);
  counters.values.fetch_add(1, std::memory_order_relaxed);
  if (value->type == enumtype_invalid) {
    counters.invalid.fetch_add(1, std::memory_order_relaxed);
  } else {
    counters.last.store(NumberOf(*value), std::memory_order_relaxed);
  }
}

void Counters::OnLog(void* context, std::int32_t level, const char* /*text*/) {
  auto& counters = *static_cast<Counters*>(context);
  counters.lines.fetch_add(1, std::memory_order_relaxed);
  if (level >= 4) {
    counters.complaints.fetch_add(1, std::memory_order_relaxed);
  }
}

double NumberOf(const ioDataValue& value) {
  switch (value.type) {
    case enumtype_bool:
      return value.value.boolean;
    case enumtype_int64:
      return static_cast<double>(value.value.int64);
    case enumtype_uint64:
      return static_cast<double>(value.value.uint64);
    case enumtype_double:
      return value.value.float64;
    default:
      return 0;
  }
}

Names::Names(std::vector<std::string> names) : texts(std::move(names)) {
  pointers.reserve(texts.size());
  for (const std::string& text : texts) {
    pointers.push_back(text.c_str());
  }
}

Instance::Instance(const Plugin& plugin, std::uint16_t port) : Instance(plugin, port, nullptr, nullptr) {}

Instance::Instance(const Plugin& plugin, std::uint16_t port, ioItemValueCallback onValue, void* context)
    : plugin(plugin) {
  param.context = onValue != nullptr ? context : counters.get();
  param.itemValue = onValue != nullptr ? onValue : &Counters::OnValue;
  param.log = onValue != nullptr ? [](void*, std::int32_t, const char*) {} : &Counters::OnLog;
  const char* address = port == Simulator ? "simulator" : "127.0.0.1";
  Check(plugin.createIoInstance(address, port, &param, &handle) == 0, "the instance could not be made");
}

Instance::~Instance() {
  Destroy();
}

void Instance::Destroy() {
  if (handle != nullptr) {
    plugin.destroyIoInstance(handle);
    handle = nullptr;
  }
}

void Instance::Read(const std::string& name) const {
  Check(plugin.readItem(name.c_str(), handle) == 0, name + " could not be read");
}

void Instance::Write(const std::string& name, const ioDataValue& value) const {
  Check(plugin.writeItem(name.c_str(), &value, 0, handle) == 0, name + " could not be written");
}

void Instance::Subscribe(const Names& names, long long interval) const {
  std::vector<int> results(static_cast<std::size_t>(names.Count()) + 1, -1);
  Check(plugin.subscribeItems(interval, names.Count(), names.Pointers(), results.data(), handle) == 0,
        "the items could not be subscribed");
  for (std::size_t i = 0; i + 1 < results.size(); ++i) {
    Check(results[i] >= 0 && results[i] <= 5, names.Texts()[i] + " could not be subscribed");
  }
}

void Instance::Unsubscribe(const Names& names) const {
  Check(plugin.unsubscribeItems(names.Count(), names.Pointers(), handle) == 0,
        "the items could not be unsubscribed");
}

void Await(const std::function<bool()>& holds, const std::string& what, int seconds) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!holds()) {
    Check(std::chrono::steady_clock::now() < limit, what + " was awaited in vain");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace ZoBench
