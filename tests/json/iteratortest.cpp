#include "zovyrnsdk/json/zojsoniterator.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Visited(const ZoJson& container) {
  std::string text;
  for (ZoJsonIterator it(container); it.Valid(); it.Next()) {
    text += std::string(it.Key()) + "=" + it.Value().ToString() + ";";
  }
  return text;
}

TEST(ZoJsonIterator, MembersComeInTheOrderOfInsertion) {
  EXPECT_EQ(Visited(ZoJson(R"({"z":1,"a":[2],"":null})")), "z=1;a=[2];=null;");
}

TEST(ZoJsonIterator, ElementsHaveNoKey) {
  EXPECT_EQ(Visited(ZoJson("[1,\"x\",{}]")), "=1;=\"x\";={};");
}

TEST(ZoJsonIterator, OtherValuesHaveNothingToVisit) {
  for (const char* text : {"null", "true", "1", "1.5", "\"x\"", "\"long enough for a node\"", "[]", "{}"}) {
    EXPECT_FALSE(ZoJsonIterator(ZoJson(text)).Valid()) << text;
  }
}

TEST(ZoJsonIterator, NamesComeUnescaped) {
  EXPECT_EQ(Visited(ZoJson(R"({"/a~1b\n":1})")), "/a~1b\n=1;");
}

TEST(ZoJsonIterator, RemovedMembersAreSkipped) {
  ZoJson value(R"({"a":1,"b":2,"c":3,"d":4,"e":5})");
  value.Remove("a");
  value.Remove("c");
  EXPECT_EQ(Visited(value), "b=2;d=4;e=5;");
  value.Remove("e");
  EXPECT_EQ(Visited(value), "b=2;d=4;");
}

TEST(ZoJsonIterator, ElementsRemovedFromTheFrontAreGone) {
  ZoJson value("[1,2,3,4]");
  value.Remove("0");
  value.Remove("0");
  EXPECT_EQ(Visited(value), "=3;=4;");
  value.Set("/-", 5);
  EXPECT_EQ(Visited(value), "=3;=4;=5;");
}

TEST(ZoJsonIterator, LaterEditsAreNotSeen) {
  ZoJson value(R"({"a":1,"b":2})");
  ZoJsonIterator it(value);
  value.Set("a", 9);
  value.Remove("b");
  value = ZoJson();
  EXPECT_EQ(it.Value().Get<int>(), 1);
  it.Next();
  EXPECT_EQ(it.Key(), "b");
  EXPECT_EQ(it.Value().Get<int>(), 2);
  it.Next();
  EXPECT_FALSE(it.Valid());
}

TEST(ZoJsonIterator, EditingWhileVisitingIsSafe) {
  ZoJson value(R"({"a":1,"b":2,"c":3})");
  for (ZoJsonIterator it(value); it.Valid(); it.Next()) {
    value.Set(ZoJsonPointer::Member(std::string(it.Key()) + "2"), it.Value());
    value.Remove(ZoJsonPointer::Member(it.Key()));
  }
  EXPECT_EQ(value.ToString(), R"({"a2":1,"b2":2,"c2":3})");
}

}  // namespace
