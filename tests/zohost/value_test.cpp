#include "tools/zohost/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tools/zohost/usageerror.h"

namespace zohost {
namespace {

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

std::string Guessed(const char* text) {
  const Value value = Value::Parse(text);
  return std::string(KindName(value.Kind())) + " " + value.Exact();
}

TEST(ValueParse, GuessesTheKindFromTheText) {
  EXPECT_EQ(Guessed("true"), "bool true");
  EXPECT_EQ(Guessed("false"), "bool false");
  EXPECT_EQ(Guessed("True"), "string True");
  EXPECT_EQ(Guessed("0"), "int 0");
  EXPECT_EQ(Guessed("-5"), "int -5");
  EXPECT_EQ(Guessed("+5"), "int 5");
  EXPECT_EQ(Guessed("9223372036854775807"), "int 9223372036854775807");
  EXPECT_EQ(Guessed("-9223372036854775808"), "int -9223372036854775808");
  EXPECT_EQ(Guessed("9223372036854775808"), "uint 9223372036854775808");
  EXPECT_EQ(Guessed("18446744073709551615"), "uint 18446744073709551615");
  EXPECT_EQ(Guessed("5.0"), "double 5.0");
  EXPECT_EQ(Guessed("-.5"), "double -0.5");
  EXPECT_EQ(Guessed("1e3"), "double 1000.0");
  EXPECT_EQ(Guessed("0.1"), "double 0.1");
  EXPECT_EQ(Guessed(""), "string ");
  EXPECT_EQ(Guessed("-"), "string -");
  EXPECT_EQ(Guessed("+-5"), "string +-5");
  EXPECT_EQ(Guessed("1.2.3"), "string 1.2.3");
  EXPECT_EQ(Guessed("192.168.0.1"), "string 192.168.0.1");
  EXPECT_EQ(Guessed("0x10"), "string 0x10");
  EXPECT_EQ(Guessed("nan"), "string nan");
  EXPECT_EQ(Guessed("inf"), "string inf");
  EXPECT_EQ(Guessed("e"), "string e");
  EXPECT_EQ(Guessed("5 "), "string 5 ");
}

TEST(ValueParse, NumbersThatFitNowhereAreRefused) {
  EXPECT_THROW(Value::Parse("18446744073709551616"), UsageError);
  EXPECT_THROW(Value::Parse("-9223372036854775809"), UsageError);
  EXPECT_THROW(Value::Parse("1e999"), UsageError);
}

TEST(ValueParse, AGivenKindIsTaken) {
  EXPECT_EQ(Value::Parse("5", enumtype_string).Kind(), enumtype_string);
  EXPECT_EQ(Value::Parse("5", enumtype_double).Exact(), "5.0");
  EXPECT_EQ(Value::Parse("5", enumtype_uint64).Kind(), enumtype_uint64);
  EXPECT_EQ(Value::Parse("1", enumtype_bool).Exact(), "true");
  EXPECT_EQ(Value::Parse("0", enumtype_bool).Exact(), "false");
  EXPECT_EQ(Value::Parse("18446744073709551616", enumtype_double).Exact(), "1.8446744073709552e+19");
}

TEST(ValueParse, AValueThatDoesNotFitItsKindIsRefused) {
  const std::pair<const char*, enumtype> cases[] = {
      {"yes", enumtype_bool},     {"2", enumtype_bool},
      {"5.0", enumtype_int64},    {"9223372036854775808", enumtype_int64},
      {"", enumtype_int64},       {"5x", enumtype_int64},
      {"-1", enumtype_uint64},    {"18446744073709551616", enumtype_uint64},
      {"nan", enumtype_double},   {"inf", enumtype_double},
      {"1e999", enumtype_double}, {"1,5", enumtype_double},
      {"x", enumtype_invalid},
  };
  for (const auto& [text, kind] : cases) {
    EXPECT_THROW(Value::Parse(text, kind), UsageError) << text << " as " << KindName(kind);
  }
}

TEST(Value, TheRecordOfABooleanClearsTheWholeField) {
  const ioDataValue record = Value(false).ToRecord();
  EXPECT_EQ(record.type, enumtype_bool);
  EXPECT_EQ(record.value.uint64, 0u);
  EXPECT_EQ(Value(true).ToRecord().value.uint64, 1u);
}

TEST(Value, RecordsOfEveryKindComeBackTheSame) {
  for (const Value& value : {Value(std::string("text")), Value(true), Value(std::int64_t{-7}), Value(2.5),
                             Value(largest), Value(std::nan(""))}) {
    EXPECT_TRUE(Value::FromRecord(value.ToRecord()).SameAs(value)) << value.Exact();
  }
}

TEST(Value, OwnsTheTextOfItsRecord) {
  char text[] = "text";
  ioDataValue record = {};
  record.type = enumtype_string;
  record.value.text = text;
  const Value value = Value::FromRecord(record);
  std::strcpy(text, "gone");
  EXPECT_EQ(value.Exact(), "text");
}

TEST(Value, OddRecordsAreTakenWithoutHarm) {
  ioDataValue record = {};
  record.type = 77;
  EXPECT_EQ(Value::FromRecord(record).Kind(), enumtype_invalid);
  record.type = enumtype_string;
  record.value.text = nullptr;
  EXPECT_EQ(Value::FromRecord(record).Exact(), "");
  record.type = enumtype_bool;
  record.value.uint64 = 0x100;
  EXPECT_EQ(Value::FromRecord(record).Exact(), "false");
}

TEST(Value, PeopleSeeAFloatAsTheFloatItWas) {
  EXPECT_EQ(Value(static_cast<double>(0.1f)).ForPeople(), "0.1");
  EXPECT_EQ(Value(static_cast<double>(0.1f)).Exact(), "0.10000000149011612");
  EXPECT_EQ(Value(0.1).ForPeople(), "0.1");
  EXPECT_EQ(Value(1.0 / 3.0).ForPeople(), "0.3333333333333333");
  EXPECT_EQ(Value(5.0).ForPeople(), "5.0");
  EXPECT_EQ(Value(-0.0).ForPeople(), "-0.0");
  EXPECT_EQ(Value(1e300).ForPeople(), "1e+300");
  EXPECT_EQ(Value(std::nan("")).ForPeople(), "NaN");
  EXPECT_EQ(Value(-std::numeric_limits<double>::infinity()).ForPeople(), "-Infinity");
}

TEST(Value, PeopleSeeNoControlCharacters) {
  EXPECT_EQ(Value(std::string("a\x1b[2J\nb")).ForPeople(), "a\\u001b[2J\\nb");
  EXPECT_EQ(Value(std::string(1000, 'x')).ForPeople(10), std::string(10, 'x'));
}

TEST(Value, JsonIsExactAndAlwaysValid) {
  EXPECT_EQ(Value().Json(), "null");
  EXPECT_EQ(Value(largest).Json(), "18446744073709551615");
  EXPECT_EQ(Value(true).Json(), "true");
  EXPECT_EQ(Value(5.0).Json(), "5.0");
  EXPECT_EQ(Value(std::nan("")).Json(), "\"NaN\"");
  EXPECT_EQ(Value(std::numeric_limits<double>::infinity()).Json(), "\"Infinity\"");
  EXPECT_EQ(Value(std::string("a\"\\\n\x01\xff")).Json(), "\"a\\\"\\\\\\n\\u0001\xEF\xBF\xBD\"");
}

TEST(Value, EqualityIsByKindAndBits) {
  EXPECT_TRUE(Value(std::nan("")).SameAs(Value(std::nan(""))));
  EXPECT_FALSE(Value(0.0).SameAs(Value(-0.0)));
  EXPECT_FALSE(Value(std::int64_t{5}).SameAs(Value(std::uint64_t{5})));
  EXPECT_FALSE(Value(std::int64_t{5}).SameAs(Value()));
  EXPECT_TRUE(Value().SameAs(Value()));
}

TEST(Value, NumbersAndBooleansArePoints) {
  EXPECT_EQ(Value(true).AsNumber(), 1.0);
  EXPECT_EQ(Value(std::int64_t{-3}).AsNumber(), -3.0);
  EXPECT_EQ(Value(2.5).AsNumber(), 2.5);
  EXPECT_EQ(Value(std::string("5")).AsNumber(), std::nullopt);
  EXPECT_EQ(Value().AsNumber(), std::nullopt);
}

TEST(Value, KindsHaveNames) {
  for (const char* name : {"string", "bool", "int", "double", "uint", "invalid"}) {
    EXPECT_EQ(KindName(KindFromName(name).value()), name);
  }
  EXPECT_FALSE(KindFromName("float").has_value());
}

}  // namespace
}  // namespace zohost
