// The registry: how a name becomes an item on first use.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/vyrnclient/feedtest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ZoIO::ItemInfo;

using ItemRegistry = FeedTest;

class SimulatedRegistry : public FeedTest {
 protected:
  SimulatedRegistry() : FeedTest(true) {}
};

TEST_F(ItemRegistry, NewItemOfAnUncachedResourceIsReadCachedAndAdded) {
  sensor->SetResource("/r", R"({"a":5})");
  const ItemInfo& item = Item("/r#/a");
  EXPECT_TRUE(item.valid);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ItemManager::Item: /r#/a does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: /r#/a created.",
                                               "2 ZoIO::ItemManager::Item: Retrieving /r#/a value.",
                                               "2 ZoIO::ItemManager::Item: /r#/a value updated.",
                                               "2 ZoIO::ItemManager::Item: Adding item /r#/a"));
  EXPECT_EQ(Cache().Get("/r", 0), ZoJson(R"({"a":5})"));
  EXPECT_THAT(Registry().InvalidItems(), IsEmpty());
}

TEST_F(ItemRegistry, ValidationReadsTheUriOnceAndLetsRefusalsBeLogged) {
  sensor->SetResource("/r", R"({"a":5})");
  Item("/r#/a");
  ASSERT_EQ(sensor->CallTexts(), std::vector<std::string>{"Read /r"});
  EXPECT_TRUE(sensor->Calls()[0].logFailure);
}

// The manager knows what order the answer has; the cache alone does not.
TEST_F(ItemRegistry, ValidationLeavesTheStoringToTheSensorManager) {
  sensor->SetResource("/r", R"({"a":5})");
  Item("/r#/a");
  Item("/r#/b");
  EXPECT_FALSE(Item("/unknown#/a").valid);
  EXPECT_THAT(sensor->Kept(), ElementsAre(R"(/r {"a":5})"));
}

TEST_F(ItemRegistry, ReadValueIsStoredBeforeTheLineThatSaysSo) {
  sensor->SetResource("/r", R"({"a":5})");
  std::vector<std::string> kept;
  recorder.OnLog([&](const Entry& entry) {
    if (entry.message == "/r#/a value updated.") {
      kept = sensor->Kept();
    }
  });
  Item("/r#/a");
  recorder.OnLog({});
  EXPECT_THAT(kept, ElementsAre(R"(/r {"a":5})"));
}

TEST_F(ItemRegistry, ResourceOfANewItemIsToldOfBeforeItsValueIsReadAndStored) {
  sensor->SetResource("/r", R"({"a":5,"b":6})");
  std::vector<std::string> noted;
  recorder.OnLog([&](const Entry& entry) {
    if (entry.message == "Retrieving /r#/a value.") {
      noted = sensor->Noted();
    }
  });
  Item("/r#/a");
  recorder.OnLog({});
  EXPECT_THAT(noted, ElementsAre("/r"));
  Item("/r#/a");
  EXPECT_THAT(sensor->Noted(), ElementsAre("/r")) << "it is known already";
}

// Again and again, since the clock may go on just then.
TEST_F(ItemRegistry, NewestValueDecidesHoweverYoungTheOneBeforeIs) {
  for (int i = 0; i < 100; ++i) {
    const std::string uri = "/r" + std::to_string(i);
    const long long now = ZoIO::CacheManager::TimeInMills();
    Cache().AddAt(uri, ZoJson::ParseString(R"({"b":5})"), now - 1);
    Cache().AddAt(uri, ZoJson::ParseString(R"({"a":5})"), now);
    EXPECT_TRUE(Item(uri + "#/a").valid) << i;
  }
}

TEST_F(ItemRegistry, NewItemOfACachedResourceIsValidatedWithoutARead) {
  Cached("/r", R"({"a":5})");
  EXPECT_TRUE(Item("/r#/a").valid);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ItemManager::Item: /r#/a does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: /r#/a created.",
                                               "2 ZoIO::ItemManager::Item: Adding item /r#/a"));
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(ItemRegistry, KnownItemIsReturnedWithoutAWord) {
  Cached("/r", R"({"a":5})");
  ItemInfo& first = Item("/r#/a");
  recorder.Clear();
  ItemInfo& second = Item("/r#/a");
  EXPECT_EQ(&first, &second);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(ItemRegistry, RecordsStayWhereTheyAre) {
  Cached("/r", R"({"a":5})");
  ItemInfo& first = Item("/r#/a");
  for (int i = 0; i < 2000; ++i) {
    Item("/r#/a" + std::to_string(i));
  }
  EXPECT_EQ(&first, &Item("/r#/a"));
  EXPECT_EQ(first.name, "/r#/a");
}

TEST_F(ItemRegistry, ItemOfAnElementThatIsMissingIsStoredInvalid) {
  sensor->SetResource("/r", R"({"a":5})");
  EXPECT_FALSE(Item("/r#/b").valid);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ItemManager::Item: /r#/b does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: /r#/b created.",
                                               "2 ZoIO::ItemManager::Item: Retrieving /r#/b value.",
                                               "2 ZoIO::ItemManager::Item: /r#/b value updated.",
                                               "4 ZoIO::ItemManager::Item: /r#/b does not exists."));
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/r#/b"));
}

