// Null pointers and other refused arguments: result 1, and nothing has happened.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

class NullPointers : public PluginTest {
 protected:
  NullPointers() : handle(Create()) { recorder.Clear(); }
  // The next call works, and it alone has left a trace.
  void ExpectNothingHappened() {
    EXPECT_EQ(recorder.Size(), 0u);
    EXPECT_EQ(Read(handle, "alive#"), 0);
    EXPECT_EQ(recorder.CountValues("alive#"), 1u);
  }

  void* handle;
  int results[2] = {-7, -7};
  const char* names[2] = {"res#/a", "res#/b"};
};

TEST_F(NullPointers, CreateRefusesANullAddress) {
  const ioHandlerParam param = recorder.Param();
  void* out = this;
  EXPECT_EQ(plugin.createIoInstance(nullptr, 1, &param, &out), 1);
  EXPECT_EQ(out, this);
  ExpectNothingHappened();
}

TEST_F(NullPointers, CreateRefusesANullRecord) {
  void* out = this;
  EXPECT_EQ(plugin.createIoInstance("simulator", 1, nullptr, &out), 1);
  EXPECT_EQ(out, this);
  ExpectNothingHappened();
}

TEST_F(NullPointers, CreateRefusesANullPlaceForTheHandle) {
  const ioHandlerParam param = recorder.Param();
  EXPECT_EQ(plugin.createIoInstance("simulator", 1, &param, nullptr), 1);
  ExpectNothingHappened();
}

TEST_F(NullPointers, NullHandleIsRefusedEverywhere) {
  const ioDataValue value = IntegerValue(1);
  EXPECT_EQ(plugin.destroyIoInstance(nullptr), 1);
  EXPECT_EQ(plugin.readItem("res#", nullptr), 1);
  EXPECT_EQ(plugin.writeItem("res#", &value, 0, nullptr), 1);
  EXPECT_EQ(plugin.subscribeItems(100, 2, names, results, nullptr), 1);
  EXPECT_THAT(results, ElementsAre(-7, -7));
  EXPECT_EQ(plugin.unsubscribeItems(2, names, nullptr), 1);
  EXPECT_EQ(plugin.callMethod(this, this, "RunSensor", "{}", nullptr), 1);
  ExpectNothingHappened();
}

TEST_F(NullPointers, ReadRefusesANullName) {
  EXPECT_EQ(plugin.readItem(nullptr, handle), 1);
  ExpectNothingHappened();
}

TEST_F(NullPointers, WriteRefusesANullNameAndANullValue) {
  const ioDataValue value = IntegerValue(1);
  EXPECT_EQ(plugin.writeItem(nullptr, &value, 0, handle), 1);
  EXPECT_EQ(plugin.writeItem("res#", nullptr, 0, handle), 1);
  ExpectNothingHappened();
}

// A text that is null is no value that could be sent, like one of an unknown type.
TEST_F(NullPointers, WriteRefusesANullText) {
  Subscribe(handle, {"res#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 1)));
  recorder.Clear();
  EXPECT_EQ(Write(handle, "res#/int", TextValue(nullptr)), 1);
  EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level >= 4; }), 0u);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 3)));
  EXPECT_EQ(recorder.Count(IsOfType("res#/int", enumtype_string)), 0u);
}

TEST_F(NullPointers, SubscribeRefusesNullArrays) {
  EXPECT_EQ(plugin.subscribeItems(100, 2, nullptr, results, handle), 1);
  EXPECT_EQ(plugin.subscribeItems(100, 2, names, nullptr, handle), 1);
  EXPECT_EQ(plugin.subscribeItems(100, 0, nullptr, results, handle), 1);
  EXPECT_EQ(plugin.subscribeItems(100, 0, names, nullptr, handle), 1);
  EXPECT_THAT(results, ElementsAre(-7, -7));
  ExpectNothingHappened();
}

TEST_F(NullPointers, UnsubscribeRefusesANullArray) {
  EXPECT_EQ(plugin.unsubscribeItems(2, nullptr, handle), 1);
  EXPECT_EQ(plugin.unsubscribeItems(0, nullptr, handle), 1);
  ExpectNothingHappened();
}

TEST_F(NullPointers, CallRefusesANullMethodAndNullArguments) {
  EXPECT_EQ(plugin.callMethod(this, this, nullptr, "{}", handle), 1);
  EXPECT_EQ(plugin.callMethod(this, this, "RunSensor", nullptr, handle), 1);
  ExpectNothingHappened();
}

TEST_F(NullPointers, CallTokenAndIgnoredArgumentMayBeNull) {
  EXPECT_EQ(plugin.callMethod(nullptr, nullptr, "RunSensor", "{}", handle), 0);
  ASSERT_EQ(recorder.Results().size(), 1u);
  EXPECT_EQ(recorder.Results()[0].token, nullptr);
}

