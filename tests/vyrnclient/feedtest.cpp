#include "tests/vyrnclient/feedtest.h"

#include <cstdio>

namespace ZoTest {

using ZoIO::CacheManager;
using ZoIO::ItemInfo;
using ZoIO::Logger;

FeedTest::FeedTest(bool simulated)
    : parameters(std::make_shared<const ioHandlerParam>(recorder.Param())),
      logger(std::make_shared<Logger>(parameters->context, parameters->log)),
      sensor(std::make_shared<FakeSensorManager>(logger, FakeSensorManager::Worker::Quiet, simulated)),
      feed(parameters, nullptr, logger),
      stamp(CacheManager::TimeInMills() - 2000) {
  feed.SetSensor(sensor);
}

void FeedTest::Cached(const std::string& uri, const std::string& json) {
  Cache().AddAt(uri, ZoJson::ParseString(json), ++stamp);
}

ItemInfo& FeedTest::CachedItem(const std::string& name, const std::string& uri, const std::string& json) {
  Cached(uri, json);
  return Item(name);
}

std::string Describe(const Entry& entry) {
  const std::string type = std::to_string(entry.value.type) + ":";
  switch (entry.value.type) {
    case enumtype_bool:
      return type + std::to_string(entry.value.value.boolean);
    case enumtype_int64:
      return type + std::to_string(entry.value.value.int64);
    case enumtype_uint64:
      return type + std::to_string(entry.value.value.uint64);
    case enumtype_double: {
      char digits[40];
      std::snprintf(digits, sizeof digits, "%.17g", entry.value.value.float64);
      return type + digits;
    }
    default:
      return type + entry.valueText;
  }
}

}  // namespace ZoTest
