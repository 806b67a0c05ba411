// A key of the cache without any value: the key is entered before its value, so a value for which there is no
// memory leaves it so.
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>

#include "tests/qapi/failingnew.h"
#include "tests/support/countinghost.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoTest {
namespace {

class EmptyKey : public ::testing::Test {
 protected:
  // Runs add with one failing allocation after the other, until the key is there without a value.
  static bool Make(const ZoIO::CacheManager& cache, const std::string& key,
                   const std::function<void()>& add) {
    for (int nth = 1; nth < 100 && !cache.Exists(key); ++nth) {
      const FailingNew failing(nth);
      try {
        add();
      } catch (const std::bad_alloc&) {
      }
    }
    return cache.Exists(key) && cache.SizeAt(key) == 0;
  }
};

void ExpectNoValue(const ZoIO::CacheManager& cache, const std::string& key) {
  for (const int age : {0, 5000}) {
    try {
      cache.Get(key, age);
      ADD_FAILURE() << "Get gave a value";
    } catch (const ZoIO::CacheError& error) {
      EXPECT_STREQ(error.what(), "Cache is empty.");
    }
  }
}

TEST_F(EmptyKey, HasNoValueUntilOneIsAdded) {
  ZoIO::CacheManager cache(5000);
  const long long now = ZoIO::CacheManager::TimeInMills();
  ASSERT_TRUE(Make(cache, "/k", [&] { cache.AddAt("/k", ZoJson::Of(1), now); }));
  ExpectNoValue(cache, "/k");
  cache.TrimAt(now + 1'000'000);
  ExpectNoValue(cache, "/k");
  EXPECT_TRUE(cache.Exists("/k"));
  EXPECT_EQ(cache.Size(), 1u);

  cache.AddAt("/k", ZoJson::Of(2), now);
  EXPECT_EQ(cache.SizeAt("/k"), 1u);
  EXPECT_EQ(cache.Get("/k", 0), ZoJson::Of(2));
  cache.TrimAt(now + 1'000'000);
  EXPECT_EQ(cache.Get("/k", 0), ZoJson::Of(2));
}

TEST_F(EmptyKey, IsOneKeyHoweverOftenItsValueFails) {
  ZoIO::CacheManager cache(5000);
  // Without its worker, so that what is allocated meanwhile is this thread's.
  cache.Shutdown();
  const long long now = ZoIO::CacheManager::TimeInMills();
  const ZoJson value = ZoJson::Of(1);
  ASSERT_TRUE(Make(cache, "/k", [&] { cache.AddAt("/k", value, now); }));
  const std::ptrdiff_t held = LiveAllocations();
  for (int i = 0; i < 100; ++i) {
    const FailingNew failing(1);
    EXPECT_THROW(cache.AddAt("/k", value, now + i), std::bad_alloc);
  }
  EXPECT_EQ(LiveAllocations(), held);
  EXPECT_EQ(cache.Size(), 1u);
  EXPECT_EQ(cache.SizeAt("/k"), 0u);
}

TEST_F(EmptyKey, ItsResourceIsReadFromTheSensorAsIfTheKeyWereNotThere) {
  CountingHost host;
  const ioHandlerParam param = host.Param();
  FakeSensorManager sensor(std::make_shared<ZoIO::Logger>(param.context, param.log));
  sensor.SetResource("/r", R"({"a":1})");
  ASSERT_TRUE(Make(*sensor.Cache(), "/r", [&] { sensor.Cache()->Add("/r", ZoJson::Of(1)); }));
  EXPECT_TRUE(sensor.PLC()->Item("/r#/a").valid);
  EXPECT_EQ(sensor.CallCount("Read"), 1u);
  EXPECT_EQ(sensor.Cache()->SizeAt("/r"), 1u);
}

TEST_F(EmptyKey, ItsResourceIsReadByTheNextPassForMissingItems) {
  CountingHost host;
  const ioHandlerParam param = host.Param();
  FakeSensorManager sensor(std::make_shared<ZoIO::Logger>(param.context, param.log));
  const ZoIO::ItemInfo& item = sensor.PLC()->Item("/r#/a");
  ASSERT_FALSE(item.valid);
  ASSERT_TRUE(Make(*sensor.Cache(), "/r", [&] { sensor.Cache()->Add("/r", ZoJson::Of(1)); }));
  sensor.SetResource("/r", R"({"a":1})");
  sensor.PLC()->RetryInvalidItems();
  EXPECT_TRUE(item.valid);
  EXPECT_EQ(sensor.Cache()->SizeAt("/r"), 1u);
}

}  // namespace
}  // namespace ZoTest
