// The fixture of tests that need a registry, a cache and a way to the host, but no instance: nothing happens
// in them but what the test does.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/hostvalue.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/itemfeed.h"

namespace ZoTest {

class FeedTest : public ::testing::Test {
 protected:
  explicit FeedTest(bool simulated = false);

  ZoIO::ItemManager& Registry() { return *sensor->PLC(); }
  ZoIO::CacheManager& Cache() { return *sensor->Cache(); }
  ZoIO::ItemInfo& Item(const std::string& name) { return Registry().Item(name); }

  // Puts a document into the cache, newer than all before it.
  void Cached(const std::string& uri, const std::string& json);
  void Cached(const std::string& uri, const ZoJson& document);
  // An item of a resource that the cache holds.
  ZoIO::ItemInfo& CachedItem(const std::string& name, const std::string& uri, const std::string& json);

  Recorder recorder;
  const std::shared_ptr<const ioHandlerParam> parameters;
  const std::shared_ptr<ZoIO::Logger> logger;
  const std::shared_ptr<FakeSensorManager> sensor;
  ZoIO::ItemFeed feed;

 private:
  long long stamp;
};

}  // namespace ZoTest
