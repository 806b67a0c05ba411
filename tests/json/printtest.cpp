#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "zovyrnsdk/json/zojson.h"

namespace {

std::string Printed(double number) {
  return ZoJson::Of(number).ToString();
}

TEST(ZoJsonPrint, TextIsCompactInTheOrderOfInsertion) {
  ZoJson value;
  value.Set("z", 1);
  value.Set("a", "x");
  value.Set("m/n", true);
  value.Set("l", ZoJson("[ 1, null ]"));
  EXPECT_EQ(value.ToString(), R"({"z":1,"a":"x","m":{"n":true},"l":[1,null]})");
}

TEST(ZoJsonPrint, WholeFloatsKeepAFraction) {
  EXPECT_EQ(Printed(5), "5.0");
  EXPECT_EQ(Printed(-5), "-5.0");
  EXPECT_EQ(Printed(0), "0.0");
  EXPECT_EQ(Printed(-0.0), "-0.0");
  EXPECT_EQ(Printed(100000), "100000.0");
  EXPECT_EQ(Printed(-1e15), "-1000000000000000.0");
  EXPECT_EQ(Printed(9007199254740992), "9007199254740992.0");
  EXPECT_EQ(Printed(9999999999999998), "9999999999999998.0");
  EXPECT_EQ(Printed(1e16), "1e+16");
  EXPECT_EQ(Printed(12345678901234567890.0), "12345678901234567168.0");
}

TEST(ZoJsonPrint, FloatsAreShortest) {
  EXPECT_EQ(Printed(0.1), "0.1");
  EXPECT_EQ(Printed(1.0 / 3), "0.3333333333333333");
  EXPECT_EQ(Printed(5e-324), "5e-324");
  EXPECT_EQ(Printed(1.7976931348623157e308), "1.7976931348623157e+308");
  EXPECT_EQ(Printed(-2.2250738585072014e-308), "-2.2250738585072014e-308");
}

TEST(ZoJsonPrint, EveryFloatReadsBackAsAFloat) {
  double power = 1;
  for (int exponent = 0; exponent < 308; ++exponent, power *= 10) {
    for (const double number : {power, -power, power * 3, power / 7, 1 / power}) {
      const ZoJson back(Printed(number));
      EXPECT_TRUE(back.IsFloat()) << Printed(number);
      EXPECT_EQ(back.Get<double>(), number) << Printed(number);
    }
  }
  for (int exponent = -1074; exponent < 1024; ++exponent) {
    const double number = std::ldexp(1.0, exponent);
    const ZoJson back(Printed(-number));
    EXPECT_TRUE(back.IsFloat()) << Printed(number);
    EXPECT_EQ(back.Get<double>(), -number) << Printed(number);
  }
}

TEST(ZoJsonPrint, IntegersPrintExactly) {
  EXPECT_EQ(ZoJson::Of(std::numeric_limits<std::int64_t>::min()).ToString(), "-9223372036854775808");
  EXPECT_EQ(ZoJson::Of(std::numeric_limits<std::int64_t>::max()).ToString(), "9223372036854775807");
  EXPECT_EQ(ZoJson::Of(std::numeric_limits<std::uint64_t>::max()).ToString(), "18446744073709551615");
}

TEST(ZoJsonPrint, NanAndInfinitiesRaise) {
  for (const double number :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    EXPECT_THROW(ZoJson::Of(number).ToString(), ZoJsonError);
    ZoJson value("{\"a\":[1]}");
    value.Set("/a/0", number);
    EXPECT_THROW(value.ToString(), ZoJsonError);
  }
}

TEST(ZoJsonPrint, WhatMustBeEscapedIsEscaped) {
  EXPECT_EQ(ZoJson::Of("\"\\/\b\f\n\r\t").ToString(), R"("\"\\/\b\f\n\r\t")");
  EXPECT_EQ(ZoJson::Of(std::string("\x00\x01\x1f\x7f", 4)).ToString(), "\"\\u0000\\u0001\\u001f\x7f\"");
  EXPECT_EQ(ZoJson::Of("\xC3\xA9\xF0\x9F\x98\x80").ToString(), "\"\xC3\xA9\xF0\x9F\x98\x80\"");
  ZoJson value;
  value.Set(ZoJsonPointer::Member("a\"\n"), 1);
  EXPECT_EQ(value.ToString(), R"({"a\"\n":1})");
}

TEST(ZoJsonPrint, EveryByteIsEscapedRightAtEveryPlace) {
  // Texts are searched eight bytes at a time.
  for (int byte = 0; byte < 128; ++byte) {
    for (std::size_t place = 0; place < 20; ++place) {
      for (const char around : {'x', '\x80', '\xFF', '!', '#', ' '}) {
        std::string plain(20, around);
        plain[place] = static_cast<char>(byte);
        const std::string printed = ZoJson::Of(plain).ToString();
        std::string escaped(1, static_cast<char>(byte));
        const std::string_view letters = "\"\"\\\\\bb\ff\nn\rr\tt";
        for (std::size_t i = 0; i < letters.size(); i += 2) {
          if (letters[i] == static_cast<char>(byte)) {
            escaped = std::string("\\") + letters[i + 1];
          }
        }
        if (byte < 0x20 && escaped.size() == 1) {
          char digits[8];
          std::snprintf(digits, sizeof digits, "\\u%04x", static_cast<unsigned>(byte));
          escaped = digits;
        }
        ASSERT_EQ(printed, '"' + plain.substr(0, place) + escaped + plain.substr(place + 1) + '"');
      }
    }
  }
}

TEST(ZoJsonPrint, TextsThatAreNoUtf8PrintAsTheyAre) {
  EXPECT_EQ(ZoJson::Of("a\xFF").ToString(), "\"a\xFF\"");
}

TEST(ZoJsonPrint, ARemovedFirstMemberLeavesNoComma) {
  ZoJson value(R"({"a":1,"b":2,"c":3})");
  value.Remove("a");
  EXPECT_EQ(value.ToString(), R"({"b":2,"c":3})");
  value.Remove("c");
  EXPECT_EQ(value.ToString(), R"({"b":2})");
}

}  // namespace
