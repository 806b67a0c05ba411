#include "zovyrnsdk/json/zojsonshapes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "zovyrnsdk/json/zojson.h"

namespace {

constexpr std::size_t plenty = std::size_t{1} << 30;

// The object {"PREFIX0":0,…}.
std::string Wide(const std::string& prefix, int members) {
  std::string text;
  for (int i = 0; i < members; ++i) {
    text += (i == 0 ? "{\"" : ",\"") + prefix + std::to_string(i) + "\":" + std::to_string(i);
  }
  return text + '}';
}

class ZoJsonShaped : public testing::Test {
 protected:
  ZoJson Read(const std::string& text) {
    std::size_t memory = plenty;
    return ZoJson::ParseString(text, memory, shapes);
  }

  ZoJsonShapes shapes;
};

TEST_F(ZoJsonShaped, NamesAreRememberedFromTheSecondTimeOn) {
  Read(R"({"a":1,"b":2,"c":3})");
  EXPECT_EQ(shapes.Bytes(), 0U);
  Read(R"({"a":4,"b":5,"c":6})");
  EXPECT_GT(shapes.Bytes(), 0U);
}

TEST_F(ZoJsonShaped, ValuesAreNot) {
  for (const char* text :
       {R"({"a":1,"b":[1],"c":{"d":"long enough for memory of its own"}})", R"({"a":null,"b":"x","c":2.5})",
        R"({"a":{},"b":[],"c":false})", R"({"a":[{"a":1,"b":2,"c":3}],"b":7,"c":18446744073709551615})"}) {
    EXPECT_EQ(Read(text).ToString(), text);
  }
}

TEST_F(ZoJsonShaped, NamesThatOnlyReadTheSameInOnePieceAreToldApart) {
  for (const char* text : {R"({"ab":1,"c":2,"d":3})", R"({"a":1,"bc":2,"d":3})", R"({"a":1,"b":2,"cd":3})",
                           R"({"abcd":1,"":2,"e":3})", R"({"":1,"abcd":2,"e":3})"}) {
    for (int time = 0; time < 3; ++time) {
      EXPECT_EQ(Read(text).ToString(), text);
    }
  }
}

TEST_F(ZoJsonShaped, OfANameThatStandsTwiceTheLastValueWinsEveryTime) {
  for (int time = 0; time < 4; ++time) {
    EXPECT_EQ(Read(R"({"a":1,"b":2,"a":3,"c":4})").ToString(), R"({"a":3,"b":2,"c":4})");
  }
}

TEST_F(ZoJsonShaped, MembersAreFoundAndEditedAsEver) {
  for (const int members : {3, 8, 9, 100}) {
    const std::string text = Wide("name", members);
    for (int time = 0; time < 4; ++time) {
      ZoJson document = Read(text);
      for (int i = 0; i < members; ++i) {
        EXPECT_EQ(document.At("name" + std::to_string(i)).Get<int>(), i);
      }
      EXPECT_FALSE(document.HasKey("name"));
      document.Set("name1", ZoJson::Of(-1));
      document.Set("more", ZoJson::Of("added"));
      document.Remove("name0");
      EXPECT_FALSE(document.HasKey("name0"));
      EXPECT_EQ(document.At("name1").Get<int>(), -1);
      EXPECT_EQ(document.At("more").Get<std::string>(), "added");
    }
    EXPECT_EQ(Read(text).ToString(), text);  // nobody's edits reached what is remembered
  }
}

TEST_F(ZoJsonShaped, WhatIsRememberedIsBounded) {
  std::size_t most = 0;
  for (int kind = 0; kind < 40; ++kind) {
    const std::string text = Wide("kind" + std::to_string(kind) + "member", 5000);
    for (int time = 0; time < 3; ++time) {
      EXPECT_EQ(Read(text).ToString(), text);
      ASSERT_LE(shapes.Bytes(), ZoJsonShapes::bytesMax);
      most = std::max(most, shapes.Bytes());
    }
  }
  EXPECT_GT(most, ZoJsonShapes::bytesMax / 2);
  const std::string huge = Wide("one of very many members ", 150000);
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(Read(huge).ToString(), huge);
    ASSERT_LE(shapes.Bytes(), ZoJsonShapes::bytesMax);
  }
}

// All of one remainder, which is what a process may happen to draw for the kinds of its sensor.
TEST_F(ZoJsonShaped, FourKindsAreRememberedWhateverTheirHashes) {
  const ZoJson object(R"({"a":1,"b":2,"c":3})");
  const auto hash = [](std::uint64_t kind) { return kind * 64 + 5; };
  for (const std::uint64_t kind : {1U, 2U, 3U, 4U}) {
    shapes.Note(hash(kind), object);
    EXPECT_EQ(shapes.Find(hash(kind)), nullptr);
  }
  for (const std::uint64_t kind : {1U, 2U, 3U, 4U}) {
    shapes.Note(hash(kind), object);
  }
  const std::size_t ofFour = shapes.Bytes();
  for (const std::uint64_t kind : {3U, 2U, 4U, 1U}) {
    EXPECT_NE(shapes.Find(hash(kind)), nullptr) << kind;
  }
  shapes.Note(hash(5), object);
  EXPECT_EQ(shapes.Find(hash(3)), nullptr);  // the one that was not seen for longest
  EXPECT_EQ(shapes.Bytes(), ofFour / 4 * 3);
  shapes.Note(hash(5), object);
  EXPECT_EQ(shapes.Bytes(), ofFour);
  for (const std::uint64_t kind : {1U, 2U, 4U, 5U}) {
    EXPECT_NE(shapes.Find(hash(kind)), nullptr) << kind;
  }
}

