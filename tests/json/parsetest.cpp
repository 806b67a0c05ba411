#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "zovyrnsdk/json/zojson.h"

namespace {

std::string ErrorOf(std::string_view text) {
  try {
    ZoJson::ParseString(text);
  } catch (const ZoJsonError& error) {
    return error.what();
  }
  return "no error";
}

std::string Nested(std::size_t levels) {
  return std::string(levels, '[') + std::string(levels, ']');
}

TEST(ZoJsonParse, EveryKindIsRead) {
  const ZoJson value(
      " { \"null\" : null , \"yes\" : true,\"no\":false,\t\"int\":-12,\r\n\"float\":1.5e2,"
      "\"text\":\"abc\",\"array\":[1,\"x\",[],{}],\"object\":{\"a\":{}} } ");
  EXPECT_EQ(value.ToString(), R"({"null":null,"yes":true,"no":false,"int":-12,"float":150.0,"text":"abc",)"
                              R"("array":[1,"x",[],{}],"object":{"a":{}}})");
}

TEST(ZoJsonParse, AScalarIsADocument) {
  for (const char* text : {"null", "true", "false", "0", "-1", "\"a\"", "1.5"}) {
    EXPECT_EQ(ZoJson(text).ToString(), text);
  }
}

TEST(ZoJsonParse, ConstructorsParseLikeParseString) {
  EXPECT_EQ(ZoJson("{\"status\": 1}").At("status").Get<int>(), 1);
  EXPECT_EQ(ZoJson(std::string("[1]")), ZoJson::ParseString("[1]"));
  const char* none = nullptr;
  EXPECT_THROW(ZoJson{none}, ZoJsonError);
}

TEST(ZoJsonParse, WhatIsNoJsonIsRefused) {
  for (const char* text : {"",
                           " ",
                           "[",
                           "]",
                           "{",
                           "}",
                           "[1",
                           "[1,",
                           "[1,]",
                           "[,1]",
                           "{\"a\"}",
                           "{\"a\":}",
                           "{\"a\":1,}",
                           "{a:1}",
                           "{1:1}",
                           "{\"a\" 1}",
                           "[1 2]",
                           "nul",
                           "nulll",
                           "True",
                           "tru",
                           "fals",
                           "NaN",
                           "Infinity",
                           "-",
                           "+1",
                           "01",
                           "-01",
                           "1.",
                           ".5",
                           "1.e1",
                           "1e",
                           "1e+",
                           "0x10",
                           "1_0",
                           "- 1",
                           "--1",
                           "\"",
                           "\"a",
                           "'a'",
                           "\"\\x\"",
                           "\"\\u12\"",
                           "\"\\u12g4\"",
                           "\"\n\"",
                           "\"\t\"",
                           "\"\x01\"",
                           "/* */ 1",
                           "1 // x",
                           "[1] []",
                           "1 2",
                           "{}x",
                           "\"a\"b",
                           "\xEF\xBB\xBF"
                           "1",
                           "[1]\x01"}) {
    EXPECT_THROW(ZoJson::ParseString(text), ZoJsonError) << text;
  }
  EXPECT_THROW(ZoJson::ParseString(std::string_view("1\0", 2)), ZoJsonError);
  EXPECT_THROW(ZoJson::ParseString(std::string_view("\"\0\"", 3)), ZoJsonError);
  EXPECT_THROW(ZoJson::ParseString(std::string_view()), ZoJsonError);
}

TEST(ZoJsonParse, EscapesAreDecoded) {
  EXPECT_EQ(ZoJson(R"("\"\\\/\b\f\n\r\t")").Get<std::string>(), "\"\\/\b\f\n\r\t");
  EXPECT_EQ(ZoJson(R"("\u0041\u00e9\u20AC\ud83d\uDE00")").Get<std::string>(),
            "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(ZoJson(R"("\u0000")").Get<std::string>(), std::string(1, '\0'));
  EXPECT_EQ(ZoJson(R"({"\u0061\n":1})").At(ZoJsonPointer::Member("a\n")).Get<int>(), 1);
}

TEST(ZoJsonParse, LongStringsWithEscapesAreReadWhole) {
  // Longer than any piece in which a parser hands them over, with escapes at every offset of a piece.
  std::string text = "\"";
  std::string expected;
  for (int i = 0; i < 20000; ++i) {
    text += i % 7 == 0 ? "\\n" : i % 11 == 0 ? "\\u20ac" : "xy";
    expected += i % 7 == 0 ? "\n" : i % 11 == 0 ? "\xE2\x82\xAC" : "xy";
  }
  text += "\"";
  EXPECT_EQ(ZoJson(text).Get<std::string>(), expected);
  EXPECT_EQ(
      ZoJson("{" + text + ":[" + text + "]}").At(ZoJsonPointer::Member(expected)).At("0").Get<std::string>(),
      expected);
}

TEST(ZoJsonParse, HalfSurrogatePairsAreRefused) {
  for (const char* text :
       {R"("\ud800")", R"("\udc00")", R"("\ud800x")", R"("\ud800\n")", R"("\ud800\u0041")",
        R"("\ud800\ud800")", R"("\udbff\udbff and more text")", R"("\udfff and more text")",
        R"("\ud800\u0041 and more text")", R"("\ud800 and more text behind")"}) {
    EXPECT_NE(ErrorOf(text).find("half of a surrogate pair"), std::string::npos)
        << text << ": " << ErrorOf(text);
  }
  EXPECT_EQ(ZoJson(R"("\udbff\udfff")").Get<std::string>(), "\xF4\x8F\xBF\xBF");
}

TEST(ZoJsonParse, Utf8IsChecked) {
  for (const char* good : {"\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                           "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(ZoJson('"' + std::string(good) + '"').Get<std::string>(), good);
    EXPECT_EQ(ZoJson("\"\\n" + std::string(good) + '"').Get<std::string>(), '\n' + std::string(good));
  }
  for (const char* bad : {"\x80",
                          "\xBF",
                          "\xC0\x80",
                          "\xC1\xBF",
                          "\xC2",
                          "\xC2\x41",
                          "\xE0\x80\x80",
                          "\xE0\x9F\xBF",
                          "\xE1\x80",
                          "\xED\xA0\x80",
                          "\xED\xBF\xBF",
                          "\xF0\x80\x80\x80",
                          "\xF0\x8F\xBF\xBF",
                          "\xF4\x90\x80\x80",
                          "\xF5\x80\x80\x80",
                          "\xF8\x88\x80\x80\x80",
                          "\xFE",
                          "\xFF",
                          "\xF0\x90\x80",
                          "\xE2\x82\x41"}) {
    for (const char* before : {"", "plain text before it ", "\\n"}) {
      for (const char* after : {"", " and after it, long enough"}) {
        const std::string text = '"' + std::string(before) + bad + after + '"';
        EXPECT_THROW(ZoJson::ParseString(text), ZoJsonError) << text;
        EXPECT_THROW(ZoJson::ParseString("{" + text + ":1}"), ZoJsonError) << text;
      }
    }
  }
}

TEST(ZoJsonParse, NestingIsLimitedTo256) {
  EXPECT_EQ(ZoJson(Nested(256)).ToString(), Nested(256));
  EXPECT_EQ(ErrorOf(Nested(257)), "JSON text, byte 256 (line 1, column 257): nested deeper than 256 levels");
  std::string objects;
  for (int i = 0; i < 257; ++i) {
    objects += "{\"a\":";
  }
  EXPECT_THROW(ZoJson::ParseString(objects + "1" + std::string(257, '}')), ZoJsonError);
  EXPECT_THROW(ZoJson::ParseString(std::string(1000000, '[')), ZoJsonError);
}

TEST(ZoJsonParse, OfEqualNamesTheLastWinsAtThePlaceOfTheFirst) {
  EXPECT_EQ(ZoJson(R"({"a":1,"b":2,"a":3,"c":4,"a":{"x":5}})").ToString(), R"({"a":{"x":5},"b":2,"c":4})");
  EXPECT_EQ(ZoJson(R"({"a":1,"\u0061":2})").ToString(), R"({"a":2})");
  std::string text = "{";
  for (int i = 0; i < 1000; ++i) {
    text += "\"" + std::to_string(i % 100) + "\":" + std::to_string(i) + ",";
  }
  text.back() = '}';
  const ZoJson value(text);
  EXPECT_EQ(value.Size(), 100U);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(value.At(std::to_string(i)).Get<int>(), 900 + i);
  }
}

TEST(ZoJsonParse, AnObjectWithEqualNamesTakesFurtherMembers) {
  ZoJson value(R"({"a":1,"a":2,"a":3})");
  for (int i = 0; i < 20; ++i) {
    value.Set("m" + std::to_string(i), i);
  }
  EXPECT_EQ(value.Size(), 21U);
  EXPECT_EQ(value.At("a").Get<int>(), 3);
  EXPECT_EQ(value.At("m19").Get<int>(), 19);
}

TEST(ZoJsonParse, NumbersBeyondADoubleAreRefused) {
  for (const std::string& text :
       {std::string("1e400"), std::string("-1e400"), std::string("1.8e308"),
        std::string("1e99999999999999999999"), std::string("1") + std::string(400, '0'),
        std::string("1") + std::string(400, '0') + "e-10", std::string("0.00001e320"),
        std::string("0.00001e+320")}) {
    EXPECT_EQ(ErrorOf(text), "JSON text, byte 0 (line 1, column 1): a number beyond the range of a double")
        << text;
  }
  EXPECT_EQ(ErrorOf("[1,\n 1e400]"),
            "JSON text, byte 5 (line 2, column 2): a number beyond the range of a double");
  EXPECT_EQ(ZoJson("1.7976931348623157e308").Get<double>(), std::numeric_limits<double>::max());
  EXPECT_EQ(ZoJson("1.7976931348623158e308").Get<double>(), std::numeric_limits<double>::max());
}

TEST(ZoJsonParse, NumbersTooSmallForADoubleReadAsZeroOfTheirSign) {
  for (const std::string& text :
       {std::string("1e-400"), std::string("2e-324"), std::string("1e-99999999999999999999"),
        "0." + std::string(400, '0') + "1", "0." + std::string(400, '0') + "1e20", std::string("1000e-500"),
        std::string("0e99999999999999999999"), std::string("0.0e99999999999"), std::string("0e400"),
        std::string("1E-0000000000000000000000000400")}) {
    const double positive = ZoJson(text).Get<double>();
    const double negative = ZoJson("-" + text).Get<double>();
    EXPECT_EQ(positive, 0.0) << text;
    EXPECT_FALSE(std::signbit(positive)) << text;
    EXPECT_EQ(negative, 0.0) << text;
    EXPECT_TRUE(std::signbit(negative)) << text;
  }
  EXPECT_EQ(ZoJson("5e-324").Get<double>(), std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(ZoJson("3e-324").Get<double>(), std::numeric_limits<double>::denorm_min());
}

TEST(ZoJsonParse, LongExponentsOfHarmlessNumbersAreRead) {
  EXPECT_EQ(ZoJson("1e00000000000000000003").Get<double>(), 1000.0);
  EXPECT_EQ(ZoJson("[0e99999999999, \"1e99999999999\", \"\\\"\", 12e+00000000000001]").ToString(),
            R"([0.0,"1e99999999999","\"",120.0])");
  EXPECT_EQ(ErrorOf("[0e99999999999, x]"), "JSON text, byte 16 (line 1, column 17): unexpected 'x'");
  EXPECT_EQ(ErrorOf("[0e99999999999, 1e99999999999]"),
            "JSON text, byte 16 (line 1, column 17): a number beyond the range of a double");
}

TEST(ZoJsonParse, MinusZeroKeepsItsSignAsAFloat) {
  const ZoJson value("-0");
  EXPECT_TRUE(value.IsFloat());
  EXPECT_TRUE(std::signbit(value.Get<double>()));
  EXPECT_EQ(value.ToString(), "-0.0");
  EXPECT_EQ(ZoJson("-0").Get<int>(), 0);
}

TEST(ZoJsonParse, ErrorsNameBytesLinesAndColumns) {
  EXPECT_EQ(ErrorOf("{\n  \"a\": 1,\n  \"b\": x\n}"),
            "JSON text, byte 19 (line 3, column 8): unexpected 'x'");
  EXPECT_EQ(ErrorOf("[\"\xC3\xA9\xE2\x82\xAC\", y]"),
            "JSON text, byte 10 (line 1, column 8): unexpected 'y'");
  EXPECT_EQ(ErrorOf("[1"), "JSON text, byte 2 (line 1, column 3): the text ends too early");
  EXPECT_EQ(ErrorOf(""), "JSON text, byte 0 (line 1, column 1): the text ends too early");
  EXPECT_EQ(ErrorOf("[1] 2"), "JSON text, byte 4 (line 1, column 5): unexpected '2'");
  EXPECT_EQ(
      ErrorOf("\"\xFF\""),
      "JSON text, byte 1 (line 1, column 2): invalid UTF-8, or a character beyond ASCII outside of a string");
  EXPECT_EQ(ErrorOf("\"a\nb\""), "JSON text, byte 2 (line 1, column 3): unexpected control character 10");
  EXPECT_EQ(ErrorOf("[\x7F]"), "JSON text, byte 1 (line 1, column 2): unexpected control character 127");
  EXPECT_EQ(ErrorOf(R"("\u12x4")"),
            "JSON text, byte 5 (line 1, column 6): unexpected 'x' in place of a hexadecimal digit");
}

TEST(ZoJsonParse, TextsNeedNoZeroAtTheEnd) {
  // Every prefix of a document lies in memory of exactly its size, so that the address sanitizer sees any
  // byte that is read behind it.
  const std::string document = R"({"a":[1,-2.5e+3,true,false,null,"\u20ac\ud83d\ude00é"],"b":"\n"})";
  for (std::size_t size = 0; size < document.size(); ++size) {
    const std::vector<char> exact(document.begin(), document.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_THROW(ZoJson::ParseString(std::string_view(exact.data(), exact.size())), ZoJsonError) << size;
  }
  const std::vector<char> exact(document.begin(), document.end());
  EXPECT_EQ(ZoJson::ParseString(std::string_view(exact.data(), exact.size())).Size(), 2U);
}

// Each text, and what its document must at least hold.
TEST(ParseBudget, CountsWhatTheDocumentHolds) {
  struct Row {
    std::string text;
    std::size_t least;
    std::size_t most;
  };
  std::string numbers = "[0";
  std::string members = "{\"m\":0";
  for (int i = 1; i < 1000; ++i) {
    numbers += ",0";
    members += ",\"m" + std::to_string(i) + "\":0";
  }
  numbers += ']';
  members += '}';
  const std::vector<Row> rows = {{"1", 0, 0},
                                 {"[]", 0, 0},
                                 {"\"short\"", 0, 0},
                                 {'"' + std::string(1000, 'x') + '"', 1000, 1100},
                                 {'"' + std::string(1000, 'x') + "\\n\"", 1000, 1100},
                                 {numbers, 16000, 16100},
                                 {members, 32000, 48000}};
  for (const Row& row : rows) {
    std::size_t memory = 1000000;
    EXPECT_EQ(ZoJson::ParseString(row.text, memory).ToString(), row.text);
    EXPECT_GE(memory, row.least) << row.text.substr(0, 20);
    EXPECT_LE(memory, row.most) << row.text.substr(0, 20);
  }
}

// A second reading, or a text that is put together from pieces, is no way around.
TEST(ParseBudget, CountsWhateverTheTextNeeds) {
  std::string numbers = "[";
  for (int i = 0; i < 1000; ++i) {
    numbers += "[1],";
  }
  std::size_t memory = 100000;
  EXPECT_THROW(ZoJson::ParseString(numbers + "1e99999999999]", memory), ZoJsonError);
  memory = 100000;
  EXPECT_EQ(ZoJson::ParseString(numbers + "1e-99999999999]", memory).Size(), 1001U);
  EXPECT_LE(memory, 100000U);
  memory = 60000;
  EXPECT_THROW(ZoJson::ParseString("\"\\n" + std::string(40000, 'x') + "\\n\"", memory), ZoJsonTooLarge);
  memory = 100000;
  EXPECT_EQ(ZoJson::ParseString("\"\\n" + std::string(40000, 'x') + "\\n\"", memory).ToString().size(),
            40006U);
}

TEST(ParseBudget, RefusesWhatCostsMoreAndLeavesTheLimitAsItIs) {
  std::string text = "[[1]";
  for (int i = 0; i < 1000; ++i) {
    text += ",[1]";
  }
  text += ']';
  std::size_t memory = 10000;
  EXPECT_THROW(ZoJson::ParseString(text, memory), ZoJsonTooLarge);
  EXPECT_EQ(memory, 10000U);
  memory = 1000000;
  EXPECT_NO_THROW(ZoJson::ParseString(text, memory));
  // A fault of the text is told as such.
  memory = 10000;
  EXPECT_THROW(
      try { ZoJson::ParseString("[1", memory); } catch (const ZoJsonTooLarge&) { FAIL(); }, ZoJsonError);
}

TEST(ParseBudget, ExponentThatNeedsACopyOfTheTextIsTooLargeWhereThereIsNoRoomForIt) {
  const std::string text = "[1e-99999999999" + std::string(1000, ' ') + "]";
  std::size_t memory = text.size() - 1;
  EXPECT_THROW(ZoJson::ParseString(text, memory), ZoJsonTooLarge);
  memory = 2 * text.size() + 1000;
  EXPECT_EQ(ZoJson::ParseString(text, memory).At("/0").Get<double>(), 0.0);
}

}  // namespace
