// What a look at a document leaves behind, in memory asked for: who is alone with a document changes it where it is.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/vyrnclient/bytesasked.h"
#include "tests/vyrnclient/feedtest.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/serving.h"

namespace ZoTest {
namespace {

class FeedWork : public FeedTest {
 protected:
  FeedWork() : document(ZoJson::ParseString(R"({"a":1,"list":[0]})")) {
    for (int i = 1; i < 10'000; ++i) {
      document.Set("/list/" + std::to_string(i), i);
    }
    Cached("/r", document);
  }

  // A newer one takes its place, and the cache forgets it.
  void ReplaceDocument() {
    Cached("/r", R"({"a":2})");
    Cache().TrimAt(ZoIO::CacheManager::TimeInMills() + 3'600'000);
    ASSERT_EQ(Cache().SizeAt("/r"), 1u);
  }

  bool IsAloneWithTheDocument() {
    const std::size_t before = BytesAsked();
    document.Set("/list/5", 7);
    return BytesAsked() - before < 10'000;
  }

  ZoJson document;
};

TEST_F(FeedWork, DocumentOfAPassIsNotHeldWhenItIsReplaced) {
  ZoIO::ZoVyrnClient::Serving serving(parameters, nullptr, logger);
  ASSERT_EQ(qLock_Construct(serving.lock.Out(), "FeedWork", Zo::LockRank_Instance), qStatus_Success);
  serving.feed.SetSensor(sensor);
  {
    Zo::Locker held(serving.lock);
    serving.GetSubscriptionGroup(std::chrono::hours(1)).AddItem(Item("/r#/a").name);
  }
  EXPECT_FALSE(IsAloneWithTheDocument()) << "the cache has it";
  Cached("/r", document);
  serving.Pass([] { return std::chrono::system_clock::time_point::max(); });
  EXPECT_EQ(recorder.CountValues("/r#/a"), 1u);
  ReplaceDocument();
  EXPECT_TRUE(IsAloneWithTheDocument());
}

TEST_F(FeedWork, DocumentOfAReadIsNotHeldWhenItIsReplaced) {
  EXPECT_EQ(feed.UpdateItemFromCache(Item("/r#/a")), xhmi::variant_value(1LL));
  ReplaceDocument();
  EXPECT_TRUE(IsAloneWithTheDocument());
}

}  // namespace
}  // namespace ZoTest
