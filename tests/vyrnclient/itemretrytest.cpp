// The registry's retry pass, one at a time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/vyrnclient/feedtest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ItemRetry : public FeedTest {
 protected:
  // Items that are not found, with nothing cached and the record of all that emptied.
  void MakeInvalid(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      EXPECT_FALSE(Item(name).valid);
    }
    recorder.Clear();
    sensor->ClearCalls();
  }
};

TEST_F(ItemRetry, PassWithoutInvalidItemsReadsNothing) {
  Registry().RetryInvalidItems();
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(ItemRetry, ItemBecomesValidWhenItsResourceAppears) {
  MakeInvalid({"/r#/a"});
  Registry().RetryInvalidItems();
  EXPECT_FALSE(Item("/r#/a").valid);
  sensor->SetResource("/r", R"({"a":5})");
  Registry().RetryInvalidItems();
  EXPECT_TRUE(Item("/r#/a").valid);
  EXPECT_THAT(Registry().InvalidItems(), IsEmpty());
  EXPECT_EQ(Cache().Get("/r", 0), ZoJson(R"({"a":5})"));
}

TEST_F(ItemRetry, ReadsWithoutTheOfflineWarningAndLogsNothing) {
  MakeInvalid({"/r#/a"});
  sensor->SetResource("/r", R"({"a":5})");
  Registry().RetryInvalidItems();
  ASSERT_EQ(sensor->CallTexts(), std::vector<std::string>{"Read /r"});
  EXPECT_FALSE(sensor->Calls()[0].logFailure);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(ItemRetry, ItemThatBecameValidIsNotAskedForAgain) {
  MakeInvalid({"/r#/a"});
  sensor->SetResource("/r", R"({"a":5})");
  Registry().RetryInvalidItems();
  sensor->ClearCalls();
  Registry().RetryInvalidItems();
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(ItemRetry, CachedResourceIsNotRead) {
  MakeInvalid({"/r#/a"});
  Cached("/r", R"({"a":5})");
  Registry().RetryInvalidItems();
  EXPECT_TRUE(Item("/r#/a").valid);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(ItemRetry, CachedResourceWithoutTheElementKeepsTheItemWaiting) {
  MakeInvalid({"/r#/a"});
  Cached("/r", R"({"b":5})");
  Registry().RetryInvalidItems();
  EXPECT_FALSE(Item("/r#/a").valid);
  Cached("/r", R"({"a":null})");
  Registry().RetryInvalidItems();
  EXPECT_FALSE(Item("/r#/a").valid);
  Cached("/r", R"({"a":0})");
  Registry().RetryInvalidItems();
  EXPECT_TRUE(Item("/r#/a").valid);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(ItemRetry, PayloadWithoutTheElementIsNotCached) {
  MakeInvalid({"/r#/a"});
  sensor->SetResource("/r", R"({"b":5})");
  Registry().RetryInvalidItems();
  EXPECT_FALSE(Item("/r#/a").valid);
  EXPECT_FALSE(Cache().Exists("/r"));
  Registry().RetryInvalidItems();
  EXPECT_EQ(sensor->CallCount("Read"), 2u);
}

TEST_F(ItemRetry, PayloadWithANullForTheElementKeepsTheItemWaitingAndIsNotCached) {
  MakeInvalid({"/r#/a"});
  sensor->SetResource("/r", R"({"a":null})");
  Registry().RetryInvalidItems();
  EXPECT_FALSE(Item("/r#/a").valid);
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/r#/a"));
  EXPECT_FALSE(Cache().Exists("/r"));
  sensor->SetResource("/r", R"({"a":0})");
  Registry().RetryInvalidItems();
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /r", "Read /r"));
  EXPECT_TRUE(Item("/r#/a").valid);
  EXPECT_THAT(Registry().InvalidItems(), IsEmpty());
}

TEST_F(ItemRetry, NullPayloadEndsTheTurnOfTheItemNotThePass) {
  MakeInvalid({"/a#/x", "/b#/x"});
  sensor->SetResource("/b", R"({"x":1})");
  Registry().RetryInvalidItems();
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /a", "Read /b"));
  EXPECT_FALSE(Cache().Exists("/a"));
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/a#/x"));
}

TEST_F(ItemRetry, ItemsAreTriedInTheOrderOfTheList) {
  MakeInvalid({"/c#/x", "/a#/x", "/b#/x"});
  Registry().RetryInvalidItems();
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /c", "Read /a", "Read /b"));
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/c#/x", "/a#/x", "/b#/x"));
}

TEST_F(ItemRetry, SeveralBecomeValidInOnePass) {
  MakeInvalid({"/a#/x", "/b#/x", "/c#/x"});
  for (const char* uri : {"/a", "/b", "/c"}) {
    sensor->SetResource(uri, R"({"x":1})");
  }
  Registry().RetryInvalidItems();
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /a", "Read /b", "Read /c"));
  EXPECT_THAT(Registry().InvalidItems(), IsEmpty());
  for (const char* name : {"/a#/x", "/b#/x", "/c#/x"}) {
    EXPECT_TRUE(Item(name).valid) << name;
  }
}

TEST_F(ItemRetry, ThoseThatStayKeepTheirOrderAroundThoseThatLeave) {
  MakeInvalid({"/a#/x", "/b#/x", "/c#/x", "/d#/x", "/e#/x"});
  sensor->SetResource("/b", R"({"x":1})");
  sensor->SetResource("/d", R"({"x":1})");
  Registry().RetryInvalidItems();
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/a#/x", "/c#/x", "/e#/x"));
  sensor->ClearCalls();
  Registry().RetryInvalidItems();
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /a", "Read /c", "Read /e"));
}

TEST_F(ItemRetry, ItemsOfOneResourceNeedOneRead) {
  MakeInvalid({"/r#/a", "/r#/b", "/r#/c"});
  sensor->SetResource("/r", R"({"a":1,"b":2,"c":3})");
  Registry().RetryInvalidItems();
  EXPECT_EQ(sensor->CallCount("Read"), 1u);
  EXPECT_THAT(Registry().InvalidItems(), IsEmpty());
}

TEST_F(ItemRetry, ResponseWithoutPayloadIsAskedForAgainAtOnce) {
  MakeInvalid({"/r#/a"});
  int reads = 0;
  sensor->SetScript("Read", [&](const auto&) {
    ++reads;
    return reads < 50 ? ZoJson() : ZoJson(R"({"status":1,"payload":{"a":1}})");
  });
  Registry().RetryInvalidItems();
  EXPECT_EQ(reads, 50);
  EXPECT_TRUE(Item("/r#/a").valid);
}

TEST_F(ItemRetry, BareAcknowledgementIsAskedForAgainAtOnce) {
  MakeInvalid({"/r#/a"});
  int reads = 0;
  sensor->SetScript("Read", [&](const auto&) {
    return ++reads < 3 ? ZoJson(R"({"status":1})") : ZoJson(R"({"status":-404,"payload":null})");
  });
  Registry().RetryInvalidItems();
  EXPECT_EQ(reads, 3);
  EXPECT_FALSE(Item("/r#/a").valid);
}

TEST_F(ItemRetry, ExceptionEndsThePassAndLeavesTheListWhole) {
  MakeInvalid({"/a#/x", "/b#/x", "/c#/x"});
  sensor->SetResource("/a", R"({"x":1})");
  sensor->SetResource("/c", R"({"x":1})");
  sensor->SetScript("Read", [](const FakeSensorManager::Request& request) -> ZoJson {
    if (request.uri == "/b") {
      throw std::runtime_error("broken");
    }
    return ZoJson(R"({"status":1,"payload":{"x":1}})");
  });
  EXPECT_THROW(Registry().RetryInvalidItems(), std::runtime_error);
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /a", "Read /b"));
  EXPECT_TRUE(Item("/a#/x").valid);
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/b#/x", "/c#/x"));
  EXPECT_EQ(recorder.Size(), 0u);
}

// A registry whose passes store what they found as a test wants it.
class ItemRetryStoring : public ItemRetry {
 protected:
  std::function<void(const std::string& uri, const ZoJson& payload)> keep;
  ZoIO::ItemManager registry{*sensor,
                             false,
                             {[] {},
                              [this, test = std::this_thread::get_id()](const std::string& uri) {
                                if (std::this_thread::get_id() != test) {
                                  throw std::runtime_error("The worker does not read in this test.");
                                }
                                return sensor->Read(uri, false);
                              },
                              [this](const std::string& uri, const ZoJson& payload) { keep(uri, payload); }}};
};

TEST_F(ItemRetryStoring, ThatRaisesLeavesTheItemWaitingForALaterPass) {
  EXPECT_FALSE(registry.Item("/a#/x").valid);
  EXPECT_FALSE(registry.Item("/b#/x").valid);
  sensor->SetResource("/a", R"({"x":1})");
  sensor->SetResource("/b", R"({"x":1})");
  keep = [](const auto&, const auto&) { throw std::runtime_error("no room"); };
  EXPECT_THROW(registry.RetryInvalidItems(), std::runtime_error);
  EXPECT_FALSE(registry.Item("/a#/x").valid);
  EXPECT_FALSE(registry.Item("/b#/x").valid);
  EXPECT_THAT(registry.InvalidItems(), ElementsAre("/a#/x", "/b#/x"));
  EXPECT_EQ(Cache().Size(), 0u);
  keep = [this](const std::string& uri, const ZoJson& payload) { sensor->Keep(uri, payload); };
  registry.RetryInvalidItems();
  EXPECT_TRUE(registry.Item("/a#/x").valid);
  EXPECT_TRUE(registry.Item("/b#/x").valid);
  EXPECT_THAT(registry.InvalidItems(), IsEmpty());
  EXPECT_EQ(Cache().Get("/a", 0), ZoJson(R"({"x":1})"));
}

TEST_F(ItemRetryStoring, IsDoneBeforeTheItemBecomesValid) {
  const ZoIO::ItemInfo& item = registry.Item("/r#/a");
  ASSERT_FALSE(item.valid);
  sensor->SetResource("/r", R"({"a":5})");
  bool stored = false;
  keep = [&](const std::string& uri, const ZoJson& payload) {
    EXPECT_FALSE(item.valid);
    sensor->Keep(uri, payload);
    EXPECT_FALSE(item.valid);
    stored = true;
  };
  registry.RetryInvalidItems();
  EXPECT_TRUE(stored);
  EXPECT_TRUE(item.valid);
}

TEST_F(ItemRetry, AfterAFailedPassTheNextOneReachesTheOthers) {
  MakeInvalid({"/a#/x", "/b#/x"});
  bool broken = true;
  sensor->SetScript("Read", [&](const FakeSensorManager::Request& request) -> ZoJson {
    if (broken && request.uri == "/a") {
      throw std::runtime_error("broken");
    }
    return ZoJson(R"({"status":1,"payload":{"x":1}})");
  });
  EXPECT_THROW(Registry().RetryInvalidItems(), std::runtime_error);
  broken = false;
  Registry().RetryInvalidItems();
  EXPECT_THAT(Registry().InvalidItems(), IsEmpty());
}

TEST_F(ItemRetry, MissingElementDoesNotKeepLaterItemsFromTheirTurn) {
  MakeInvalid({"/a#/missing", "/b#/x"});
  Cached("/a", R"({"x":1})");
  sensor->SetResource("/b", R"({"x":1})");
  Registry().RetryInvalidItems();
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/a#/missing"));
}

TEST_F(ItemRetry, PlaceBelowAScalarIsAMissingElement) {
  MakeInvalid({"/a#/x/y", "/b#/x"});
  Cached("/a", R"({"x":1})");
  Cached("/b", R"({"x":1})");
  Registry().RetryInvalidItems();
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/a#/x/y"));
}

TEST_F(ItemRetry, WithoutASourceOfItsOwnARegistryReadsAndStoresThroughItsSensorManager) {
  ZoIO::ItemManager registry(*sensor, false);
  EXPECT_FALSE(registry.Item("/r#/a").valid);
  sensor->SetResource("/r", R"({"a":5})");
  registry.RetryInvalidItems();
  EXPECT_TRUE(registry.Item("/r#/a").valid);
  EXPECT_THAT(sensor->Kept(), ElementsAre(R"(/r {"a":5})"));
  EXPECT_EQ(Cache().Get("/r", 0), ZoJson(R"({"a":5})"));
}

TEST_F(ItemRetry, WithoutASourceOfItsOwnARegistryLetsNoRefusalOfItsPassesBeLogged) {
  ZoIO::ItemManager registry(*sensor, false);
  EXPECT_FALSE(registry.Item("/r#/a").valid);
  sensor->ClearCalls();
  registry.RetryInvalidItems();
  const std::vector<FakeSensorManager::Request> calls = sensor->Calls();
  ASSERT_FALSE(calls.empty());
  for (const FakeSensorManager::Request& call : calls) {
    EXPECT_EQ(call.Text(), "Read /r");
    EXPECT_FALSE(call.logFailure);
  }
}

// Again and again, since the clock may go on just then.
TEST_F(ItemRetry, NewestValueDecidesHoweverYoungTheOneBeforeIs) {
  for (int i = 0; i < 100; ++i) {
    const std::string uri = "/r" + std::to_string(i);
    MakeInvalid({uri + "#/a"});
    const long long now = ZoIO::CacheManager::TimeInMills();
    Cache().AddAt(uri, ZoJson::ParseString(R"({"b":5})"), now - 1);
    Cache().AddAt(uri, ZoJson::ParseString(R"({"a":5})"), now);
    Registry().RetryInvalidItems();
    ASSERT_TRUE(Item(uri + "#/a").valid) << i;
  }
}

TEST_F(ItemRetry, GivenUpRegistryDoesNotReadAnyMore) {
  MakeInvalid({"/r#/a"});
  sensor->SetScript("Read", [](const auto&) { return ZoJson(); });
  Registry().Shutdown();
  EXPECT_THROW(Registry().RetryInvalidItems(), std::runtime_error);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

}  // namespace
}  // namespace ZoTest
