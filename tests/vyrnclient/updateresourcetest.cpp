// Reading a resource into the cache.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/vyrnclient/feedtest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

using UpdateResource = FeedTest;

TEST_F(UpdateResource, PutsThePayloadUnderTheUri) {
  sensor->SetResource("/r", R"({"a":1})");
  feed.UpdateResource("/r");
  EXPECT_EQ(Cache().Get("/r", 0), ZoJson(R"({"a":1})"));
  ASSERT_EQ(sensor->CallTexts(), std::vector<std::string>{"Read /r"});
  EXPECT_TRUE(sensor->Calls()[0].logFailure);
  EXPECT_EQ(recorder.Size(), 0u);
}

// The manager knows what order the answer has; the cache alone does not.
TEST_F(UpdateResource, LeavesTheStoringToTheSensorManager) {
  sensor->SetResource("/r", R"({"a":1})");
  feed.UpdateResource("/r");
  feed.UpdateResource("/denied");
  EXPECT_THAT(sensor->Kept(), ElementsAre(R"(/r {"a":1})", "/denied null"));
}

TEST_F(UpdateResource, NullPayloadIsStoredToo) {
  feed.UpdateResource("/denied");
  EXPECT_TRUE(Cache().Get("/denied", 0).IsNull());
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(UpdateResource, AbsentPayloadIsLoggedAndNothingIsAdded) {
  sensor->SetScript("Read", [](const auto&) { return ZoJson(R"({"status":1})"); });
  feed.UpdateResource("/r");
  EXPECT_FALSE(Cache().Exists("/r"));
  const Recorder::Entries lines = recorder.Logs();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, 5);
  EXPECT_EQ(lines[0].function, "ZoIO::ZoVyrnClient::UpdateResource");
  EXPECT_FALSE(lines[0].message.empty());
}

TEST_F(UpdateResource, EmptyResponseIsLoggedAndNothingIsAdded) {
  sensor->SetScript("Read", [](const auto&) { return ZoJson(); });
  feed.UpdateResource("/r");
  EXPECT_FALSE(Cache().Exists("/r"));
  ASSERT_EQ(recorder.Logs().size(), 1u);
  EXPECT_EQ(recorder.Logs()[0].level, 5);
}

TEST_F(UpdateResource, ExceptionIsLoggedWithItsTextAndDropped) {
  sensor->SetScript("Read", [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  feed.UpdateResource("/r");
  EXPECT_FALSE(Cache().Exists("/r"));
  EXPECT_THAT(recorder.LogLines(), ElementsAre("5 ZoIO::ZoVyrnClient::UpdateResource: broken"));
}

TEST_F(UpdateResource, FailureLeavesTheOldValue) {
  Cached("/r", "1");
  sensor->SetScript("Read", [](const auto&) { return ZoJson(); });
  feed.UpdateResource("/r");
  EXPECT_EQ(Cache().SizeAt("/r"), 1u);
  EXPECT_EQ(Cache().Get("/r", 0), ZoJson::Of(1));
}

}  // namespace
}  // namespace ZoTest
