// The cache's values of a certain age, by the clock.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

#include "zoiohandler/vyrnclient/cachemanager.h"

namespace ZoTest {
namespace {

using ZoIO::CacheManager;

constexpr int minute = 60'000;  // ms

// Minutes lie between the values, so that a test which takes long meets the same ones.
class CacheAge : public ::testing::Test {
 protected:
  CacheAge() {
    const long long now = CacheManager::TimeInMills();
    for (const int age : {30, 20, 10, 0}) {
      cache.AddAt("/k", ZoJson::Of(age), now - static_cast<long long>(age) * minute);
    }
  }

  CacheManager cache{100 * minute};
};

TEST_F(CacheAge, OfAKeyGivesTheFirstValueThatIsNoOlder) {
  EXPECT_EQ(cache.Get("/k", 15 * minute), ZoJson::Of(10));
  EXPECT_EQ(cache.Get("/k", 25 * minute), ZoJson::Of(20));
  EXPECT_EQ(cache.Get("/k", 50 * minute), ZoJson::Of(30));
  EXPECT_EQ(cache.Get("/k", 0), ZoJson::Of(0));
  EXPECT_EQ(cache.Get("/k", -25 * minute), ZoJson::Of(0)) << "nothing is that young";
}

TEST_F(CacheAge, OfASlotGivesTheFirstValueThatIsNoOlderAndAVersionForTheNewestAlone) {
  const CacheManager::Slot* const slot = cache.Find("/k");
  ASSERT_NE(slot, nullptr);
  const auto expect = [&](int age, int value, std::uint64_t expectedVersion) {
    std::uint64_t version = 77;
    long long at = 0;
    const long long before = CacheManager::TimeInMills();
    EXPECT_EQ(cache.Get(*slot, age * minute, version, at), ZoJson::Of(value)) << age;
    EXPECT_EQ(version, expectedVersion) << age;
    EXPECT_GE(at, before) << "that is the time of the look, whatever the age";
    EXPECT_LE(at, CacheManager::TimeInMills());
  };
  expect(15, 10, 0);
  expect(25, 20, 0);
  expect(50, 30, 0);
  expect(0, 0, 4);
  expect(-25, 0, 4);
}

}  // namespace
}  // namespace ZoTest