TEST_F(ItemRegistry, ItemOfANullElementIsStoredInvalid) {
  Cached("/r", R"({"a":null})");
  EXPECT_FALSE(Item("/r#/a").valid);
  EXPECT_EQ(recorder.CountMessages("/r#/a does not exists."), 1u);
}

TEST_F(ItemRegistry, ItemOfAnObjectOrArrayIsValid) {
  Cached("/r", R"({"o":{},"l":[]})");
  EXPECT_TRUE(Item("/r#/o").valid);
  EXPECT_TRUE(Item("/r#/l").valid);
}

TEST_F(ItemRegistry, ItemOfTheWholePayloadIsValid) {
  Cached("/r", "7");
  EXPECT_TRUE(Item("/r#").valid);
}

TEST_F(ItemRegistry, NameWithoutHashIsLookedForUnderItselfInItsResource) {
  Cached("/r", R"({"r":7})");
  EXPECT_TRUE(Item("/r").valid);
  Cached("/s", R"({"a":7})");
  EXPECT_FALSE(Item("/s").valid);
}

TEST_F(ItemRegistry, InvalidItemIsNotAskedForAgainByItem) {
  sensor->SetResource("/r", R"({"a":5})");
  Item("/r#/b");
  recorder.Clear();
  sensor->ClearCalls();
  EXPECT_FALSE(Item("/r#/b").valid);
  EXPECT_EQ(recorder.Size(), 0u);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/r#/b"));
}

TEST_F(ItemRegistry, NullPayloadIsNotCached) {
  EXPECT_FALSE(Item("/unknown#/a").valid);
  EXPECT_FALSE(Cache().Exists("/unknown"));
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("2 ZoIO::ItemManager::Item: /unknown#/a does not exist. Creating.",
                          "2 ZoIO::ItemManager::Item: /unknown#/a created.",
                          "2 ZoIO::ItemManager::Item: Retrieving /unknown#/a value.",
                          "4 ZoIO::ItemManager::Item: /unknown#/a does not exists."));
}

TEST_F(ItemRegistry, EmptyResponseLeavesTheItemInvalid) {
  sensor->SetScript("Read", [](const auto&) { return ZoJson(); });
  EXPECT_FALSE(Item("/r#/a").valid);
  EXPECT_FALSE(Cache().Exists("/r"));
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ItemManager::Item: /r#/a does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: /r#/a created.",
                                               "2 ZoIO::ItemManager::Item: Retrieving /r#/a value.",
                                               "4 ZoIO::ItemManager::Item: /r#/a does not exists."));
}

