// Finding a part without a copy of it.
#include <gtest/gtest.h>

#include <string>

#include "zovyrnsdk/json/zojson.h"

namespace {

class ZoJsonFind : public testing::Test {
 protected:
  const ZoJson* Find(std::string_view text) const { return document.Find(ZoJsonPointer(text)); }

  const ZoJson document{
      R"({"res":{"sub":5,"none":null},"list":[10,{"x":[null]},[]],"":{"":"deep"},"a/b":1,"m~n":2,"01":3})"};
};

TEST_F(ZoJsonFind, GivesThePartItself) {
  const ZoJson* const part = Find("/res");
  ASSERT_NE(part, nullptr);
  EXPECT_EQ(*part, document.At("/res"));
  EXPECT_EQ(Find("/res"), part);
  // And of the part its parts, all the way down.
  EXPECT_EQ(part->Find(ZoJsonPointer("/sub")), Find("/res/sub"));
  EXPECT_EQ(Find("/list/1")->Find(ZoJsonPointer("x/0")), Find("/list/1/x/0"));
}

TEST_F(ZoJsonFind, GivesTheWholeDocumentForTheEmptyPointer) {
  EXPECT_EQ(document.Find(ZoJsonPointer()), &document);
  const ZoJson null;
  EXPECT_EQ(null.Find(ZoJsonPointer()), &null);
}

TEST_F(ZoJsonFind, GivesNothingForWhatIsNotThere) {
  for (const char* text : {"/no", "/res/no", "/res/sub/no", "/res/none/no", "/res/sub/0", "/no/sub", "/res/",
                           "/RES", "/list/no", "/list/2/0", "///", "/1"}) {
    EXPECT_EQ(Find(text), nullptr) << text;
  }
  for (const char* json : {"null", "5", "\"text\"", "{}", "[]"}) {
    for (const char* text : {"/", "/0", "/a"}) {
      EXPECT_EQ(ZoJson(json).Find(ZoJsonPointer(text)), nullptr) << json << " " << text;
    }
  }
}

TEST_F(ZoJsonFind, ANullIsFound) {
  for (const char* text : {"/res/none", "/list/1/x/0"}) {
    ASSERT_NE(Find(text), nullptr) << text;
    EXPECT_TRUE(Find(text)->IsNull()) << text;
  }
}

TEST_F(ZoJsonFind, ElementsAreFoundByTheirIndexAlone) {
  ASSERT_NE(Find("/list/0"), nullptr);
  EXPECT_EQ(Find("/list/0")->Get<int>(), 10);
  ASSERT_NE(Find("/list/2"), nullptr);
  EXPECT_EQ(*Find("/list/2"), ZoJson::EmptyArray());
  for (const char* text :
       {"/list/3", "/list/-", "/list/-1", "/list/00", "/list/01", "/list/+1", "/list/1 ", "/list/",
        "/list/4294967295", "/list/4294967296", "/list/18446744073709551616", "/list/1.0"}) {
    EXPECT_EQ(Find(text), nullptr) << text;
  }
}

TEST_F(ZoJsonFind, EverySpellingFindsOneNode) {
  ASSERT_NE(Find("/res/sub"), nullptr);
  EXPECT_EQ(Find("res/sub"), Find("/res/sub"));
  EXPECT_EQ(document.Find(ZoJsonPointer::Combine(ZoJsonPointer::Member("res"), "sub")), Find("/res/sub"));
  ASSERT_NE(Find("/m~0n"), nullptr);
  EXPECT_EQ(Find("m~n"), Find("/m~0n"));
  EXPECT_EQ(document.Find(ZoJsonPointer::Member("m~n")), Find("/m~0n"));
  ASSERT_NE(Find("//"), nullptr);
  EXPECT_EQ(Find("//")->Get<std::string>(), "deep");
  EXPECT_EQ(document.Find(ZoJsonPointer::Member("")), Find("/"));
}

TEST_F(ZoJsonFind, MembersNameIsNotTakenApart) {
  const ZoJson* const member = document.Find(ZoJsonPointer::Member("a/b"));
  ASSERT_NE(member, nullptr);
  EXPECT_EQ(member->Get<int>(), 1);
  EXPECT_EQ(Find("/a~1b"), member);
  EXPECT_EQ(Find("/a/b"), nullptr);
  EXPECT_EQ(document.Find(ZoJsonPointer::Member("/res")), nullptr);
  EXPECT_EQ(document.Find(ZoJsonPointer::Member("res/sub")), nullptr);
}

TEST_F(ZoJsonFind, LeadingZerosAreNamesInObjects) {
  ASSERT_NE(Find("/01"), nullptr);
  EXPECT_EQ(Find("/01")->Get<int>(), 3);
}

TEST_F(ZoJsonFind, FindsWhatAtGivesAndHasKeyKnows) {
  for (const char* text : {"", "/", "//", "/res", "/res/sub", "/res/none", "/res/no", "/list", "/list/0",
                           "/list/1/x/0", "/list/3", "/a~1b", "/a/b", "/m~0n", "/01", "/1", "/res/sub/x"}) {
    SCOPED_TRACE(text);
    const ZoJson* const part = Find(text);
    EXPECT_EQ(part != nullptr, document.HasKey(text));
    if (part != nullptr) {
      EXPECT_EQ(*part, document.At(text));
    } else {
      EXPECT_THROW(document.At(text), ZoJsonError);
    }
  }
}

TEST_F(ZoJsonFind, SharedPartIsOneAndAnEditedOneIsAnother) {
  ZoJson copy = document;
  const ZoJsonPointer place("/res/sub");
  EXPECT_EQ(copy.Find(place), document.Find(place));
  copy.Set(place, 6);
  ASSERT_NE(copy.Find(place), nullptr);
  EXPECT_EQ(copy.Find(place)->Get<int>(), 6);
  EXPECT_EQ(document.Find(place)->Get<int>(), 5);
  EXPECT_TRUE(copy.Remove(place));
  EXPECT_EQ(copy.Find(place), nullptr);
}

TEST(PlaceOf, LeadsToTheMemberInDocumentsOfTheSameForm) {
  const ZoJson first(R"({"a":1,"b":{"c":2},"":3})");
  const ZoJson second(R"({"a":4,"b":5,"":6})");
  for (const char* name : {"a", "b", ""}) {
    const std::uint32_t place = first.PlaceOf(name);
    EXPECT_EQ(first.FindAt(place, name), first.Find(ZoJsonPointer::Member(name)));
    EXPECT_EQ(second.FindAt(place, name), second.Find(ZoJsonPointer::Member(name)));
    EXPECT_NE(second.FindAt(place, name), nullptr);
  }
}

TEST(PlaceOf, LeadsToEachOfManyMembers) {
  ZoJson wide = ZoJson::EmptyObject();
  for (int i = 0; i < 1000; ++i) {
    wide.Set("m" + std::to_string(i), i);
  }
  for (int i = 0; i < 1000; ++i) {
    const std::string name = "m" + std::to_string(i);
    const ZoJson* const found = wide.FindAt(wide.PlaceOf(name), name);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->Get<int>(), i);
  }
}

