#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "zovyrnsdk/json/zojson.h"

namespace {

TEST(ZoJsonCompare, MembersCompareWithoutRegardToOrder) {
  EXPECT_EQ(ZoJson(R"({"a":1,"b":{"c":[1,2],"d":null}})"), ZoJson(R"({"b":{"d":null,"c":[1,2]},"a":1})"));
  EXPECT_NE(ZoJson(R"({"a":1,"b":2})"), ZoJson(R"({"a":2,"b":1})"));
  EXPECT_NE(ZoJson(R"({"a":1})"), ZoJson(R"({"a":1,"b":2})"));
  EXPECT_NE(ZoJson(R"({"a":1})"), ZoJson(R"({"b":1})"));
}

TEST(ZoJsonCompare, ElementsCompareInOrder) {
  EXPECT_EQ(ZoJson("[1,[2,3]]"), ZoJson("[1,[2,3]]"));
  EXPECT_NE(ZoJson("[1,2]"), ZoJson("[2,1]"));
  EXPECT_NE(ZoJson("[1,2]"), ZoJson("[1]"));
  EXPECT_NE(ZoJson("[[1]]"), ZoJson("[[2]]"));
}

TEST(ZoJsonCompare, KindsDiffer) {
  const char* all[] = {"null", "false", "0", "0.0", "\"\"", "[]", "{}", "18446744073709551615"};
  for (const char* a : all) {
    for (const char* b : all) {
      EXPECT_EQ(ZoJson(a) == ZoJson(b), a == b) << a << " " << b;
    }
  }
  EXPECT_NE(ZoJson("1"), ZoJson("1.0"));
}

TEST(ZoJsonCompare, IntegersCompareByValueHoweverMade) {
  EXPECT_EQ(ZoJson::Of(5U), ZoJson::Of(5));
  EXPECT_EQ(ZoJson::Of(18446744073709551615ULL), ZoJson("18446744073709551615"));
  EXPECT_NE(ZoJson::Of(18446744073709551615ULL), ZoJson::Of(-1));
}

TEST(ZoJsonCompare, TextsCompareWhetherShortOrLong) {
  EXPECT_EQ(ZoJson::Of("short"), ZoJson("\"short\""));
  EXPECT_EQ(ZoJson::Of("a text that is long enough for a node"),
            ZoJson("\"a text that is long enough for a node\""));
  EXPECT_NE(ZoJson::Of("a text that is long enough for a node"),
            ZoJson::Of("A text that is long enough for a node"));
  EXPECT_NE(ZoJson::Of("fourteen bytes"), ZoJson::Of("fourteen bytes!"));
}

TEST(ZoJsonCompare, FloatsCompareAsInCppButNanEqualsItself) {
  EXPECT_EQ(ZoJson::Of(0.0), ZoJson::Of(-0.0));
  EXPECT_EQ(ZoJson::Of(std::nan("")), ZoJson::Of(std::nan("")));
  EXPECT_NE(ZoJson::Of(std::nan("")), ZoJson::Of(1.0));
  EXPECT_NE(ZoJson::Of(0.1), ZoJson::Of(0.2));
  ZoJson value;
  value.Set("a", std::numeric_limits<double>::quiet_NaN());
  const ZoJson copy = value;
  EXPECT_EQ(copy, value);
}

TEST(ZoJsonCompare, RemovedMembersDoNotCount) {
  ZoJson value(R"({"a":1,"b":2,"c":3})");
  value.Remove("b");
  EXPECT_EQ(value, ZoJson(R"({"c":3,"a":1})"));
  EXPECT_EQ(ZoJson(R"({"c":3,"a":1})"), value);
}

}  // namespace