TEST_F(ItemRegistry, ExceptionDuringValidationLeavesTheItemInvalid) {
  sensor->SetScript("Read", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  EXPECT_FALSE(Item("/r#/a").valid);
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/r#/a"));
  EXPECT_EQ(recorder.CountMessages("broken"), 0u);
  EXPECT_EQ(recorder.CountMessages("/r#/a does not exists."), 1u);
}

TEST_F(ItemRegistry, WithoutConnectionNothingIsReadAndTheCacheDecides) {
  sensor->SetConnected(false);
  Cached("/r", R"({"a":5})");
  EXPECT_TRUE(Item("/r#/a").valid);
  EXPECT_FALSE(Item("/s#/a").valid);
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
  EXPECT_EQ(recorder.CountMessages("Retrieving /s#/a value."), 0u);
  EXPECT_EQ(recorder.CountMessages("/s#/a does not exists."), 1u);
}

TEST_F(ItemRegistry, SecondItemOfAResourceFindsItCached) {
  sensor->SetResource("/r", R"({"a":5,"b":6})");
  Item("/r#/a");
  Item("/r#/b");
  EXPECT_EQ(sensor->CallCount("Read"), 1u);
}

TEST_F(ItemRegistry, ItemsHoldsEveryRecordUnderItsName) {
  Cached("/r", R"({"a":5})");
  Item("/r#/a");
  Item("/r#/b");
  ASSERT_EQ(Registry().Items().size(), 2u);
  EXPECT_EQ(Registry().Items().at("/r#/a").name, "/r#/a");
  EXPECT_EQ(&Registry().Items().at("/r#/a"), &Item("/r#/a"));
  const ZoIO::ItemManager& constant = Registry();
  EXPECT_EQ(&constant.Items(), &Registry().Items());
  EXPECT_EQ(constant.Snapshot().size(), 2u);
}

TEST_F(ItemRegistry, NamesThatAreInvalidAreListedOldestFirst) {
  Item("/c#/a");
  Item("/a#/a");
  Item("/b#/a");
  EXPECT_THAT(Registry().InvalidItems(), ElementsAre("/c#/a", "/a#/a", "/b#/a"));
}

TEST_F(ItemRegistry, ThreadsThatAskForOneNameGetOneRecord) {
  sensor->SetResource("/r", R"({"a":5})");
  std::vector<std::thread> threads;
  std::vector<ItemInfo*> records(4);
  for (std::size_t i = 0; i < records.size(); ++i) {
    threads.emplace_back([&, i] { records[i] = &Item("/r#/a"); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (ItemInfo* record : records) {
    EXPECT_EQ(record, records[0]);
  }
  EXPECT_EQ(recorder.CountMessages("/r#/a created."), 1u);
  EXPECT_EQ(sensor->CallCount("Read"), 1u);
}

TEST_F(SimulatedRegistry, AcceptsEveryNameWithTwoLinesAndAsksNobody) {
  ZoIO::ItemManager& registry = Registry();
  sensor->ClearCalls();
  for (const char* name : {"/r#/a", "", "#", "no such thing"}) {
    recorder.Clear();
    EXPECT_TRUE(registry.Item(name).valid);
    EXPECT_EQ(recorder.LogLines(),
              (std::vector<std::string>{
                  "2 ZoIO::ItemManager::Item: " + std::string(name) + " does not exist. Creating.",
                  "2 ZoIO::ItemManager::Item: " + std::string(name) + " created."}));
  }
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
  EXPECT_THAT(sensor->Questions(), IsEmpty());
  EXPECT_EQ(Cache().Size(), 0u);
  EXPECT_THAT(Registry().InvalidItems(), IsEmpty());
}

// One that cannot store what was read, for as long as raise says so.
class RaisingSensorManager : public FakeSensorManager {
 public:
  using FakeSensorManager::FakeSensorManager;

  void Keep(const std::string& uri, const ZoJson& payload) override {
    raise();
    FakeSensorManager::Keep(uri, payload);
  }

  std::function<void()> raise = [] {};
};

TEST(ItemRegistryStoring, ThatRaisesLeavesTheItemWaitingForTheRetryWithoutALineOfItsOwn) {
  const std::function<void()> faults[] = {[] { throw std::exception(); }, [] { throw std::bad_alloc(); },
                                          [] { throw std::runtime_error("no room"); }};
  for (const auto& fault : faults) {
    SCOPED_TRACE(&fault - faults);
    Recorder recorder;
    RaisingSensorManager sensor(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
    ZoIO::ItemManager& registry = *sensor.PLC();
    sensor.SetResource("/r", R"({"a":5})");
    sensor.raise = fault;
    const ItemInfo& item = registry.Item("/r#/a");
    EXPECT_FALSE(item.valid);
    EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ItemManager::Item: /r#/a does not exist. Creating.",
                                                 "2 ZoIO::ItemManager::Item: /r#/a created.",
                                                 "2 ZoIO::ItemManager::Item: Retrieving /r#/a value.",
                                                 "4 ZoIO::ItemManager::Item: /r#/a does not exists."));
    EXPECT_THAT(sensor.CallTexts(), ElementsAre("Read /r"));
    EXPECT_FALSE(sensor.Cache()->Exists("/r"));
    EXPECT_THAT(registry.InvalidItems(), ElementsAre("/r#/a"));
    sensor.raise = [] {};
    registry.RetryInvalidItems();
    EXPECT_TRUE(item.valid);
    EXPECT_THAT(registry.InvalidItems(), IsEmpty());
    EXPECT_EQ(sensor.Cache()->Get("/r", 0), ZoJson(R"({"a":5})"));
  }
}

TEST(ItemRegistryEnd, TellsItsBeginningAndItsEnd) {
  Recorder recorder;
  {
    FakeSensorManager sensor(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
    EXPECT_EQ(recorder.Size(), 0u);
  }
  EXPECT_THAT(recorder.LogLines(), ElementsAre("3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
                                               "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."));
}

TEST(ItemRegistryEnd, ShutdownIsDoneOnce) {
  Recorder recorder;
  {
    FakeSensorManager sensor(std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog));
    sensor.PLC()->Shutdown();
    sensor.PLC()->Shutdown();
  }
  EXPECT_EQ(recorder.Size(), 2u);
}

}  // namespace
}  // namespace ZoTest
