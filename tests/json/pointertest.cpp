#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonpointer.h"

namespace {

std::vector<std::string> Names(std::string_view text) {
  std::vector<std::string> names;
  const ZoJsonPointer pointer(text);
  for (const auto& segment : pointer.Segments()) {
    names.push_back(segment.name);
  }
  return names;
}

using List = std::vector<std::string>;

TEST(ZoJsonPointer, TheEmptyTextIsTheWholeDocument) {
  EXPECT_TRUE(ZoJsonPointer("").Empty());
  EXPECT_TRUE(ZoJsonPointer().Empty());
  EXPECT_EQ(ZoJsonPointer("").ToString(), "");
}

TEST(ZoJsonPointer, SegmentsAreSplitAtSlashes) {
  EXPECT_EQ(Names("/a/b"), (List{"a", "b"}));
  EXPECT_EQ(Names("/"), (List{""}));
  EXPECT_EQ(Names("//"), (List{"", ""}));
  EXPECT_EQ(Names("/a/"), (List{"a", ""}));
  EXPECT_EQ(Names("//a//b/"), (List{"", "a", "", "b", ""}));
  EXPECT_EQ(Names("/a b/c"), (List{"a b", "c"}));
  EXPECT_EQ(Names("/0/-/01"), (List{"0", "-", "01"}));
}

TEST(ZoJsonPointer, ALeadingSlashMayBeLeftOut) {
  EXPECT_EQ(Names("a/b"), (List{"a", "b"}));
  EXPECT_EQ(Names("a"), (List{"a"}));
  EXPECT_EQ(Names("a/"), (List{"a", ""}));
  EXPECT_EQ(ZoJsonPointer("res/sub"), ZoJsonPointer("/res/sub"));
  EXPECT_EQ(ZoJsonPointer("res/sub").ToString(), "/res/sub");
}

TEST(ZoJsonPointer, TildesAreEscapesOrStandForThemselves) {
  EXPECT_EQ(Names("/a~1b/~0"), (List{"a/b", "~"}));
  EXPECT_EQ(Names("/~01"), (List{"~1"}));
  EXPECT_EQ(Names("/~00/~10"), (List{"~0", "/0"}));
  EXPECT_EQ(Names("/~2/~/~a~"), (List{"~2", "~", "~a~"}));
  EXPECT_EQ(Names("~"), (List{"~"}));
  EXPECT_EQ(Names("~~1"), (List{"~/"}));
  EXPECT_EQ(Names("~/1"), (List{"~", "1"}));
}

TEST(ZoJsonPointer, ToStringGivesTheCanonicalText) {
  EXPECT_EQ(ZoJsonPointer("a~2/~").ToString(), "/a~02/~0");
  EXPECT_EQ(ZoJsonPointer("/a~1b/~0").ToString(), "/a~1b/~0");
  EXPECT_EQ(ZoJsonPointer("/").ToString(), "/");
}

TEST(ZoJsonPointer, AMemberIsOneSegmentWhateverItHolds) {
  EXPECT_EQ(ZoJsonPointer::Member("/a/b~0").Segments().size(), 1U);
  EXPECT_EQ(ZoJsonPointer::Member("/a/b~0").ToString(), "/~1a~1b~00");
  EXPECT_EQ(ZoJsonPointer::Member("").ToString(), "/");
  EXPECT_EQ(ZoJsonPointer(ZoJsonPointer::Member("/a~").ToString()), ZoJsonPointer::Member("/a~"));
}

TEST(ZoJsonPointer, CombinePutsOneBelowTheOther) {
  const ZoJsonPointer above("/a/b");
  EXPECT_EQ(ZoJsonPointer::Combine(above, ZoJsonPointer("/c/d")).ToString(), "/a/b/c/d");
  EXPECT_EQ(ZoJsonPointer::Combine(above, "c~1d").ToString(), "/a/b/c~1d");
  EXPECT_EQ(ZoJsonPointer::Combine(above, ""), above);
  EXPECT_EQ(ZoJsonPointer::Combine(ZoJsonPointer(), above), above);
  EXPECT_EQ(ZoJsonPointer::Combine(above, "/").ToString(), "/a/b/");
  EXPECT_EQ(ZoJsonPointer::Combine(above, above).Segments().size(), 4U);
}

TEST(ZoJsonPointer, PointersAreEqualWhenTheirNamesAre) {
  EXPECT_EQ(ZoJsonPointer("/a/b"), ZoJsonPointer("a/b"));
  EXPECT_NE(ZoJsonPointer("/a/b"), ZoJsonPointer("/a"));
  EXPECT_NE(ZoJsonPointer("/a"), ZoJsonPointer("/b"));
  EXPECT_NE(ZoJsonPointer(""), ZoJsonPointer("/"));
}

// Other files' static pointers may be made before anything here ran.
const ZoJsonPointer madeBeforeMain("/a/long enough to be hashed in pieces");

TEST(ZoJsonPointer, OneMadeBeforeMainFindsWhatOneMadeLaterDoes) {
  ZoJson value;
  value.Set("/a/long enough to be hashed in pieces", 1);
  EXPECT_EQ(value.At(madeBeforeMain).Get<int>(), 1);
  EXPECT_EQ(madeBeforeMain, ZoJsonPointer("/a/long enough to be hashed in pieces"));
}

}  // namespace
