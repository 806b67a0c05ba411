#include "tools/zosensor/merge.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace ZoSensor {
namespace {

WriteRules Everything() {
  WriteRules rules;
  rules.everything = true;
  return rules;
}

// The text of the result, or the status of the refusal.
std::string Outcome(std::string_view content, std::string_view patch,
                    const WriteRules& rules = Everything()) {
  const auto merged = Merge(ZoJson::ParseString(content), ZoJson::ParseString(patch), rules);
  if (const auto* refusal = std::get_if<Refusal>(&merged)) {
    EXPECT_FALSE(refusal->reason.empty());
    return std::to_string(static_cast<int>(refusal->status));
  }
  return std::get<ZoJson>(merged).ToString();
}

TEST(Merge, ObjectsMergeMemberByMember) {
  EXPECT_EQ(Outcome(R"({"a":1,"b":{"c":2,"d":3}})", R"({"b":{"d":4}})"), R"({"a":1,"b":{"c":2,"d":4}})");
  EXPECT_EQ(Outcome(R"({"a":1})", "{}"), R"({"a":1})");
}

TEST(Merge, MissingMemberIsNotFound) {
  EXPECT_EQ(Outcome(R"({"a":1})", R"({"b":1})"), "-404");
  EXPECT_EQ(Outcome(R"({"a":{"b":1}})", R"({"a":{"c":1}})"), "-404");
}

TEST(Merge, ObjectOfIndicesReplacesElements) {
  EXPECT_EQ(Outcome(R"({"l":[1,2,3]})", R"({"l":{"0":7,"2":9}})"), R"({"l":[7,2,9]})");
  EXPECT_EQ(Outcome(R"({"l":[{"a":1,"b":2}]})", R"({"l":{"0":{"a":5}}})"), R"({"l":[{"a":5,"b":2}]})");
}

TEST(Merge, NameThatIsNoElementIsNotFound) {
  for (const char* name : {"3", "-1", "01", "x", "", "-", "99999999999999999999999", "1.0"}) {
    EXPECT_EQ(Outcome("[1,2,3]", std::string("{\"") + name + "\":1}"), "-404") << name;
  }
}

TEST(Merge, ArrayReplacesArrayOfAnyLength) {
  EXPECT_EQ(Outcome("[1,2,3]", "[]"), "[]");
  EXPECT_EQ(Outcome("[]", R"(["a",null])"), R"(["a",null])");
}

TEST(Merge, ScalarReplacesScalarOfItsKind) {
  EXPECT_EQ(Outcome("true", "false"), "false");
  EXPECT_EQ(Outcome(R"("a")", R"("b")"), R"("b")");
  EXPECT_EQ(Outcome("1", "2.5"), "2.5");
  EXPECT_EQ(Outcome("1.5", "18446744073709551615"), "18446744073709551615");
}

TEST(Merge, AnythingReplacesNull) {
  for (const char* value : {"1", "true", R"("t")", "[1]", R"({"a":1})", "null"}) {
    EXPECT_EQ(Outcome("null", value), value);
  }
}

TEST(Merge, AnotherKindIsRefused) {
  const std::string_view values[] = {"1", "true", R"("t")", "[1]", R"({"a":1})"};
  for (const auto content : values) {
    for (const auto patch : values) {
      const bool indices = content == "[1]" && patch == R"({"a":1})";  // read as the name of an element
      if (content != patch && !indices) {
        EXPECT_EQ(Outcome(content, patch), "-422") << content << " <- " << patch;
      }
    }
    EXPECT_EQ(Outcome(content, "null"), "-422") << content;
  }
}

TEST(Merge, IsAllOrNothing) {
  const ZoJson content = ZoJson::ParseString(R"({"a":1,"b":"t"})");
  const auto merged = Merge(content, ZoJson::ParseString(R"({"a":2,"b":3})"), Everything());
  ASSERT_TRUE(std::holds_alternative<Refusal>(merged));
  EXPECT_EQ(content.ToString(), R"({"a":1,"b":"t"})");
}

TEST(Merge, DeclaredIntegersTakeNoFraction) {
  WriteRules rules = Everything();
  rules.integers = {ZoJsonPointer("/n"), ZoJsonPointer("/list"), ZoJsonPointer("/o/1/k")};
  EXPECT_EQ(Outcome(R"({"n":1})", R"({"n":1.5})", rules), "-422");
  EXPECT_EQ(Outcome(R"({"n":1})", R"({"n":1e300})", rules), "-422");
  EXPECT_EQ(Outcome(R"({"n":1})", R"({"n":7})", rules), R"({"n":7})");
  EXPECT_EQ(Outcome(R"({"n":1})", R"({"n":-4.0})", rules), R"({"n":-4})");
  EXPECT_EQ(Outcome(R"({"n":1})", R"({"n":18446744073709551615})", rules), R"({"n":18446744073709551615})");
  EXPECT_EQ(Outcome(R"({"list":[1,2]})", R"({"list":[1,2.5]})", rules), "-422");
  EXPECT_EQ(Outcome(R"({"list":[1,2]})", R"({"list":{"1":2.5}})", rules), "-422");
  EXPECT_EQ(Outcome(R"({"list":[1,2]})", R"({"list":[4,5.0,6]})", rules), R"({"list":[4,5,6]})");
  EXPECT_EQ(Outcome(R"({"o":[{"k":1},{"k":1}]})", R"({"o":[{"k":1.5},{"k":1.5}]})", rules), "-422");
  EXPECT_EQ(Outcome(R"({"o":[{"k":1},{"k":1}]})", R"({"o":[{"k":1.5},{"k":1}]})", rules),
            R"({"o":[{"k":1.5},{"k":1}]})");
  EXPECT_EQ(Outcome(R"({"m":1})", R"({"m":1.5})", rules), R"({"m":1.5})");
}

TEST(Merge, IntegersAreFoundAnywhereInWhatIsReplaced) {
  WriteRules rules = Everything();
  rules.integers = {ZoJsonPointer("/all"), ZoJsonPointer("/part/1/k")};
  const std::string_view content = R"({"all":null,"part":null})";
  EXPECT_EQ(Outcome(content, R"({"all":[[1.0,"1.0"],{"a":{"b":[2.0]}},3]})", rules),
            R"({"all":[[1,"1.0"],{"a":{"b":[2]}},3],"part":null})");
  EXPECT_EQ(Outcome(content, R"({"part":[{"k":1.5},{"k":2.0,"l":1.5}]})", rules),
            R"({"all":null,"part":[{"k":1.5},{"k":2,"l":1.5}]})");
  const auto merged = Merge(ZoJson::ParseString(content),
                            ZoJson::ParseString(R"({"all":[[1.0,"1.0"],{"a":{"b":[2.0,0.5]}},3]})"), rules);
  ASSERT_TRUE(std::holds_alternative<Refusal>(merged));
  EXPECT_EQ(std::get<Refusal>(merged).reason, R"("/all/1/a/b/1" holds an integer, 0.5 is none)");
}

TEST(Merge, ReadOnlyResourceTakesNothing) {
  EXPECT_EQ(Outcome(R"({"a":1})", R"({"a":2})", WriteRules()), "-405");
  EXPECT_EQ(Outcome(R"({"a":1})", "{}", WriteRules()), "-405");
}

TEST(Merge, OnlyDeclaredMembersAreWritable) {
  WriteRules rules;
  rules.writable = {ZoJsonPointer("/a/b")};
  EXPECT_EQ(Outcome(R"({"a":{"b":1,"c":1}})", R"({"a":{"b":2}})", rules), R"({"a":{"b":2,"c":1}})");
  EXPECT_EQ(Outcome(R"({"a":{"b":1,"c":1}})", R"({"a":{"c":2}})", rules), "-405");
  EXPECT_EQ(Outcome(R"({"a":{"b":1,"c":1}})", R"({"a":{"b":2,"c":2}})", rules), "-405");
  EXPECT_EQ(Outcome(R"({"a":{"b":{"x":1}}})", R"({"a":{"b":{"x":2}}})", rules), R"({"a":{"b":{"x":2}}})");
}

TEST(Merge, DrivenMembersAreReadOnlyAlsoInsideAReplacedArray) {
  WriteRules rules = Everything();
  rules.driven = {ZoJsonPointer("/speed"), ZoJsonPointer("/list/0")};
  EXPECT_EQ(Outcome(R"({"speed":1,"limit":2})", R"({"speed":3})", rules), "-405");
  EXPECT_EQ(Outcome(R"({"speed":1,"limit":2})", R"({"limit":3})", rules), R"({"speed":1,"limit":3})");
  EXPECT_EQ(Outcome(R"({"list":[1,2]})", R"({"list":[]})", rules), "-405");
  EXPECT_EQ(Outcome(R"({"list":[1,2]})", R"({"list":{"1":5}})", rules), R"({"list":[1,5]})");
}

TEST(Merge, NamesWithSlashesAndTildesAreNames) {
  EXPECT_EQ(Outcome(R"({"a/b":1,"a":{"b":2}})", R"({"a/b":3})"), R"({"a/b":3,"a":{"b":2}})");
  EXPECT_EQ(Outcome(R"({"~0":1,"":2})", R"({"~0":3,"":4})"), R"({"~0":3,"":4})");
}

}  // namespace
}  // namespace ZoSensor