TEST_F(NullPointers, SubscribeEndsItsBatchAtANullName) {
  const char* batch[5] = {"res#/a", "other#/b", nullptr, "res#/d", "res#/e"};
  int codes[5] = {-7, -7, -7, -7, -7};
  EXPECT_EQ(plugin.subscribeItems(100, 5, batch, codes, handle), 1);
  EXPECT_THAT(codes, ElementsAre(2, 2, -7, -7, -7));
  const auto lines = recorder.LogLines();
  EXPECT_EQ(
      std::count(lines.begin(), lines.end(), "4 ZoIO::ZoVyrnClient::Subscribe: Invalid item name. Skipping."),
      1);
  EXPECT_EQ(recorder.CountMessages("res#/d does not exist. Creating."), 0u);
  // Those before it are subscribed, those after it are not.
  EXPECT_TRUE(recorder.WaitForValue("res#/a", 3));
  EXPECT_TRUE(recorder.WaitForValue("other#/b", 2));
  EXPECT_EQ(recorder.CountValues("res#/d"), 0u);
  EXPECT_EQ(recorder.CountValues("res#/e"), 0u);
}

TEST_F(NullPointers, SubscribeOfANullFirstNameSubscribesNothing) {
  const char* batch[2] = {nullptr, "res#/b"};
  EXPECT_EQ(plugin.subscribeItems(100, 2, batch, results, handle), 1);
  EXPECT_THAT(results, ElementsAre(-7, -7));
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Subscribing items.",
                          "4 ZoIO::ZoVyrnClient::Subscribe: Invalid item name. Skipping."));
  EXPECT_EQ(Subscribe(handle, {"res#/c"}), 0);
  EXPECT_TRUE(recorder.WaitForValue("res#/c", 3));
  EXPECT_EQ(recorder.CountValues("res#/b"), 0u);
}

TEST_F(NullPointers, UnsubscribeWithANullNameAnywhereDoesNothing) {
  Subscribe(handle, {"res#/a", "res#/b"});
  ASSERT_TRUE(recorder.WaitForValue("res#/b"));
  for (int position = 0; position < 3; ++position) {
    const char* batch[3] = {"res#/a", "res#/b", "res#/new"};
    batch[position] = nullptr;
    recorder.Clear();
    EXPECT_EQ(plugin.unsubscribeItems(3, batch, handle), 1) << position;
    EXPECT_TRUE(recorder.Logs().empty()) << position;
    // Both go on.
    EXPECT_TRUE(recorder.WaitForValue("res#/a", 2)) << position;
    EXPECT_TRUE(recorder.WaitForValue("res#/b", 2)) << position;
  }
}

TEST_F(NullPointers, NullCallbacksAreSkipped) {
  ioHandlerParam param = recorder.Param();
  param.itemValue = nullptr;
  param.methodResult = nullptr;
  void* quiet = Create("simulator", 0, param);
  EXPECT_EQ(Subscribe(quiet, {"res#/int"}, 100), 0);
  EXPECT_EQ(Read(quiet, "res#"), 0);
  EXPECT_EQ(Call(quiet, "RunSensor", "{}"), 0);
  EXPECT_EQ(Subscribe(handle, {"loud#/int"}, 100), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("loud#/int", 1)));
  EXPECT_EQ(recorder.CountValues("res#/int"), 0u);
  EXPECT_TRUE(recorder.Results().empty());
  EXPECT_EQ(Destroy(quiet), 0);
}

using Counts = PluginTest;

TEST_F(Counts, BatchesOfNoneAndOfANegativeCountDoNothingWell) {
  void* handle = Create();
  const char* names[1] = {"res#/a"};
  int results[1] = {-7};
  for (int count : {0, -1, -2147483647 - 1}) {
    recorder.Clear();
    EXPECT_EQ(plugin.subscribeItems(100, count, names, results, handle), 0) << count;
    EXPECT_EQ(plugin.unsubscribeItems(count, names, handle), 0) << count;
    EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Subscribing items.",
                                                 "2 ZoIO::ZoVyrnClient::Unsubscribe: Unsubscribing items."))
        << count;
  }
  EXPECT_EQ(results[0], -7);
}

TEST_F(Counts, NamesBeyondTheCountAreNotLookedAt) {
  void* handle = Create();
  const char* names[] = {"res#/a", nullptr};
  int results[] = {-1, -1};
  EXPECT_EQ(plugin.subscribeItems(100, 0, names + 1, results + 1, handle), 0);
  EXPECT_EQ(plugin.subscribeItems(100, 1, names, results, handle), 0);
  EXPECT_EQ(results[1], -1);
  EXPECT_EQ(plugin.unsubscribeItems(0, names + 1, handle), 0);
  EXPECT_EQ(plugin.unsubscribeItems(1, names, handle), 0);
}

TEST_F(Counts, IgnoredArgumentsAreIgnored) {
  void* handle = Create();
  const ioDataValue value = IntegerValue(1);
  for (int ignored : {0, 1, -1, 2147483647}) {
    EXPECT_EQ(plugin.writeItem("res#/a", &value, ignored, handle), 0);
    EXPECT_EQ(plugin.callMethod(nullptr, reinterpret_cast<const void*>(static_cast<std::intptr_t>(ignored)),
                                "RunSensor", "{}", handle),
              0);
  }
}

}  // namespace
}  // namespace ZoTest
