#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace {

ZoJson With(const char* document, std::string_view key, const char* value) {
  ZoJson edited(document);
  edited.Set(key, ZoJson(value));
  return edited;
}

TEST(ZoJsonSet, MissingContainersAreMadeAsObjects) {
  EXPECT_EQ(With("null", "/a/b/c", "1").ToString(), R"({"a":{"b":{"c":1}}})");
  EXPECT_EQ(With("{}", "/list/0/x", "1").ToString(), R"({"list":{"0":{"x":1}}})");
  EXPECT_EQ(With("null", "0", "1").ToString(), R"({"0":1})");
  EXPECT_EQ(With("null", "/-", "1").ToString(), R"({"-":1})");
  EXPECT_EQ(With(R"({"a":{}})", "/a/b", "1").ToString(), R"({"a":{"b":1}})");
}

TEST(ZoJsonSet, AScalarInTheWayIsReplaced) {
  for (const char* scalar : {"null", "true", "1", "1.5", "\"x\"", "\"long enough for a node of its own\""}) {
    EXPECT_EQ(With(scalar, "/a", "1").ToString(), R"({"a":1})");
    EXPECT_EQ(With((R"({"s":)" + std::string(scalar) + "}").c_str(), "/s/a/b", "1").ToString(),
              R"({"s":{"a":{"b":1}}})");
  }
}

TEST(ZoJsonSet, TheEmptyPointerReplacesTheWhole) {
  EXPECT_EQ(With(R"({"a":1})", "", "[2]").ToString(), "[2]");
  ZoJson value(R"({"a":1})");
  value.Set(ZoJsonPointer(), 7);
  EXPECT_EQ(value.ToString(), "7");
}

TEST(ZoJsonSet, AnExistingMemberKeepsItsPlace) {
  EXPECT_EQ(With(R"({"a":1,"b":2,"c":3})", "b", "[]").ToString(), R"({"a":1,"b":[],"c":3})");
}

TEST(ZoJsonSet, ArraysAreIndexed) {
  EXPECT_EQ(With("[1,2]", "/0", "9").ToString(), "[9,2]");
  EXPECT_EQ(With("[1,2]", "/-", "9").ToString(), "[1,2,9]");
  EXPECT_EQ(With("[1,2]", "/2", "9").ToString(), "[1,2,9]");
  EXPECT_EQ(With("[]", "/-", "9").ToString(), "[9]");
  EXPECT_EQ(With("[]", "/0", "9").ToString(), "[9]");
  EXPECT_EQ(With("[1]", "/-/a/0", "9").ToString(), R"([1,{"a":{"0":9}}])");
  EXPECT_EQ(With("[1]", "/0/a", "9").ToString(), R"([{"a":9}])");
  EXPECT_EQ(With("[[]]", "/0/-", "9").ToString(), "[[9]]");
}

TEST(ZoJsonSet, WhatIsNoIndexOfAnArrayRaisesAndChangesNothing) {
  for (const char* key :
       {"/l/x", "/l/3", "/l/01", "/l/-1", "/l/", "/l/4294967295", "/l/4294967296/a", "/l/ 0", "/l/x/y"}) {
    ZoJson value(R"({"l":[1,2],"k":[]})");
    EXPECT_THROW(value.Set(key, 1), ZoJsonError) << key;
    EXPECT_EQ(value.ToString(), R"({"l":[1,2],"k":[]})") << key;
    const ZoJson copy = value;
    EXPECT_THROW(value.Set(key, 1), ZoJsonError) << key;
    EXPECT_EQ(value, copy);
  }
  ZoJson value(R"({"k":[]})");
  EXPECT_THROW(value.Set("/k/1", 1), ZoJsonError);
  try {
    value.Set("k/a", 1);
    FAIL() << "no error";
  } catch (const ZoJsonError& error) {
    EXPECT_STREQ(error.what(), "JSON value: cannot set \"/k/a\": \"a\" is no index of an array of 0");
  }
}

TEST(ZoJsonSet, ScalarsAndTextsMayBeGivenPlainly) {
  ZoJson value;
  value.Set("b", true);
  value.Set("i", -1);
  value.Set("u", 18446744073709551615ULL);
  value.Set("f", 2.0F);
  value.Set("t", "{\"not\":\"parsed\"}");
  value.Set(ZoJsonPointer("s"), std::string("x"));
  value.Set("j", ZoJson("{\"a\":1}"));
  EXPECT_EQ(
      value.ToString(),
      R"({"b":true,"i":-1,"u":18446744073709551615,"f":2.0,"t":"{\"not\":\"parsed\"}","s":"x","j":{"a":1}})");
}

