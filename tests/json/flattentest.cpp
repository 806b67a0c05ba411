#include <gtest/gtest.h>

#include <string>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace {

std::string Flat(const char* text) {
  return ZoJson(text).Flatten().ToString();
}
std::string Deep(const char* text) {
  return ZoJson(text).Unflatten().ToString();
}

TEST(ZoJsonFlatten, EachLeafStandsUnderItsPointer) {
  EXPECT_EQ(Flat(R"({"a":{"b":1,"c":{"d":"x"}},"e":null})"), R"({"/a/b":1,"/a/c/d":"x","/e":null})");
}

TEST(ZoJsonFlatten, ArraysAndEmptyObjectsAreLeaves) {
  EXPECT_EQ(Flat(R"({"a":[1,{"b":2}],"c":{},"d":{"e":[]}})"), R"({"/a":[1,{"b":2}],"/c":{},"/d/e":[]})");
}

TEST(ZoJsonFlatten, AScalarOrEmptyDocumentIsOneEntryAtTheEmptyKey) {
  for (const char* text : {"null", "5", "1.5", "true", "\"x\"", "[]", "{}", "[1,2]"}) {
    EXPECT_EQ(Flat(text), "{\"\":" + std::string(text) + "}");
    EXPECT_EQ(ZoJson(text).Flatten().Unflatten(), ZoJson(text));
  }
}

TEST(ZoJsonFlatten, NamesAreEscaped) {
  EXPECT_EQ(Flat(R"({"a/b":{"~":1},"":{"":2}})"), R"({"/a~1b/~0":1,"//":2})");
}

TEST(ZoJsonFlatten, ADocumentWithAnEmptyNameIsNotAScalar) {
  EXPECT_EQ(Flat(R"({"":5})"), R"({"/":5})");
  EXPECT_EQ(Deep(R"({"/":5})"), R"({"":5})");
  EXPECT_EQ(Deep(R"({"":5})"), "5");
}

TEST(ZoJsonFlatten, UnflattenMakesObjectsAlsoOfNumbers) {
  EXPECT_EQ(Deep(R"({"/list/0":5})"), R"({"list":{"0":5}})");
  EXPECT_EQ(Deep(R"({"/0/-":5,"/0/1":6})"), R"({"0":{"-":5,"1":6}})");
}

TEST(ZoJsonFlatten, TheTwoAreInverse) {
  for (const char* text :
       {R"({"a":{"b":1,"c":{"d":"x"}},"e":null})", R"({"a/b":{"~":1,"~1":{"/":[]}},"":{"":{"":2},"0":{}}})",
        R"({"0":{"0":{"-":[1]}}})", R"({"~0":1,"~":2,"~01":3,"/":4,"//":5," ":6})",
        R"({"a":{"a":{"a":{}}}})"}) {
    const ZoJson document(text);
    EXPECT_EQ(document.Flatten().Unflatten().ToString(), text);
  }
}

TEST(ZoJsonFlatten, AWriteTemplateTakesItsValueAtTheFirstEntry) {
  ZoJson sample;
  sample.Set("/a b/c", 0);
  ZoJson flat = sample.Flatten();
  EXPECT_EQ(flat.ToString(), R"({"/a b/c":0})");
  flat.Set(ZoJsonPointer::Member(ZoJsonIterator(flat).Key()), 2.5);
  EXPECT_EQ(flat.Unflatten().ToString(), R"({"a b":{"c":2.5}})");

  ZoJson bare = ZoJson().Flatten();
  EXPECT_EQ(bare.ToString(), R"({"":null})");
  bare.Set(ZoJsonPointer::Member(ZoJsonIterator(bare).Key()), "value");
  EXPECT_EQ(bare.Unflatten().ToString(), R"("value")");
}

TEST(ZoJsonFlatten, WhatHasNoEntriesComesBackAsItIs) {
  for (const char* text : {"null", "5", "\"x\"", "[]", "{}", "[{\"/a\":1}]"}) {
    EXPECT_EQ(Deep(text), text);
  }
}

TEST(ZoJsonFlatten, NamesWithoutASlashAreReadLikeTextKeys) {
  EXPECT_EQ(Deep(R"({"a/b":1,"a/~x":2})"), R"({"a":{"b":1,"~x":2}})");
}

TEST(ZoJsonFlatten, OfEntriesThatContradictEachOtherTheLaterWins) {
  EXPECT_EQ(Deep(R"({"/a":1,"/a/b":2})"), R"({"a":{"b":2}})");
  EXPECT_EQ(Deep(R"({"/a/b":2,"/a":1})"), R"({"a":1})");
  EXPECT_EQ(Deep(R"({"/a":[1,2],"/a/0":3})"), R"({"a":{"0":3}})");
  EXPECT_EQ(Deep(R"({"/a":{"x":1},"/a/b":2})"), R"({"a":{"x":1,"b":2}})");
  EXPECT_EQ(Deep(R"({"/a":1,"":2})"), "2");
  EXPECT_EQ(Deep(R"({"":2,"/a":1})"), R"({"a":1})");
  EXPECT_EQ(Deep(R"({"/a/b":1,"a/b":2})"), R"({"a":{"b":2}})");
}

TEST(ZoJsonFlatten, UnflattenLeavesTheLeavesOfTheFlatDocumentAlone) {
  const ZoJson flat(R"({"/a":{"x":1},"/a/b":2})");
  const ZoJson deep = flat.Unflatten();
  EXPECT_EQ(flat.ToString(), R"({"/a":{"x":1},"/a/b":2})");
}

}  // namespace
