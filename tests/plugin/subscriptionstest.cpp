// Subscribing and unsubscribing on the simulator: result codes, reference counts, groups.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unordered_set>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

class Subscriptions : public PluginTest {
 protected:
  Subscriptions() : handle(Create()) { recorder.Clear(); }

  // Three more values of another item: whatever was still to come of the items in question has come.
  void WaitForLaterTicks() {
    if (!watching) {
      Subscribe(handle, {"watch#/int"});
      watching = true;
    }
    const std::size_t before = recorder.CountValues("watch#/int");
    EXPECT_TRUE(recorder.WaitForValue("watch#/int", before + 3));
  }

  void ExpectSilence(const std::string& item) {
    const std::size_t before = recorder.CountValues(item);
    WaitForLaterTicks();
    EXPECT_EQ(recorder.CountValues(item), before) << item;
  }

  void ExpectValues(const std::string& item) {
    EXPECT_TRUE(recorder.WaitForValue(item, recorder.CountValues(item) + 2)) << item;
  }

  void* handle;
  bool watching = false;
};

TEST_F(Subscriptions, CodeOfANewItemIsTwo) {
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, {"a#/int", "a#/float", "a#/bool", "a#/string", "x", ""}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(2, 2, 2, 2, 2, 2));
}

// Only a text changes the kind of an item's variant; numbers and booleans are stored over what it was.
TEST_F(Subscriptions, CodeOfAnItemThatHoldsATextIsZero) {
  Subscribe(handle, {"a#/float", "a#/bool", "b#/string"});
  ASSERT_TRUE(recorder.WaitForEntry(IsOfType("a#/float", enumtype_double)));
  ASSERT_TRUE(recorder.WaitForEntry(IsOfType("a#/bool", enumtype_bool)));
  ASSERT_TRUE(recorder.WaitForEntry(IsOfType("b#/string", enumtype_string)));
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, {"a#/float", "b#/string", "a#/bool"}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(2, 0, 2));
}

TEST_F(Subscriptions, ResultSlotsBeyondTheCountAreNotTouched) {
  const char* names[3] = {"a#/int", "b#/int", "c#/int"};
  int codes[3] = {-7, -7, -7};
  EXPECT_EQ(plugin.subscribeItems(100, 2, names, codes, handle), 0);
  EXPECT_THAT(codes, ElementsAre(2, 2, -7));
  WaitForLaterTicks();
  EXPECT_EQ(recorder.CountValues("c#/int"), 0u);
}

TEST_F(Subscriptions, UnsubscribedItemsFallSilent) {
  Subscribe(handle, {"a#/int", "b#/int"});
  ASSERT_TRUE(recorder.WaitForValue("a#/int"));
  EXPECT_EQ(Unsubscribe(handle, {"a#/int"}), 0);
  ExpectSilence("a#/int");
  ExpectValues("b#/int");
}

TEST_F(Subscriptions, AnItemSubscribedTwiceIsDeliveredOnceATick) {
  Subscribe(handle, {"a#/int"});
  Subscribe(handle, {"a#/int", "b#/int"});
  ASSERT_TRUE(recorder.WaitForValue("b#/int", 5));
  // In every tick a and b come in turn; a had at most a few ticks before b was there.
  const auto all = recorder.All();
  std::string order;
  for (const Entry& entry : all) {
    if (entry.kind == Entry::Kind::Value) {
      order += entry.item[0];
    }
  }
  const std::string fromFirstPair = order.substr(order.find("ab"));
  EXPECT_EQ(fromFirstPair.find("aa"), std::string::npos) << order;
  EXPECT_EQ(fromFirstPair.find("bb"), std::string::npos) << order;
}

