#include "tools/zosensor/uri.h"

#include <gtest/gtest.h>

namespace ZoSensor {
namespace {

TEST(Uri, KeepsTheSpellingBesideThePath) {
  EXPECT_EQ(Uri::Parse("/res/sub").path, "/res/sub");
  EXPECT_TRUE(Uri::Parse("/res/sub").slash);
  EXPECT_EQ(Uri::Parse("res/sub").path, "/res/sub");
  EXPECT_FALSE(Uri::Parse("res/sub").slash);
  EXPECT_EQ(Uri::Parse("").path, "/");
  EXPECT_EQ(Spell("/res", true), "/res");
  EXPECT_EQ(Spell("/res", false), "res");
}

TEST(Pattern, OfAUriMatchesThatResourceAlone) {
  const auto pattern = Pattern::Parse("/res");
  ASSERT_TRUE(pattern);
  EXPECT_TRUE(pattern->Matches("/res"));
  EXPECT_FALSE(pattern->Matches("/res/sub"));
  EXPECT_FALSE(pattern->Matches("/resource"));
}

TEST(Pattern, WithAStarMatchesTheResourceAndWhatLiesBelow) {
  const auto pattern = Pattern::Parse("res/*");
  ASSERT_TRUE(pattern);
  EXPECT_FALSE(pattern->slash);
  EXPECT_TRUE(pattern->Matches("/res"));
  EXPECT_TRUE(pattern->Matches("/res/sub/sub"));
  EXPECT_FALSE(pattern->Matches("/resource"));
  EXPECT_FALSE(pattern->Matches("/other/res"));
}

TEST(Pattern, BareStarsMatchEverythingAndSpellWithTheSlash) {
  for (const char* text : {"*", "/*", "//*"}) {
    const auto pattern = Pattern::Parse(text);
    ASSERT_TRUE(pattern) << text;
    EXPECT_TRUE(pattern->slash) << text;
    EXPECT_TRUE(pattern->Matches("/")) << text;
    EXPECT_TRUE(pattern->Matches("/a/b")) << text;
  }
}

TEST(Pattern, RefusesAStarAnywhereElse) {
  for (const char* text : {"/res*", "/*/res", "/r*s", "/res/**", "**", "*/*", "/res/*/"}) {
    EXPECT_FALSE(Pattern::Parse(text)) << text;
  }
}

}  // namespace
}  // namespace ZoSensor
