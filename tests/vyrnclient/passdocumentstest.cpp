// Which documents of a pass the cache keeps. The times are chosen, a new millisecond for every item unless said.
#include "zoiohandler/vyrnclient/passdocuments.h"

#include <gtest/gtest.h>

#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoTest {
namespace {

using ZoIO::PassDocuments;

class Documents : public ::testing::Test {
 protected:
  void Register(const std::string& uri, int count) {
    for (int i = 0; i < count; ++i) {
      items.push_back(ZoIO::ItemManager::CreateItem(uri + "#/" + std::to_string(i)));
    }
  }

  // A walk over all items in turn; each document is its item's number.
  void Pass(long long millisecondsForAnItem = 1) {
    std::vector<const ZoIO::ItemInfo*> walk;
    for (const ZoIO::ItemInfo& item : items) {
      walk.push_back(&item);
    }
    PassDocuments documents(cache, walk);
    for (std::size_t i = 0; i < walk.size(); ++i) {
      documents.AddAt(walk[i]->uri, ZoJson::Of(i), now);
      now += millisecondsForAnItem;
    }
  }

  std::size_t Newest(const std::string& uri) const { return cache.GetAt(uri, 0, now).Get<std::size_t>(); }

  // Where the worker of the cache finds nothing old.
  long long now = ZoIO::CacheManager::TimeInMills() + 3'600'000;
  ZoIO::CacheManager cache{5000};
  std::vector<ZoIO::ItemInfo> items;
};

TEST_F(Documents, OfASmallResourceAreAllKept) {
  Register("/r", 256);
  Pass();
  EXPECT_EQ(cache.SizeAt("/r"), 256u);
  EXPECT_EQ(Newest("/r"), 255u);
}

TEST_F(Documents, OfOneMillisecondAreKeptOnce) {
  Register("/r", 10);
  Pass(0);
  EXPECT_EQ(cache.SizeAt("/r"), 1u);
  EXPECT_EQ(Newest("/r"), 0u);
}

TEST_F(Documents, OfALargeResourceAreKeptAFewTimesOnly) {
  Register("/r", 20'000);
  Pass();
  EXPECT_GE(cache.SizeAt("/r"), 2u);
  EXPECT_LE(cache.SizeAt("/r"), 10u);
  EXPECT_EQ(Newest("/r"), 19'999u);
}

TEST_F(Documents, GoByTheClockUntilTheAllowanceIsUsedUp) {
  Register("/r", 20'000);
  // The first items take a millisecond each, so the ones that are kept are the first ones and the last.
  Pass();
  const std::size_t kept = cache.SizeAt("/r");
  for (std::size_t i = 0; i + 1 < kept; ++i) {
    EXPECT_EQ(cache.GetAt("/r", 0, now - 20'000 + static_cast<long long>(i)).Get<std::size_t>(), i);
  }
}

TEST_F(Documents, HaveANewAllowanceInEveryPass) {
  Register("/r", 20'000);
  Pass();
  const std::size_t kept = cache.SizeAt("/r");
  Pass();
  EXPECT_EQ(cache.SizeAt("/r"), 2 * kept);
}

TEST_F(Documents, OfManyResourcesCostNoMoreThanThoseOfOne) {
  // Each resource has its turns far apart, and time enough passes for every document to be kept.
  for (int i = 0; i < 200; ++i) {
    for (int resource = 0; resource < 100; ++resource) {
      items.push_back(
          ZoIO::ItemManager::CreateItem("/r" + std::to_string(resource) + "#/" + std::to_string(i)));
    }
  }
  Pass();
  std::size_t copied = 0;
  for (int resource = 0; resource < 100; ++resource) {
    const std::string uri = "/r" + std::to_string(resource);
    copied += 200 * cache.SizeAt(uri);
    EXPECT_GE(cache.SizeAt(uri), 2u);
    EXPECT_EQ(Newest(uri), 19'900u + static_cast<std::size_t>(resource));
  }
  EXPECT_LE(copied, 10u * items.size());
}

TEST_F(Documents, OfASmallResourceBehindALargeOneShowItsFirstAndItsLast) {
  Register("/large", 20'000);
  Register("/small", 3);
  Pass();
  EXPECT_EQ(cache.SizeAt("/small"), 2u);
  EXPECT_EQ(cache.GetAt("/small", 3, now).Get<std::size_t>(), 20'000u);  // at its very time
  EXPECT_EQ(Newest("/small"), 20'002u);
}

TEST_F(Documents, ThatAreLargerThanTheirItemsCountAsSuch) {
  Register("/r", 100);
  ZoJson large = ZoJson::EmptyArray();
  for (int i = 0; i < 65'000; ++i) {
    large.Set("/-", i);
  }
  std::vector<const ZoIO::ItemInfo*> walk;
  for (const ZoIO::ItemInfo& item : items) {
    walk.push_back(&item);
  }
  PassDocuments documents(cache, walk);
  for (const ZoIO::ItemInfo* item : walk) {
    documents.AddAt(item->uri, large, now++);
  }
  EXPECT_EQ(cache.SizeAt("/r"), 3u);  // two of the allowance, and the last
}

}  // namespace
}  // namespace ZoTest
