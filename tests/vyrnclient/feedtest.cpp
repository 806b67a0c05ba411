#include "tests/vyrnclient/feedtest.h"

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
  Cached(uri, ZoJson::ParseString(json));
}

void FeedTest::Cached(const std::string& uri, const ZoJson& document) {
  Cache().AddAt(uri, document, ++stamp);
}

ItemInfo& FeedTest::CachedItem(const std::string& name, const std::string& uri, const std::string& json) {
  Cached(uri, json);
  return Item(name);
}

}  // namespace ZoTest
