#include <gtest/gtest.h>

#include <string>

#include "zovyrnsdk/json/zojson.h"

namespace {

std::string ErrorOf(const ZoJson& value, std::string_view key) {
  try {
    value.At(key);
  } catch (const ZoJsonError& error) {
    return error.what();
  }
  return "no error";
}

class ZoJsonLookup : public testing::Test {
 protected:
  const ZoJson document{
      R"({"res":{"sub":5,"none":null},"list":[10,{"x":11},[12]],"":{"":"deep"},"a/b":1,"m~n":2,"01":3})"};
};

TEST_F(ZoJsonLookup, EverySpellingReachesOneNode) {
  for (const char* key : {"/res/sub", "res/sub"}) {
    EXPECT_EQ(document.At(key).Get<int>(), 5);
    EXPECT_EQ(document.At(ZoJsonPointer(key)).Get<int>(), 5);
    EXPECT_TRUE(document.HasKey(key));
    EXPECT_TRUE(document.HasKey(ZoJsonPointer(key)));
  }
  ZoJson written = document;
  written.Set("res/sub", 6);
  written.Set("/res/sub", 7);
  written.Set(ZoJsonPointer("res/sub"), 8);
  EXPECT_EQ(written.At("/res/sub").Get<int>(), 8);
  EXPECT_EQ(written.Size(), document.Size());
}

TEST_F(ZoJsonLookup, TheEmptyKeyIsTheWholeDocument) {
  EXPECT_EQ(document.At(""), document);
  EXPECT_EQ(document.At(ZoJsonPointer()), document);
  EXPECT_TRUE(ZoJson().HasKey(""));
}

TEST_F(ZoJsonLookup, EmptyNamesAreNames) {
  EXPECT_EQ(document.At("/").ToString(), R"({"":"deep"})");
  EXPECT_EQ(document.At("//").Get<std::string>(), "deep");
}

TEST_F(ZoJsonLookup, EscapedNamesAreFoundByTextAndByName) {
  EXPECT_EQ(document.At("a~1b").Get<int>(), 1);
  EXPECT_EQ(document.At(ZoJsonPointer::Member("a/b")).Get<int>(), 1);
  EXPECT_EQ(document.At("m~0n").Get<int>(), 2);
  EXPECT_EQ(document.At("m~n").Get<int>(), 2);
  EXPECT_FALSE(document.HasKey("a/b"));
}

TEST_F(ZoJsonLookup, ElementsAreFoundByTheirIndex) {
  EXPECT_EQ(document.At("/list/0").Get<int>(), 10);
  EXPECT_EQ(document.At("/list/1/x").Get<int>(), 11);
  EXPECT_EQ(document.At("/list/2/0").Get<int>(), 12);
  for (const char* key :
       {"/list/3", "/list/-", "/list/-1", "/list/00", "/list/01", "/list/+1", "/list/1 ", "/list/", "/list/x",
        "/list/4294967295", "/list/4294967296", "/list/18446744073709551616", "/list/99999999999999999999999",
        "/list/0x0", "/list/1.0"}) {
    EXPECT_FALSE(document.HasKey(key)) << key;
    EXPECT_THROW(document.At(key), ZoJsonError) << key;
  }
}

TEST_F(ZoJsonLookup, IndicesWithLeadingZerosAreNamesInObjects) {
  EXPECT_EQ(document.At("/01").Get<int>(), 3);
}

TEST_F(ZoJsonLookup, ANullIsThere) {
  EXPECT_TRUE(document.HasKey("/res/none"));
  EXPECT_TRUE(document.At("/res/none").IsNull());
}

TEST_F(ZoJsonLookup, ErrorsNameThePointerAndWhy) {
  EXPECT_EQ(ErrorOf(document, "res/other/x"), "JSON value: nothing at \"/res/other/x\": no member \"other\"");
  EXPECT_EQ(ErrorOf(document, "/list/7"),
            "JSON value: nothing at \"/list/7\": no element \"7\" in an array of 3");
  EXPECT_EQ(ErrorOf(document, "/res/sub/x"),
            "JSON value: nothing at \"/res/sub/x\": no container where \"x\" is looked for");
  EXPECT_EQ(ErrorOf(ZoJson(), "/payload"),
            "JSON value: nothing at \"/payload\": no container where \"payload\" is looked for");
  EXPECT_EQ(ErrorOf(document, "m~n/y"),
            "JSON value: nothing at \"/m~0n/y\": no container where \"y\" is looked for");
}

TEST_F(ZoJsonLookup, TheErrorIsARuntimeError) {
  EXPECT_THROW(document.At("/no"), std::runtime_error);
}

TEST_F(ZoJsonLookup, EmptyContainersHoldNothing) {
  EXPECT_FALSE(ZoJson("{}").HasKey("a"));
  EXPECT_FALSE(ZoJson("[]").HasKey("0"));
  EXPECT_FALSE(ZoJson("\"text\"").HasKey("0"));
}

TEST_F(ZoJsonLookup, APartOutlivesItsDocument) {
  ZoJson part;
  {
    const ZoJson whole(R"({"a":{"b":["a text that is long enough for a node"]}})");
    part = whole.At("/a/b");
  }
  EXPECT_EQ(part.At("0").Get<std::string>(), "a text that is long enough for a node");
}

}  // namespace
