// How a payload's element becomes an item's value.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <thread>

#include "tests/vyrnclient/feedtest.h"

namespace ZoTest {
namespace {

using ZoIO::ItemInfo;

class CacheToValue : public FeedTest {
 protected:
  // The item "/r#/a" after the element became what json says.
  ItemInfo& Take(const std::string& json) {
    Cached("/r", "{\"a\":" + json + "}");
    ItemInfo& item = Item("/r#/a");
    feed.UpdateItemFromCache(item);
    return item;
  }

  void ExpectInteger(const std::string& json, std::int64_t number) {
    const ItemInfo& item = Take(json);
    EXPECT_EQ(item.type, enumtype_int64) << json;
    EXPECT_EQ(item.value.int64(), number) << json;
  }

  void ExpectUnsigned(const std::string& json, std::uint64_t number) {
    const ItemInfo& item = Take(json);
    EXPECT_EQ(item.type, enumtype_uint64) << json;
    EXPECT_EQ(item.value.uint64(), number) << json;
  }

  void ExpectDouble(const std::string& json, double number) {
    const ItemInfo& item = Take(json);
    EXPECT_EQ(item.type, enumtype_double) << json;
    EXPECT_EQ(item.value.float64(), number) << json;
    EXPECT_EQ(std::signbit(item.value.float64()), std::signbit(number)) << json;
  }
};

TEST_F(CacheToValue, IntegerIsType2ThoughItMayBeUnsignedToo) {
  ExpectInteger("5", 5);
  ExpectInteger("0", 0);
  ExpectInteger("-7", -7);
  ExpectInteger("9223372036854775807", std::numeric_limits<std::int64_t>::max());
  ExpectInteger("-9223372036854775808", std::numeric_limits<std::int64_t>::min());
}

TEST_F(CacheToValue, IntegerBeyondTheSignedOnesIsType4) {
  ExpectUnsigned("9223372036854775808", 9223372036854775808U);
  ExpectUnsigned("18446744073709551615", std::numeric_limits<std::uint64_t>::max());
}

TEST_F(CacheToValue, IntegerBeyondTheUnsignedOnesIsType3) {
  ExpectDouble("18446744073709551616", 18446744073709551616.0);
}

TEST_F(CacheToValue, NumberWithAFractionHasThePrecisionOfAFloat) {
  ExpectDouble("0.1", 0.10000000149011612);
  ExpectDouble("3.141592653589793", 3.1415927410125732);
  ExpectDouble("0.5", 0.5);
  ExpectDouble("-2.25", -2.25);
  ExpectDouble("16777217.0", 16777216.0);
}

TEST_F(CacheToValue, WholeFloatsStayFloats) {
  ExpectDouble("1.0", 1.0);
  ExpectDouble("1e3", 1000.0);
  ExpectDouble("-0.0", -0.0);
}

TEST_F(CacheToValue, BooleanIsType1) {
  EXPECT_EQ(Take("true").type, enumtype_bool);
  EXPECT_TRUE(Take("true").value.boolean());
  EXPECT_FALSE(Take("false").value.boolean());
  EXPECT_EQ(Take("false").type, enumtype_bool);
}

TEST_F(CacheToValue, BooleanOverwritesTheLowByteAlone) {
  Take("4660");  // 0x1234
  EXPECT_EQ(Take("true").value.uint64(), 0x1201u);
  EXPECT_EQ(Take("false").value.uint64(), 0x1200u);
  EXPECT_FALSE(Take("false").value.boolean());
}

TEST_F(CacheToValue, NumbersOverwriteTheWholePayload) {
  Take("-1");
  EXPECT_EQ(Take("0.5").value.uint64(), std::bit_cast<std::uint64_t>(0.5));
  EXPECT_EQ(Take("1").value.uint64(), 1u);
  EXPECT_EQ(Take("9223372036854775808").value.uint64(), 9223372036854775808U);
}

TEST_F(CacheToValue, StringIsType0AndRetypesTheVariant) {
  const ItemInfo& item = Take(R"("text")");
  EXPECT_EQ(item.type, enumtype_string);
  EXPECT_EQ(item.value.kind(), enumtype_string);
  EXPECT_EQ(item.value.text(), "text");
  EXPECT_EQ(item.value, xhmi::variant_value("text"));
}

TEST_F(CacheToValue, ScalarsKeepTheVariantsKind) {
  for (const char* json : {"5", "9223372036854775808", "0.5", "true"}) {
    EXPECT_EQ(Take(json).value.kind(), enumtype_int64) << json;
  }
}

TEST_F(CacheToValue, ScalarOverAStringKeepsTheStringsKindAndText) {
  Take(R"("text")");
  const ItemInfo& item = Take("5");
  EXPECT_EQ(item.type, enumtype_int64);
  EXPECT_EQ(item.value.int64(), 5);
  EXPECT_EQ(item.value.kind(), enumtype_string);
  EXPECT_EQ(item.value.text(), "text");
}

TEST_F(CacheToValue, EmptyAndLongAndOddStringsArriveWhole) {
  EXPECT_EQ(Take("\"\"").value.text(), "");
  const std::string longText(100'000, 'x');
  EXPECT_EQ(Take("\"" + longText + "\"").value.text(), longText);
  EXPECT_EQ(Take(R"("\u00e4\n\u20ac")").value.text(), "\xc3\xa4\n\xe2\x82\xac");
}

TEST_F(CacheToValue, ObjectOrArrayLeavesValueAndType) {
  for (const char* json : {"{}", "[]", R"({"b":1})", "[1,2]"}) {
    Take("7");
    const ItemInfo& item = Take(json);
    EXPECT_EQ(item.type, enumtype_int64) << json;
    EXPECT_EQ(item.value.int64(), 7) << json;
  }
}

TEST_F(CacheToValue, ObjectInANewItemLeavesItInvalidWithTheInteger0) {
  const ItemInfo& item = Take("{}");
  EXPECT_EQ(item.type, enumtype_invalid);
  EXPECT_EQ(item.value, xhmi::variant_value(0LL));
}

TEST_F(CacheToValue, NullGivesType5AndKeepsTheValue) {
  Take("7");
  const ItemInfo& item = Take("null");
  EXPECT_EQ(item.type, enumtype_invalid);
  EXPECT_EQ(item.value, xhmi::variant_value(7LL));
}

TEST_F(CacheToValue, MissingElementGivesType5AndKeepsTheValue) {
  Take("7");
  Cached("/r", R"({"b":1})");
  ItemInfo& item = Item("/r#/a");
  const xhmi::variant_value copy = feed.UpdateItemFromCache(item);
  EXPECT_EQ(item.type, enumtype_invalid);
  EXPECT_EQ(item.value, xhmi::variant_value(7LL));
  EXPECT_EQ(copy, xhmi::variant_value(7LL));
}

TEST_F(CacheToValue, UncachedResourceGivesType5AndKeepsTheValue) {
  ItemInfo item = ZoIO::ItemManager::CreateItem("/other#/a");
  item.type = enumtype_bool;
  item.value = xhmi::variant_value(true);
  feed.UpdateItemFromCache(item);
  EXPECT_EQ(item.type, enumtype_invalid);
  EXPECT_EQ(item.value, xhmi::variant_value(true));
}

TEST_F(CacheToValue, ReturnsACopyOfTheValueInEveryCase) {
  ItemInfo& item = Take("7");
  EXPECT_EQ(feed.UpdateItemFromCache(item), xhmi::variant_value(7LL));
  for (const char* json : {"null", "{}"}) {
    Cached("/r", "{\"a\":" + std::string(json) + "}");
    EXPECT_EQ(feed.UpdateItemFromCache(item), xhmi::variant_value(7LL)) << json;
  }
  ItemInfo missing = ZoIO::ItemManager::CreateItem("/other#/a");
  EXPECT_EQ(feed.UpdateItemFromCache(missing), xhmi::variant_value(0LL));
}

TEST_F(CacheToValue, LogsNothing) {
  ItemInfo& item = Take("7");
  recorder.Clear();
  for (const char* json : {"null", "{}", "1"}) {
    Cached("/r", "{\"a\":" + std::string(json) + "}");
    feed.UpdateItemFromCache(item);
  }
  ItemInfo missing = ZoIO::ItemManager::CreateItem("/other#/a");
  feed.UpdateItemFromCache(missing);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(CacheToValue, NewestPayloadCounts) {
  Take("1");
  ExpectInteger("2", 2);
}

// After the clock was set back, values lie ahead of it, and the one that counts is the first that is still
// ahead. So another one takes over when its time has passed, though the cache was given nothing new.
TEST_F(CacheToValue, ValueThatLayAheadOfTheClockGivesWayOnceItsTimeHasPassed) {
  constexpr long long lead = 50;  // ms
  const Deadline deadline;
  for (int attempt = 0; !deadline.Expired(); ++attempt) {
    const std::string uri = "/ahead" + std::to_string(attempt);
    const long long now = ZoIO::CacheManager::TimeInMills();
    Cache().AddAt(uri, ZoJson::ParseString(R"({"a":"far"})"), now + 10 * lead);
    Cache().AddAt(uri, ZoJson::ParseString(R"({"a":"near"})"), now + lead);
    ItemInfo item = ZoIO::ItemManager::CreateItem(uri + "#/a");
    const std::string first = feed.UpdateItemFromCache(item).text();
    if (ZoIO::CacheManager::TimeInMills() > now + lead) {
      continue;  // too slow: the time of the near one may have passed already
    }
    EXPECT_EQ(first, "near");
    while (ZoIO::CacheManager::TimeInMills() <= now + lead) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(feed.UpdateItemFromCache(item).text(), "far");
    return;
  }
  FAIL() << "never quick enough to see the near value";
}

TEST_F(CacheToValue, ElementOfAnArrayIsReachedByItsNumber) {
  ItemInfo& item = CachedItem("/r#/list/1", "/r", R"({"list":[10,20,30]})");
  feed.UpdateItemFromCache(item);
  EXPECT_EQ(item.value.int64(), 20);
  ItemInfo& beyond = Item("/r#/list/3");
  feed.UpdateItemFromCache(beyond);
  EXPECT_EQ(beyond.type, enumtype_invalid);
}

TEST_F(CacheToValue, WholePayloadIsReachedByTheEmptyPlace) {
  ItemInfo& item = CachedItem("/r#", "/r", "42");
  feed.UpdateItemFromCache(item);
  EXPECT_EQ(item.type, enumtype_int64);
  EXPECT_EQ(item.value.int64(), 42);
}

TEST_F(CacheToValue, MemberWithABlankIsReachedByTheEncodedBlank) {
  ItemInfo& item = CachedItem("/r#/a%20b", "/r", R"({"a b":3})");
  feed.UpdateItemFromCache(item);
  EXPECT_EQ(item.value.int64(), 3);
}

}  // namespace
}  // namespace ZoTest
