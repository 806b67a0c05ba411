// What becomes of an item name.
#include <gtest/gtest.h>

#include <locale>

#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoTest {
namespace {

using ZoIO::ItemInfo;
using ZoIO::ItemManager;

std::string Endpoint(const std::string& name) {
  return ItemManager::CreateItem(name).endpoint.Flatten().ToString();
}

ZoJsonPointer Pointer(const std::string& name) {
  return ItemManager::CreateItem(name).pointer;
}

struct Example {
  const char* name;
  const char* uri;
  const char* subscriptionUri;
  const char* endpoint;  // flat; null for none
  const char* pointer;
};

class ItemNameExample : public ::testing::TestWithParam<Example> {};

TEST_P(ItemNameExample, GivesItsParts) {
  const Example& example = GetParam();
  const ItemInfo info = ItemManager::CreateItem(example.name);
  EXPECT_EQ(info.name, example.name);
  EXPECT_EQ(info.uri, example.uri);
  EXPECT_EQ(info.subscriptionUri, example.subscriptionUri);
  EXPECT_EQ(info.pointer, ZoJsonPointer(example.pointer));
  if (example.endpoint == nullptr) {
    EXPECT_TRUE(info.endpoint.Empty());
  } else {
    EXPECT_EQ(info.endpoint.Flatten().ToString(), example.endpoint);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, ItemNameExample,
    ::testing::Values(Example{"/res/sub#/a/b", "/res/sub", "/res/*", R"({"/a/b":0})", "/a/b"},
                      Example{"/res/sub#/a%20b/c", "/res/sub", "/res/*", R"({"/a b/c":0})", "/a b/c"},
                      Example{"/res/sub#/a b", "/res/sub", "/res/*", R"({"/a/b":0})", "/a b"},
                      Example{"/res/sub#//a//b/", "/res/sub", "/res/*", R"({"/a/b":0})", "//a//b/"},
                      Example{"/res/sub#", "/res/sub", "/res/*", R"({"":0})", ""},
                      Example{"/res/sub", "/res/sub", "/res/sub/*", nullptr, "/res/sub"},
                      Example{"/res#/x", "/res", "/res/*", R"({"/x":0})", "/x"},
                      Example{"res#/x", "res", "res/*", R"({"/x":0})", "/x"},
                      Example{"#/x", "", "/*", R"({"/x":0})", "/x"},
                      Example{"/a#/b#/c", "/a", "/a/*", R"({"/b#/c":0})", "/b#/c"},
                      Example{"x", "x", "x/*", nullptr, "x"}));

TEST(ItemName, FreshRecordIsValidUnsubscribedAndHoldsAnIntegerOfTypeInvalid) {
  for (const char* name : {"/res#/x", "/res"}) {
    const ItemInfo info = ItemManager::CreateItem(name);
    EXPECT_TRUE(info.valid);
    EXPECT_FALSE(info.subscribed);
    EXPECT_EQ(info.value.kind(), enumtype_int64);
    EXPECT_EQ(info.value.int64(), 0);
    EXPECT_EQ(info.type, enumtype_invalid);
  }
}

TEST(ItemName, EmptyNameGivesEmptyUriAndTheSlashPattern) {
  const ItemInfo info = ItemManager::CreateItem("");
  EXPECT_EQ(info.uri, "");
  EXPECT_EQ(info.subscriptionUri, "/*");
  EXPECT_TRUE(info.endpoint.Empty());
  EXPECT_EQ(info.pointer, ZoJsonPointer(""));
}

TEST(ItemName, NameOfOneCharacterGetsItsPattern) {
  EXPECT_EQ(ItemManager::CreateItem("x").subscriptionUri, "x/*");
  EXPECT_EQ(ItemManager::CreateItem("/").subscriptionUri, "//*");
}

TEST(ItemName, LoneHashIsAnEmptyResourceAndAnEmptyPlace) {
  const ItemInfo info = ItemManager::CreateItem("#");
  EXPECT_EQ(info.uri, "");
  EXPECT_EQ(info.subscriptionUri, "*");
  EXPECT_EQ(info.endpoint.Flatten().ToString(), R"({"":0})");
  EXPECT_EQ(info.pointer, ZoJsonPointer());
}

TEST(ItemName, FragmentOfSlashesOrBlanksGivesTheEmptyPath) {
  for (const char* name : {"/r#/", "/r#///", "/r# ", "/r#   ", "/r# / / ", "/r#\t\n/"}) {
    EXPECT_EQ(Endpoint(name), R"({"":0})") << name;
  }
}

TEST(ItemName, BlanksTabsAndNewlinesDivideTheEndpointOnly) {
  const ItemInfo info = ItemManager::CreateItem("/r#/a\tb\nc d\re\vf\fg");
  EXPECT_EQ(info.endpoint.Flatten().ToString(), R"({"/a/b/c/d/e/f/g":0})");
  EXPECT_EQ(info.pointer, ZoJsonPointer("/a\tb\nc d\re\vf\fg"));
}

TEST(ItemName, EncodedBlankIsDecodedInPointerAndEndpointButNotInTheUris) {
  const ItemInfo info = ItemManager::CreateItem("/a%20b/c%20d#/e%20f/%20g%20");
  EXPECT_EQ(info.uri, "/a%20b/c%20d");
  EXPECT_EQ(info.subscriptionUri, "/a%20b/*");
  EXPECT_EQ(info.pointer, ZoJsonPointer("/e f/ g "));
  EXPECT_EQ(info.endpoint.Flatten().ToString(), R"({"/e f/ g ":0})");
}

TEST(ItemName, SegmentOfAnEncodedBlankAloneSurvivesTheTidying) {
  EXPECT_EQ(Endpoint("/r#/%20"), R"({"/ ":0})");
  EXPECT_EQ(Pointer("/r#/%20"), ZoJsonPointer("/ "));
}

TEST(ItemName, EncodedBlankInANameWithoutHashStays) {
  const ItemInfo info = ItemManager::CreateItem("/a%20b");
  EXPECT_EQ(info.uri, "/a%20b");
  EXPECT_EQ(info.pointer, ZoJsonPointer("/a%20b"));
}

TEST(ItemName, NoOtherEscapeIsDecoded) {
  const ItemInfo info = ItemManager::CreateItem("/r#/a%2Fb/%23/%2520/%2/%");
  EXPECT_EQ(info.pointer, ZoJsonPointer("/a%2Fb/%23/%2520/%2/%"));
  EXPECT_EQ(info.endpoint.Flatten().ToString(), R"({"/a%2Fb/%23/%2520/%2/%":0})");
}

TEST(ItemName, NoEscapeIsDecodedInTheUris) {
  for (const std::string escape : {"%2F", "%2f", "%23", "%41", "%2520", "%2", "%"}) {
    const std::string resource = "/a" + escape + "b/c" + escape + "d";
    const ItemInfo info = ItemManager::CreateItem(resource + "#/e");
    EXPECT_EQ(info.uri, resource);
    EXPECT_EQ(info.subscriptionUri, "/a" + escape + "b/*");
    EXPECT_EQ(ItemManager::CreateItem(resource).uri, resource);
    EXPECT_EQ(ItemManager::CreateItem(resource).subscriptionUri, resource + "/*");
  }
}

TEST(ItemName, WhatADecodedBlankLeavesIsNotDecodedAgain) {
  EXPECT_EQ(Pointer("/r#/%%2020"), ZoJsonPointer("/% 20"));
  EXPECT_EQ(Endpoint("/r#/%%2020"), R"({"/% 20":0})");
}

TEST(ItemName, SecondHashStaysInTheFragmentAndLeavesThePattern) {
  const ItemInfo info = ItemManager::CreateItem("res#a#b/c#d");
  EXPECT_EQ(info.uri, "res");
  EXPECT_EQ(info.subscriptionUri, "resab/*");
  EXPECT_EQ(info.pointer, ZoJsonPointer("a#b/c#d"));
  EXPECT_EQ(info.endpoint.Flatten().ToString(), R"({"/a#b/c#d":0})");
}

TEST(ItemName, FirstSlashBehindTheHashGluesResourceAndSegment) {
  EXPECT_EQ(ItemManager::CreateItem("res#x/y").subscriptionUri, "resx/*");
  EXPECT_EQ(ItemManager::CreateItem("/res#x/y").subscriptionUri, "/resx/*");
}

TEST(ItemName, WithoutASlashAfterTheFirstCharacterThePatternIsTheStar) {
  EXPECT_EQ(ItemManager::CreateItem("res#x").subscriptionUri, "*");
  EXPECT_EQ(ItemManager::CreateItem("/res#x").subscriptionUri, "*");
  EXPECT_EQ(ItemManager::CreateItem("/#").subscriptionUri, "*");
}

TEST(ItemName, SlashRightBehindTheFirstCharacterEndsThePattern) {
  EXPECT_EQ(ItemManager::CreateItem("//a#b").subscriptionUri, "//*");
  EXPECT_EQ(ItemManager::CreateItem("#/b").subscriptionUri, "/*");
}

TEST(ItemName, LeadingSlashOfTheFragmentMayBeMissing) {
  EXPECT_EQ(Endpoint("/r#a/b"), R"({"/a/b":0})");
  EXPECT_EQ(Pointer("/r#a/b"), ZoJsonPointer("/a/b"));
}

TEST(ItemName, SameNameTwiceGivesEqualParts) {
  for (const char* name : {"/res/sub#/a%20b/c", "/res/sub", "", "#"}) {
    const ItemInfo a = ItemManager::CreateItem(name);
    const ItemInfo b = ItemManager::CreateItem(name);
    EXPECT_EQ(a.uri, b.uri);
    EXPECT_EQ(a.subscriptionUri, b.subscriptionUri);
    EXPECT_EQ(a.endpoint, b.endpoint);
    EXPECT_EQ(a.pointer, b.pointer);
  }
}

TEST(ItemName, NumericSegmentsMakeObjectsInTheTemplate) {
  EXPECT_EQ(ItemManager::CreateItem("/r#/list/0").endpoint.ToString(), R"({"list":{"0":0}})");
}

TEST(ItemName, EscapedSlashIsPartOfAMemberName) {
  EXPECT_EQ(ItemManager::CreateItem("/r#/a~1b").endpoint.ToString(), R"({"a/b":0})");
  EXPECT_EQ(Endpoint("/r#/a~1b"), R"({"/a~1b":0})");
}

TEST(ItemName, TildeThatEscapesNothingStandsForItself) {
  EXPECT_EQ(ItemManager::CreateItem("/r#/a~b").endpoint.ToString(), R"({"a~b":0})");
  EXPECT_EQ(Pointer("/r#/a~b"), ZoJsonPointer::Member("a~b"));
  EXPECT_EQ(ItemManager::CreateItem("/r#/~~01").endpoint.ToString(), R"({"~~1":0})");
  EXPECT_EQ(Pointer("/r#/~~01"), ZoJsonPointer::Member("~~1"));
}

TEST(ItemName, EveryByteIsTaken) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string letter(1, static_cast<char>(byte));
    const std::string name = "/r" + letter + "#/p" + letter;
    EXPECT_NO_THROW(EXPECT_EQ(ItemManager::CreateItem(name).name, name)) << byte;
  }
}

TEST(ItemName, ThirtyThousandSegmentsAreTaken) {
  std::string name = "/r#";
  for (int i = 0; i < 32'000; ++i) {
    name += "/a";
  }
  const ItemInfo info = ItemManager::CreateItem(name);
  EXPECT_EQ(info.pointer.Segments().size(), 32'000u);
  EXPECT_EQ(Endpoint(name), "{\"" + name.substr(3) + "\":0}");
}

TEST(ItemName, ErrorIsARuntimeErrorWithItsText) {
  const ZoIO::ItemError error("Invalid identifier.");
  const ZoIO::ItemError copy(error);
  EXPECT_STREQ(copy.what(), "Invalid identifier.");
  EXPECT_NE(dynamic_cast<const std::runtime_error*>(&copy), nullptr);
}

// A locale in which "x" counts as a blank.
class OddBlanks : public std::ctype<char> {
 public:
  OddBlanks() : std::ctype<char>(Table()) {}

 private:
  static const mask* Table() {
    static mask table[table_size];
    std::copy(classic_table(), classic_table() + table_size, table);
    table[static_cast<unsigned char>('x')] = space;
    return table;
  }
};

TEST(ItemName, GlobalLocaleDoesNotChangeWhatDividesSegments) {
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new OddBlanks));
  const std::string endpoint = Endpoint("/r#/axb");
  std::locale::global(before);
  EXPECT_EQ(endpoint, R"({"/axb":0})");
}

}  // namespace
}  // namespace ZoTest