TEST(ZoJsonSet, ALiteralNameIsSetByMember) {
  ZoJson value;
  value.Set(ZoJsonPointer::Member("/a/b"), 1);
  EXPECT_EQ(value.ToString(), R"({"/a/b":1})");
  EXPECT_TRUE(value.Remove(ZoJsonPointer::Member("/a/b")));
  EXPECT_EQ(value.ToString(), "{}");
}

TEST(ZoJsonSet, AValueMayBePutIntoItself) {
  ZoJson value(R"({"a":1})");
  value.Set("self", value);
  value.Set("/self/self", value);
  EXPECT_EQ(value.ToString(), R"({"a":1,"self":{"a":1,"self":{"a":1,"self":{"a":1}}}})");
}

TEST(ZoJsonSet, APartMayBePutAboveItself) {
  ZoJson value(R"({"a":{"b":{"c":[1,2]}}})");
  value.Set("/a", value.At("/a/b"));
  EXPECT_EQ(value.ToString(), R"({"a":{"c":[1,2]}})");
}

TEST(ZoJsonSet, TheKeyMayLieInTheDocument) {
  ZoJson value(R"({"a name that is long enough to be stored":1})");
  const ZoJsonIterator member(value);
  value.Set(member.Key(), 2);
  value.Remove(member.Key());
  value.Set(member.Key(), 3);
  EXPECT_EQ(value.At(member.Key()).Get<int>(), 3);
}

TEST(ZoJsonRemove, MembersAndElementsGo) {
  ZoJson value(R"({"a":1,"l":[1,2,3,4],"o":{"x":1,"y":2}})");
  EXPECT_TRUE(value.Remove("a"));
  EXPECT_TRUE(value.Remove("/l/1"));
  EXPECT_TRUE(value.Remove("/o/x"));
  EXPECT_EQ(value.ToString(), R"({"l":[1,3,4],"o":{"y":2}})");
  EXPECT_TRUE(value.Remove("/l/2"));
  EXPECT_TRUE(value.Remove("/l/0"));
  EXPECT_TRUE(value.Remove("/l/0"));
  EXPECT_TRUE(value.Remove("/o/y"));
  EXPECT_EQ(value.ToString(), R"({"l":[],"o":{}})");
}

TEST(ZoJsonRemove, WhatIsNotThereIsLeftAlone) {
  ZoJson value(R"({"a":1,"l":[1]})");
  for (const char* key : {"/b", "/a/x", "/l/1", "/l/-", "/l/x", "/", "/l/00"}) {
    EXPECT_FALSE(value.Remove(key)) << key;
  }
  EXPECT_EQ(value.ToString(), R"({"a":1,"l":[1]})");
  EXPECT_FALSE(ZoJson().Remove("/a"));
}

TEST(ZoJsonRemove, TheEmptyPointerLeavesNull) {
  ZoJson value(R"({"a":1})");
  EXPECT_TRUE(value.Remove(""));
  EXPECT_TRUE(value.IsNull());
  EXPECT_TRUE(value.Remove(ZoJsonPointer()));
}

TEST(ZoJsonRemove, ARemovedMemberSetAgainComesLast) {
  ZoJson value(R"({"a":1,"b":2})");
  value.Remove("a");
  value.Set("a", 3);
  EXPECT_EQ(value.ToString(), R"({"b":2,"a":3})");
}

TEST(ZoJsonSharing, ACopyNeverSeesALaterEdit) {
  ZoJson value(R"({"a":{"b":[1,2],"c":"x"},"d":1})");
  const ZoJson copy = value;
  const ZoJson part = value.At("/a");
  value.Set("/a/b/0", 9);
  value.Set("/a/new", 1);
  value.Remove("/a/c");
  value.Remove("/d");
  EXPECT_EQ(copy.ToString(), R"({"a":{"b":[1,2],"c":"x"},"d":1})");
  EXPECT_EQ(part.ToString(), R"({"b":[1,2],"c":"x"})");
  EXPECT_EQ(value.ToString(), R"({"a":{"b":[9,2],"new":1}})");
}

TEST(ZoJsonSharing, AnEditOfACopyLeavesTheOriginalAlone) {
  const ZoJson original(R"({"a":{"b":1}})");
  ZoJson copy = original;
  copy.Set("/a/b", 2);
  ZoJson part = original.At("/a");
  part.Set("/b", 3);
  EXPECT_EQ(original.ToString(), R"({"a":{"b":1}})");
  EXPECT_EQ(copy.ToString(), R"({"a":{"b":2}})");
  EXPECT_EQ(part.ToString(), R"({"b":3})");
}

TEST(ZoJsonSharing, OnePartInTwoPlacesIsEditedInOne) {
  ZoJson value;
  const ZoJson part(R"({"x":[1]})");
  value.Set("a", part);
  value.Set("b", part);
  value.Set("/a/x/-", 2);
  EXPECT_EQ(value.ToString(), R"({"a":{"x":[1,2]},"b":{"x":[1]}})");
}

}  // namespace