TEST_F(Subscriptions, AnItemSubscribedTwiceTakesTwoUnsubscribesToStopItsStream) {
  Subscribe(handle, {"a#/int"});
  Subscribe(handle, {"a#/int"});
  EXPECT_EQ(recorder.CountMessages("Starting stream a"), 1u);
  EXPECT_EQ(Unsubscribe(handle, {"a#/int"}), 0);
  EXPECT_EQ(recorder.CountMessages("Stopping stream a"), 0u);
  ExpectSilence("a#/int");  // it has left its group all the same
  EXPECT_EQ(Unsubscribe(handle, {"a#/int"}), 0);
  EXPECT_EQ(recorder.CountMessages("Stopping stream a"), 1u);
}

TEST_F(Subscriptions, ANameTwiceInOneBatchCountsTwice) {
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, {"a#/int", "a#/int"}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(2, 2));
  EXPECT_EQ(recorder.CountMessages("Starting stream a"), 1u);
  Unsubscribe(handle, {"a#/int"});
  EXPECT_EQ(recorder.CountMessages("Stopping stream a"), 0u);
  Unsubscribe(handle, {"a#/int"});
  EXPECT_EQ(recorder.CountMessages("Stopping stream a"), 1u);
}

TEST_F(Subscriptions, ItemsOfOneResourceShareItsStream) {
  Subscribe(handle, {"a#/x", "a#/y"});
  EXPECT_EQ(recorder.CountMessages("Starting stream a"), 1u);
  Unsubscribe(handle, {"a#/x"});
  EXPECT_EQ(recorder.CountMessages("Stopping stream a"), 0u);
  Unsubscribe(handle, {"a#/y"});
  EXPECT_EQ(recorder.CountMessages("Stopping stream a"), 1u);
}

TEST_F(Subscriptions, OneUnsubscribeRemovesAnItemFromEveryInterval) {
  Subscribe(handle, {"a#/int"}, 100);
  Subscribe(handle, {"a#/int"}, 200);
  ASSERT_TRUE(recorder.WaitForValue("a#/int", 3));
  EXPECT_EQ(Unsubscribe(handle, {"a#/int"}), 0);
  WaitForLaterTicks();
  ExpectSilence("a#/int");
}

TEST_F(Subscriptions, UnsubscribingWhatWasNeverSubscribedStopsAStreamThatNeverStarted) {
  EXPECT_EQ(Unsubscribe(handle, {"a#/int"}), 0);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Unsubscribe: Unsubscribing items.",
                                               "2 ZoIO::ItemManager::Item: a#/int does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: a#/int created.",
                                               "2 ZoIO::ZoVyrnClient::Unsubscribe: Stopping stream a"));
  // The count is back at 0: the first subscribe starts, the first unsubscribe stops.
  Subscribe(handle, {"a#/int"});
  EXPECT_EQ(recorder.CountMessages("Starting stream a"), 1u);
  ExpectValues("a#/int");
  Unsubscribe(handle, {"a#/int"});
  EXPECT_EQ(recorder.CountMessages("Stopping stream a"), 2u);
}

// The simulator's answer to stopping a stream looks like success, so its subscription is never given back.
TEST_F(Subscriptions, SubscribingAgainFindsThePatternStillSubscribed) {
  Subscribe(handle, {"a#/int"});
  Unsubscribe(handle, {"a#/int"});
  recorder.Clear();
  Subscribe(handle, {"a#/int"}, 1'000'000);
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Subscribing items.",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Starting stream a",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Attempting to stream resource a",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Stream attempt failed.Attempting to subscribe.",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Resource already subscribed.Skipping."));
  EXPECT_TRUE(recorder.WaitForValue("a#/int"));
}

