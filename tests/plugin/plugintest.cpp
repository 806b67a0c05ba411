#include "tests/plugin/plugintest.h"

#include <utility>

namespace ZoTest {
namespace {

bool SameValue(const Entry& a, const Entry& b) {
  return a.value.type == b.value.type && a.value.value.uint64 == b.value.value.uint64 &&
         a.valueText == b.valueText;
}

}  // namespace

Recorder::Matcher IsInteger(std::string item, std::int64_t number) {
  return IsIntegerIn(std::move(item), number, number);
}

Recorder::Matcher IsIntegerIn(std::string item, std::int64_t least, std::int64_t most) {
  return [item = std::move(item), least, most](const Entry& entry) {
    return entry.IsValue(item) && entry.value.type == enumtype_int64 && entry.value.value.int64 >= least &&
           entry.value.value.int64 <= most;
  };
}

Recorder::Matcher IsText(std::string item, std::string text) {
  return [item = std::move(item), text = std::move(text)](const Entry& entry) {
    return entry.IsValue(item) && entry.value.type == enumtype_string && entry.valueText == text;
  };
}

Recorder::Matcher IsOfType(std::string item, enumtype type) {
  return [item = std::move(item), type](const Entry& entry) {
    return entry.IsValue(item) && entry.value.type == static_cast<std::uint32_t>(type);
  };
}

std::vector<Step> StepsOf(const Recorder::Entries& values) {
  std::vector<Step> steps;
  const Entry* last = nullptr;
  for (const Entry& value : values) {
    const bool following = last != nullptr && value.time - last->time < std::chrono::milliseconds(900);
    if (last == nullptr || !SameValue(*last, value)) {
      steps.push_back({value, following});
    }
    last = &value;
  }
  return steps;
}

PluginTest::~PluginTest() {
  for (void* handle : live) {
    plugin.destroyIoInstance(handle);
  }
}

void* PluginTest::Create(const std::string& address, unsigned short port) {
  return Create(address, port, recorder.Param());
}

void* PluginTest::Create(const std::string& address, unsigned short port, const ioHandlerParam& param) {
  void* handle = nullptr;
  EXPECT_EQ(plugin.createIoInstance(address.c_str(), port, &param, &handle), 0) << address;
  EXPECT_NE(handle, nullptr);
  std::lock_guard lock(mutex);
  live.push_back(handle);
  return handle;
}

int PluginTest::Destroy(void* handle) {
  {
    std::lock_guard lock(mutex);
    std::erase(live, handle);
  }
  return plugin.destroyIoInstance(handle);
}

}  // namespace ZoTest