TEST(PlaceOf, IsNoneWhereThereIsNoSuchMember) {
  for (const char* text : {R"({"a":1})", "{}", "[1]", "[]", "1", "null", "\"b\""}) {
    EXPECT_EQ(ZoJson(text).PlaceOf("b"), ZoJson::noPlace) << text;
    for (const std::uint32_t place : {0U, 1U, ZoJson::noPlace}) {
      EXPECT_EQ(ZoJson(text).FindAt(place, "b"), nullptr) << text;
    }
  }
}

TEST(PlaceOf, LeadsToNothingWhereAnotherMemberIs) {
  ZoJson document(R"({"a":1,"b":2,"c":3,"d":4})");
  const std::uint32_t place = document.PlaceOf("b");
  EXPECT_EQ(ZoJson(R"({"a":1,"c":2,"b":3})").FindAt(place, "b"), nullptr);
  EXPECT_EQ(ZoJson(R"({"a":1,"bb":2})").FindAt(place, "b"), nullptr);
  EXPECT_EQ(ZoJson(R"({"a":1})").FindAt(place, "b"), nullptr);
  document.Remove("/b");
  EXPECT_EQ(document.FindAt(place, "b"), nullptr);
  EXPECT_EQ(document.FindAt(place, ""), nullptr);
  EXPECT_EQ(document.PlaceOf("b"), ZoJson::noPlace);
}

}  // namespace