TEST_F(ZoJsonShaped, ObjectsOfOneShapeHaveTheSameNamesAtTheSamePlaces) {
  const std::string text = R"({"a":1,"b":2,"c":3})";
  EXPECT_EQ(ZoJson(text).Shape(), 0U);
  EXPECT_EQ(Read(text).Shape(), 0U);
  EXPECT_EQ(Read(text).Shape(), 0U);
  const ZoJson first = Read(text);
  const ZoJson second = Read(R"({ "a" : [], "b" : "x", "c" : 9 })");
  EXPECT_NE(first.Shape(), 0U);
  EXPECT_EQ(second.Shape(), first.Shape());
  EXPECT_EQ(second.ElementAt(first.PlaceOf("c"))->Get<int>(), 9);
  EXPECT_EQ(second.ElementAt(3), nullptr);
  EXPECT_EQ(second.ElementAt(ZoJson::noPlace), nullptr);
  EXPECT_EQ(ZoJson("7").ElementAt(0), nullptr);
  EXPECT_EQ(ZoJson("[7]").ElementAt(0), nullptr);
  EXPECT_EQ(ZoJson("[7]").Shape(), 0U);
}

TEST_F(ZoJsonShaped, ShapesAreDistinctAlsoOfOthersThatRemember) {
  const auto shapeOf = [](const std::string& text) {
    ZoJsonShapes own;
    std::uint64_t shape = 0;
    for (int time = 0; time < 3; ++time) {
      std::size_t memory = plenty;
      shape = ZoJson::ParseString(text, memory, own).Shape();
    }
    return shape;
  };
  const std::uint64_t first = shapeOf(R"({"a":1,"b":2,"c":3})");
  const std::uint64_t second = shapeOf(R"({"c":1,"b":2,"a":3})");
  EXPECT_NE(first, 0U);
  EXPECT_NE(second, 0U);
  EXPECT_NE(first, second);
}

TEST_F(ZoJsonShaped, AShapeLastsUntilNamesComeOrGo) {
  const std::string text = R"({"a":1,"b":2,"c":3,"d":4})";
  Read(text);
  Read(text);
  ZoJson document = Read(text);
  const std::uint64_t shape = document.Shape();
  const ZoJson copy = document;
  EXPECT_EQ(copy.Shape(), shape);
  document.Set("a", ZoJson::Of(7));  // on a document of its own from here on
  EXPECT_EQ(document.Shape(), 0U);
  EXPECT_EQ(document.ElementAt(0)->Get<int>(), 7);
  ZoJson edited = Read(text);
  edited.Set("a", ZoJson::Of(7));
  EXPECT_EQ(edited.Shape(), shape);
  EXPECT_EQ(edited.ElementAt(0)->Get<int>(), 7);
  ZoJson shorter = Read(text);
  shorter.Remove("b");
  EXPECT_EQ(shorter.Shape(), 0U);
  EXPECT_EQ(shorter.ElementAt(1), nullptr);
  ZoJson longer = Read(text);
  longer.Set("e", ZoJson::Of(5));
  EXPECT_EQ(longer.Shape(), 0U);
  EXPECT_EQ(copy.Shape(), shape);
}

// One kind takes more than half of what may be remembered, so each drives the other out.
TEST_F(ZoJsonShaped, KindThatDrivesOthersOutIsRememberedItself) {
  const std::string one = Wide("of the first kind ", 80000);
  const std::string other = Wide("of the second kind ", 80000);
  for (const std::string* text : {&one, &other, &one}) {
    Read(*text);
    Read(*text);
    EXPECT_GT(shapes.Bytes(), ZoJsonShapes::bytesMax / 2);
    EXPECT_NE(Read(*text).Shape(), 0U);
  }
}

TEST_F(ZoJsonShaped, TheLimitOfMemoryIsTheSame) {
  const std::string text = Wide("name", 50);
  std::size_t held = plenty;
  ZoJson::ParseString(text, held);
  for (int time = 0; time < 3; ++time) {
    std::size_t memory = plenty;
    ZoJson::ParseString(text, memory, shapes);
    EXPECT_EQ(memory, held);
    std::size_t tight = held / 2;
    EXPECT_THROW(ZoJson::ParseString(text, tight, shapes), ZoJsonTooLarge);
  }
}

}  // namespace
