#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "zovyrnsdk/json/zojson.h"

namespace {

constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t greatestNatural = std::numeric_limits<std::uint64_t>::max();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

TEST(ZoJsonKinds, ADefaultValueIsNullAndEmpty) {
  const ZoJson value;
  EXPECT_TRUE(value.IsNull());
  EXPECT_TRUE(value.Empty());
  EXPECT_TRUE(value.IsPrimitive());
  EXPECT_EQ(value.Size(), 0U);
  EXPECT_EQ(value.GetKind(), ZoJson::Kind::Null);
}

TEST(ZoJsonKinds, AnIntegerThatIsNotNegativeIsIntegerAndUnsigned) {
  for (const char* text : {"0", "5", "9223372036854775807"}) {
    const ZoJson value(text);
    EXPECT_TRUE(value.IsInteger()) << text;
    EXPECT_TRUE(value.IsUnsigned()) << text;
    EXPECT_FALSE(value.IsFloat()) << text;
    EXPECT_TRUE(value.IsNumber()) << text;
    EXPECT_EQ(value.GetKind(), ZoJson::Kind::Integer) << text;
  }
}

TEST(ZoJsonKinds, ANegativeIntegerIsNotUnsigned) {
  for (const char* text : {"-1", "-9223372036854775808"}) {
    EXPECT_TRUE(ZoJson(text).IsInteger()) << text;
    EXPECT_FALSE(ZoJson(text).IsUnsigned()) << text;
  }
}

TEST(ZoJsonKinds, AnIntegerBeyondSigned64BitsIsUnsignedOnly) {
  for (const char* text : {"9223372036854775808", "18446744073709551615"}) {
    EXPECT_FALSE(ZoJson(text).IsInteger()) << text;
    EXPECT_TRUE(ZoJson(text).IsUnsigned()) << text;
    EXPECT_TRUE(ZoJson(text).IsNumber()) << text;
    EXPECT_EQ(ZoJson(text).GetKind(), ZoJson::Kind::Unsigned) << text;
  }
}

TEST(ZoJsonKinds, AnIntegerBeyond64BitsIsAFloat) {
  for (const char* text : {"18446744073709551616", "-9223372036854775809", "100000000000000000000000000"}) {
    EXPECT_TRUE(ZoJson(text).IsFloat()) << text;
    EXPECT_FALSE(ZoJson(text).IsInteger()) << text;
    EXPECT_FALSE(ZoJson(text).IsUnsigned()) << text;
  }
  EXPECT_EQ(ZoJson("18446744073709551616").Get<double>(), 18446744073709551616.0);
}

TEST(ZoJsonKinds, AFractionOrAnExponentMakesAFloat) {
  for (const char* text : {"1.0", "1e3", "1E0", "-0.0", "0e0", "-0"}) {
    EXPECT_TRUE(ZoJson(text).IsFloat()) << text;
    EXPECT_FALSE(ZoJson(text).IsInteger()) << text;
  }
}

TEST(ZoJsonKinds, OnlyNullAndContainersWithoutMembersAreEmpty) {
  for (const char* text : {"null", "{}", "[]"}) {
    EXPECT_TRUE(ZoJson(text).Empty()) << text;
    EXPECT_EQ(ZoJson(text).Size(), 0U) << text;
  }
  for (const char* text : {"0", "false", "\"\"", "[null]", "{\"\":null}"}) {
    EXPECT_FALSE(ZoJson(text).Empty()) << text;
  }
  EXPECT_TRUE(ZoJson::EmptyArray().IsArray());
  EXPECT_TRUE(ZoJson::EmptyArray().Empty());
  EXPECT_TRUE(ZoJson::EmptyObject().IsObject());
  EXPECT_TRUE(ZoJson::EmptyObject().Empty());
}

TEST(ZoJsonKinds, EverythingButArraysAndObjectsIsPrimitive) {
  for (const char* text :
       {"null", "true", "1", "1.5", "18446744073709551615", "\"a\"", "\"long enough for a node\""}) {
    EXPECT_TRUE(ZoJson(text).IsPrimitive()) << text;
    EXPECT_EQ(ZoJson(text).Size(), 0U) << text;
  }
  for (const char* text : {"[]", "{}", "[1]", "{\"a\":1}"}) {
    EXPECT_FALSE(ZoJson(text).IsPrimitive()) << text;
  }
}

TEST(ZoJsonKinds, SizeCountsMembersAndElements) {
  EXPECT_EQ(ZoJson("[1,2,3]").Size(), 3U);
  EXPECT_EQ(ZoJson(R"({"a":1,"b":[1,2,3]})").Size(), 2U);
}

TEST(ZoJsonKinds, OfTakesEveryScalar) {
  EXPECT_EQ(ZoJson::Of(true).GetKind(), ZoJson::Kind::Boolean);
  EXPECT_EQ(ZoJson::Of(-3).GetKind(), ZoJson::Kind::Integer);
  EXPECT_EQ(ZoJson::Of(3U).GetKind(), ZoJson::Kind::Integer);
  EXPECT_EQ(ZoJson::Of(greatestNatural).GetKind(), ZoJson::Kind::Unsigned);
  EXPECT_EQ(ZoJson::Of(std::uint64_t{1} << 63U).GetKind(), ZoJson::Kind::Unsigned);
  EXPECT_EQ(ZoJson::Of((std::uint64_t{1} << 63U) - 1).GetKind(), ZoJson::Kind::Integer);
  EXPECT_EQ(ZoJson::Of(1.0F).GetKind(), ZoJson::Kind::Float);
  EXPECT_EQ(ZoJson::Of("text").GetKind(), ZoJson::Kind::String);
  EXPECT_EQ(ZoJson::Of(std::string("text")).Get<std::string>(), "text");
  EXPECT_EQ(ZoJson::Of(std::string_view("text")).Get<std::string>(), "text");
  EXPECT_EQ(ZoJson::Of("{\"not\":\"parsed\"}").Get<std::string>(), "{\"not\":\"parsed\"}");
}

TEST(ZoJsonKinds, TextsOfEveryLengthComeBack) {
  // Short texts are kept in the value itself, long ones in a node.
  for (std::size_t size = 0; size < 40; ++size) {
    const std::string text(size, 'x');
    const ZoJson value = ZoJson::Of(text);
    const ZoJson copy = value;
    EXPECT_EQ(copy.Get<std::string>(), text);
    EXPECT_TRUE(copy.IsString());
  }
  EXPECT_EQ(ZoJson::Of(std::string("a\0b", 3)).Get<std::string>(), std::string("a\0b", 3));
}

TEST(ZoJsonKinds, AMovedFromValueIsNull) {
  ZoJson from("[1,2]");
  const ZoJson to(std::move(from));
  EXPECT_EQ(to.ToString(), "[1,2]");
  EXPECT_TRUE(from.IsNull());  // NOLINT(bugprone-use-after-move): what it is now is the question
  from = ZoJson("{\"a\":1}");
  EXPECT_EQ(from.ToString(), "{\"a\":1}");
}

TEST(ZoJsonKinds, AssigningAValueToItselfKeepsIt) {
  ZoJson value("[1,[2,3]]");
  const ZoJson& same = value;
  value = same;
  EXPECT_EQ(value.ToString(), "[1,[2,3]]");
}

TEST(ZoJsonKinds, AValueMayBeReplacedByItsOwnPart) {
  ZoJson value(R"({"a":{"b":["a text that is long enough for a node"]}})");
  value = value.At("/a/b/0");
  EXPECT_EQ(value.Get<std::string>(), "a text that is long enough for a node");
}

TEST(ZoJsonGet, IntegersSaturate) {
  EXPECT_EQ(ZoJson::Of(greatest).Get<int>(), std::numeric_limits<int>::max());
  EXPECT_EQ(ZoJson::Of(least).Get<int>(), std::numeric_limits<int>::min());
  EXPECT_EQ(ZoJson::Of(std::int64_t{2147483647}).Get<int>(), 2147483647);
  EXPECT_EQ(ZoJson::Of(std::int64_t{2147483648}).Get<int>(), 2147483647);
  EXPECT_EQ(ZoJson::Of(-1).Get<unsigned>(), 0U);
  EXPECT_EQ(ZoJson::Of(-1).Get<unsigned long long>(), 0U);
  EXPECT_EQ(ZoJson::Of(greatestNatural).Get<long long>(), greatest);
  EXPECT_EQ(ZoJson::Of(greatestNatural).Get<unsigned long long>(), greatestNatural);
  EXPECT_EQ(ZoJson::Of(greatestNatural).Get<int>(), std::numeric_limits<int>::max());
  EXPECT_EQ(ZoJson::Of(std::int64_t{4294967296}).Get<unsigned>(), std::numeric_limits<unsigned>::max());
  EXPECT_EQ(ZoJson::Of(least).Get<long>(), least);
  EXPECT_EQ(ZoJson::Of(greatest).Get<unsigned long>(), static_cast<unsigned long>(greatest));
}

TEST(ZoJsonGet, FloatsAreCutAndSaturate) {
  EXPECT_EQ(ZoJson::Of(2.9).Get<int>(), 2);
  EXPECT_EQ(ZoJson::Of(-2.9).Get<int>(), -2);
  EXPECT_EQ(ZoJson::Of(-0.9).Get<unsigned>(), 0U);
  EXPECT_EQ(ZoJson::Of(1e300).Get<int>(), std::numeric_limits<int>::max());
  EXPECT_EQ(ZoJson::Of(-1e300).Get<int>(), std::numeric_limits<int>::min());
  EXPECT_EQ(ZoJson::Of(-1e300).Get<unsigned long long>(), 0U);
  EXPECT_EQ(ZoJson::Of(2147483647.9).Get<int>(), 2147483647);
  EXPECT_EQ(ZoJson::Of(-2147483648.9).Get<int>(), -2147483647 - 1);
  EXPECT_EQ(ZoJson::Of(4294967295.9).Get<unsigned>(), 4294967295U);
  EXPECT_EQ(ZoJson::Of(9223372036854775808.0).Get<long long>(), greatest);
  EXPECT_EQ(ZoJson::Of(9223372036854774784.0).Get<long long>(), 9223372036854774784);
  EXPECT_EQ(ZoJson::Of(-9223372036854775808.0).Get<long long>(), least);
  EXPECT_EQ(ZoJson::Of(18446744073709551616.0).Get<unsigned long long>(), greatestNatural);
  EXPECT_EQ(ZoJson::Of(infinity).Get<long long>(), greatest);
  EXPECT_EQ(ZoJson::Of(-infinity).Get<long long>(), least);
  EXPECT_EQ(ZoJson::Of(notANumber).Get<long long>(), 0);
  EXPECT_EQ(ZoJson::Of(notANumber).Get<unsigned>(), 0U);
}

TEST(ZoJsonGet, DoublesBeyondAFloatSaturateToTheGreatestFloat) {
  EXPECT_EQ(ZoJson::Of(1e300).Get<float>(), std::numeric_limits<float>::max());
  EXPECT_EQ(ZoJson::Of(-1e300).Get<float>(), std::numeric_limits<float>::lowest());
  EXPECT_EQ(ZoJson::Of(infinity).Get<float>(), std::numeric_limits<float>::infinity());
  EXPECT_TRUE(std::isnan(ZoJson::Of(notANumber).Get<float>()));
  EXPECT_EQ(ZoJson::Of(0.1).Get<float>(), 0.1F);
  EXPECT_EQ(ZoJson::Of(1e-300).Get<float>(), 0.0F);
}

TEST(ZoJsonGet, NumbersConvertToFloatingPoint) {
  EXPECT_EQ(ZoJson::Of(-7).Get<double>(), -7.0);
  EXPECT_EQ(ZoJson::Of(greatestNatural).Get<double>(), 18446744073709551616.0);
  EXPECT_EQ(ZoJson::Of(7).Get<float>(), 7.0F);
  EXPECT_EQ(ZoJson::Of(1.5).Get<double>(), 1.5);
}

TEST(ZoJsonGet, BooleansReadAsZeroOrOne) {
  EXPECT_EQ(ZoJson::Of(true).Get<int>(), 1);
  EXPECT_EQ(ZoJson::Of(false).Get<long long>(), 0);
  EXPECT_EQ(ZoJson::Of(true).Get<double>(), 1.0);
  EXPECT_TRUE(ZoJson::Of(true).Get<bool>());
  EXPECT_FALSE(ZoJson::Of(false).Get<bool>());
}

TEST(ZoJsonGet, NumbersReadAsBooleans) {
  EXPECT_FALSE(ZoJson::Of(0).Get<bool>());
  EXPECT_TRUE(ZoJson::Of(-1).Get<bool>());
  EXPECT_TRUE(ZoJson::Of(greatestNatural).Get<bool>());
  EXPECT_FALSE(ZoJson::Of(0.0).Get<bool>());
  EXPECT_FALSE(ZoJson::Of(-0.0).Get<bool>());
  EXPECT_TRUE(ZoJson::Of(0.25).Get<bool>());
  EXPECT_TRUE(ZoJson::Of(infinity).Get<bool>());
  EXPECT_FALSE(ZoJson::Of(notANumber).Get<bool>());
}

TEST(ZoJsonGet, AnythingElseRaises) {
  for (const char* text : {"null", "\"1\"", "[]", "{}", "[1]"}) {
    const ZoJson value(text);
    EXPECT_THROW(value.Get<bool>(), ZoJsonError) << text;
    EXPECT_THROW(value.Get<int>(), ZoJsonError) << text;
    EXPECT_THROW(value.Get<long>(), ZoJsonError) << text;
    EXPECT_THROW(value.Get<long long>(), ZoJsonError) << text;
    EXPECT_THROW(value.Get<unsigned>(), ZoJsonError) << text;
    EXPECT_THROW(value.Get<unsigned long>(), ZoJsonError) << text;
    EXPECT_THROW(value.Get<unsigned long long>(), ZoJsonError) << text;
    EXPECT_THROW(value.Get<float>(), ZoJsonError) << text;
    EXPECT_THROW(value.Get<double>(), ZoJsonError) << text;
  }
  for (const char* text : {"null", "true", "1", "1.5", "[]", "{}"}) {
    EXPECT_THROW(ZoJson(text).Get<std::string>(), ZoJsonError) << text;
  }
}

TEST(ZoJsonGet, TheErrorSaysWhatTheValueIs) {
  try {
    ZoJson("[1]").Get<int>();
    FAIL() << "no error";
  } catch (const ZoJsonError& error) {
    EXPECT_STREQ(error.what(), "JSON value: an array does not read as a number");
  }
}

}  // namespace
