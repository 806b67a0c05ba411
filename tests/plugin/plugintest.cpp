#include "tests/plugin/plugintest.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

namespace ZoTest {
namespace {

ioDataValue ValueOf(enumtype type) {
  ioDataValue value{};
  value.type = type;
  return value;
}

bool SameValue(const Entry& a, const Entry& b) {
  return a.value.type == b.value.type && a.value.value.uint64 == b.value.value.uint64 &&
         a.valueText == b.valueText;
}

}  // namespace

ioDataValue TextValue(const char* text) {
  ioDataValue value = ValueOf(enumtype_string);
  value.value.text = text;
  return value;
}

ioDataValue BooleanValue(std::uint64_t wholeField) {
  ioDataValue value = ValueOf(enumtype_bool);
  value.value.uint64 = wholeField;
  return value;
}

ioDataValue IntegerValue(std::int64_t number) {
  ioDataValue value = ValueOf(enumtype_int64);
  value.value.int64 = number;
  return value;
}

ioDataValue FloatValue(double number) {
  ioDataValue value = ValueOf(enumtype_double);
  value.value.float64 = number;
  return value;
}

ioDataValue UnsignedValue(std::uint64_t number) {
  ioDataValue value = ValueOf(enumtype_uint64);
  value.value.uint64 = number;
  return value;
}

Recorder::Matcher IsInteger(std::string item, std::int64_t number) {
  return [item = std::move(item), number](const Entry& entry) {
    return entry.IsValue(item) && entry.value.type == enumtype_int64 && entry.value.value.int64 == number;
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

std::string Describe(const Entry& entry) {
  std::ostringstream text;
  text.precision(17);
  text << entry.value.type << ":";
  switch (entry.value.type) {
    case enumtype_bool:
      text << static_cast<int>(entry.value.value.boolean);
      break;
    case enumtype_int64:
      text << entry.value.value.int64;
      break;
    case enumtype_double:
      text << entry.value.value.float64;
      break;
    case enumtype_uint64:
      text << entry.value.value.uint64;
      break;
    default:
      text << entry.valueText;
  }
  return text.str();
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
