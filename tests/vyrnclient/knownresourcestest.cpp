#include "zoiohandler/vyrnclient/knownresources.h"

#include <gtest/gtest.h>

#include <string>

namespace ZoTest {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

std::string Name(int i) {
  return "/r/" + std::to_string(i);
}

// Admits strangers of a mebibyte each until there is no more room, or 64 of them; returns how many.
int Fill(ZoIO::KnownResources& resources) {
  int admitted = 0;
  while (admitted < 64 && resources.Admits(Name(admitted), mebibyte)) {
    ++admitted;
  }
  return admitted;
}

TEST(KnownResources, AreAdmittedWhateverTheirSize) {
  ZoIO::KnownResources resources;
  resources.Note("/a");
  EXPECT_TRUE(resources.Admits("/a", 1000 * mebibyte));
}

TEST(KnownResources, OthersAreAdmittedUpToSixtyFourMebibytesTogether) {
  ZoIO::KnownResources resources;
  const int admitted = Fill(resources);
  EXPECT_EQ(admitted, 63) << "beside what remembers them";
  EXPECT_TRUE(resources.Admits(Name(5), mebibyte)) << "a newer value of the same";
  EXPECT_FALSE(resources.Admits(Name(5), 3 * mebibyte)) << "which holds more";
  EXPECT_TRUE(resources.Admits("/another", mebibyte / 2))
      << "what was not admitted leaves its room to others";
  EXPECT_FALSE(resources.Admits("/huge", std::size_t{0} - 1));
}

TEST(KnownResources, StrangersNamesCount) {
  ZoIO::KnownResources resources;
  int admitted = 0;
  while (resources.Admits(std::string(mebibyte, 'x') + Name(admitted), 0)) {
    ASSERT_LT(++admitted, 64);
  }
  EXPECT_GT(admitted, 30);
}

TEST(KnownResources, StrangerThatGetsAnItemLeavesRoomForOthers) {
  ZoIO::KnownResources resources;
  ASSERT_LT(Fill(resources), 64);
  resources.Note(Name(3));
  EXPECT_TRUE(resources.Admits(Name(3), 100 * mebibyte));
  EXPECT_TRUE(resources.Admits("/another", mebibyte));
  EXPECT_FALSE(resources.Admits("/third", mebibyte));
}

TEST(KnownResources, StrangerThatGetsSeveralItemsLeavesItsRoomOnce) {
  ZoIO::KnownResources resources;
  ASSERT_LT(Fill(resources), 64);
  resources.Note(Name(3));
  resources.Note(Name(3));
  EXPECT_TRUE(resources.Admits("/another", mebibyte));
  EXPECT_FALSE(resources.Admits("/third", mebibyte));
}

}  // namespace
}  // namespace ZoTest