// Which resources share a pattern: everything up to the first slash behind position 0, "#" taken out.
TEST_F(Subscriptions, PatternsComeFromTheNames) {
  struct Case {
    const char* item;
    const char* sameAs;  // subscribed before; null where the pattern is new
  };
  const Case cases[] = {
      {"/res/sub#/a", nullptr},       // /res/*
      {"/res/other#/a", "/res/sub"},  // /res/*
      {"/res#/x", "/res/sub"},        // /res/* from /res#/*
      {"/res/sub2", nullptr},         // /res/sub2/*
      {"/only", nullptr},             // /only/*
      {"/only/x#", "/only"},          // /only/*
      {"/only/a/b#", "/only"},        // /only/*, from the first slash on nothing counts
      {"res#/x", nullptr},            // res/*
      {"res/y#/x", "res#/x"},         // res/*
      {"", nullptr},                  // /*
      {"plain#x", nullptr},           // *
      {"other#y", "plain#x"},         // *
      {"x", nullptr},                 // x/*
  };
  for (const Case& one : cases) {
    recorder.Clear();
    EXPECT_EQ(Subscribe(handle, {one.item}, 1'000'000), 0);
    EXPECT_EQ(recorder.CountMessages("Resource subscribed successfully."), one.sameAs == nullptr ? 1u : 0u)
        << one.item;
    EXPECT_EQ(recorder.CountMessages("Resource already subscribed.Skipping."),
              one.sameAs == nullptr ? 0u : 1u)
        << one.item;
  }
}

TEST_F(Subscriptions, ALaterBatchJoinsTheGroupOfItsInterval) {
  Subscribe(handle, {"b#/int"}, 300);
  ASSERT_TRUE(recorder.WaitForValue("b#/int", 2));
  Subscribe(handle, {"a#/int"}, 300);
  ASSERT_TRUE(recorder.WaitForValue("b#/int", 5));
  // From its first value on, a comes directly before b, in the same tick.
  const auto all = recorder.All();
  std::string order;
  for (const Entry& entry : all) {
    if (entry.kind == Entry::Kind::Value) {
      order += entry.item[0];
    }
  }
  const auto firstA = order.find('a');
  ASSERT_NE(firstA, std::string::npos);
  for (std::size_t i = firstA; i + 1 < order.size(); i += 2) {
    EXPECT_EQ(order.substr(i, 2), "ab") << order;
  }
}

TEST_F(Subscriptions, ThousandsOfItemsAddedWhileTheSimulatorWalksThemAreAllServed) {
  constexpr int kBatches = 50;
  constexpr int kPerBatch = 100;
  std::vector<std::string> names;
  for (int batch = 0; batch < kBatches; ++batch) {
    std::vector<std::string> part;
    for (int i = 0; i < kPerBatch; ++i) {
      part.push_back("res" + std::to_string(i % 20) + "#/" + std::to_string(batch) + "/int" +
                     std::to_string(i));
    }
    std::vector<int> codes;
    ASSERT_EQ(Subscribe(handle, part, 1000, &codes), 0);
    ASSERT_EQ(codes, std::vector<int>(kPerBatch, 2));
    names.insert(names.end(), part.begin(), part.end());
    if (batch % 10 == 9) {
      // Let a pass of the simulator come between.
      ASSERT_TRUE(recorder.WaitForEntry(IsOfType(part[0], enumtype_int64)));
    }
  }
  std::unordered_set<std::string> missing(names.begin(), names.end());
  std::size_t seen = 0;
  EXPECT_TRUE(recorder.WaitFor([&](const Recorder::Entries& all) {
    for (; seen < all.size(); ++seen) {
      if (all[seen].kind == Entry::Kind::Value && all[seen].value.type == enumtype_int64) {
        missing.erase(all[seen].item);
      }
    }
    return missing.empty();
  })) << missing.size()
      << " items got no value, one of them is " << *missing.begin();
  EXPECT_EQ(recorder.CountMessages("Subscribing items."), static_cast<std::size_t>(kBatches));
  EXPECT_EQ(Unsubscribe(handle, names), 0);
  EXPECT_EQ(recorder.Count([](const Entry& entry) {
    return entry.kind == Entry::Kind::Log && entry.message.starts_with("Stopping stream ");
  }),
            20u);
}

}  // namespace
}  // namespace ZoTest
