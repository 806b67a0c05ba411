#include "xhmi/variant_value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

namespace {

using xhmi::variant_value;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(VariantValue, EmptyOneIsOfKindFiveAndZero) {
  const variant_value value;
  EXPECT_EQ(value.kind(), 5);
  EXPECT_EQ(value.uint64(), 0u);
  EXPECT_EQ(value.text(), "");
}

TEST(VariantValue, KindFollowsTheTypeItIsMadeOf) {
  EXPECT_EQ(variant_value(std::string("text")).kind(), enumtype_string);
  EXPECT_EQ(variant_value("text").kind(), enumtype_string);
  EXPECT_EQ(variant_value(true).kind(), enumtype_bool);
  EXPECT_EQ(variant_value(1.5).kind(), enumtype_double);
  EXPECT_EQ(variant_value(1.5f).kind(), enumtype_double);
  EXPECT_EQ(variant_value(0).kind(), enumtype_int64);
  EXPECT_EQ(variant_value(0L).kind(), enumtype_int64);
  EXPECT_EQ(variant_value(0LL).kind(), enumtype_int64);
  EXPECT_EQ(variant_value(std::int8_t{0}).kind(), enumtype_int64);
  EXPECT_EQ(variant_value(0u).kind(), enumtype_uint64);
  EXPECT_EQ(variant_value(0uL).kind(), enumtype_uint64);
  EXPECT_EQ(variant_value(0uLL).kind(), enumtype_uint64);
  EXPECT_EQ(variant_value(std::uint8_t{0}).kind(), enumtype_uint64);
}

TEST(VariantValue, HoldsWhatItIsMadeOf) {
  EXPECT_EQ(variant_value(std::string("a\0b", 3)).text(), std::string("a\0b", 3));
  EXPECT_EQ(variant_value("text").text(), "text");
  EXPECT_TRUE(variant_value(true).boolean());
  EXPECT_FALSE(variant_value(false).boolean());
  EXPECT_EQ(variant_value(-1.5).float64(), -1.5);
  EXPECT_EQ(variant_value(std::numeric_limits<std::int64_t>::min()).int64(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(variant_value(std::int8_t{-1}).int64(), -1) << "the sign is extended";
  EXPECT_EQ(variant_value(-1).uint64(), UINT64_MAX);
  EXPECT_EQ(variant_value(UINT64_MAX).uint64(), UINT64_MAX);
  EXPECT_EQ(variant_value(UINT32_MAX).uint64(), UINT32_MAX) << "no sign to extend";
  EXPECT_EQ(variant_value(std::uint8_t{255}).uint64(), 255u);
}

TEST(VariantValue, KindIsTheFirstWordAndThePayloadTheSecond) {
  static_assert(std::is_standard_layout_v<variant_value>);
  const variant_value value(std::int64_t{0x0102030405060708});
  std::uint32_t kind = 0;
  std::uint64_t payload = 0;
  std::memcpy(&kind, static_cast<const void*>(&value), sizeof kind);
  std::memcpy(&payload, reinterpret_cast<const unsigned char*>(&value) + 8, sizeof payload);
  EXPECT_EQ(kind, 2u);
  EXPECT_EQ(payload, 0x0102030405060708u);
}

TEST(VariantValue, StoringInPlaceKeepsTheKind) {
  for (const variant_value& before : {variant_value(), variant_value("text"), variant_value(true),
                                      variant_value(0), variant_value(0.5), variant_value(0u)}) {
    variant_value value = before;
    value.store_int64(-5);
    EXPECT_EQ(value.kind(), before.kind());
    EXPECT_EQ(value.int64(), -5);
    value.store_uint64(UINT64_MAX);
    EXPECT_EQ(value.kind(), before.kind());
    EXPECT_EQ(value.uint64(), UINT64_MAX);
    value.store_float64(-2.25);
    EXPECT_EQ(value.kind(), before.kind());
    EXPECT_EQ(value.float64(), -2.25);
    value.store_boolean(true);
    EXPECT_EQ(value.kind(), before.kind());
    EXPECT_TRUE(value.boolean());
    EXPECT_EQ(value.text(), before.text()) << "a scalar stored over a string leaves the string whole";
  }
}

TEST(VariantValue, StoredBooleanTouchesTheLowByteAlone) {
  variant_value value(std::int64_t{0x1122334455667788});
  value.store_boolean(true);
  EXPECT_EQ(value.int64(), 0x1122334455667701);
  value.store_boolean(false);
  EXPECT_EQ(value.int64(), 0x1122334455667700);
  EXPECT_FALSE(value.boolean()) << "the upper bytes are no part of a boolean";
}

TEST(VariantValue, StringAssignedReplacesTheWhole) {
  variant_value value(std::int64_t{7});
  value = variant_value(std::string("text"));
  EXPECT_EQ(value.kind(), enumtype_string);
  EXPECT_EQ(value.text(), "text");
  EXPECT_EQ(value, variant_value("text")) << "nothing of the number is left";
}

TEST(VariantValue, NumberAssignedReplacesTheWhole) {
  variant_value value("text");
  value = variant_value(std::int64_t{7});
  EXPECT_EQ(value, variant_value(std::int64_t{7})) << "nothing of the text is left";
}

TEST(VariantValue, EqualityComparesKindScalarAndText) {
  EXPECT_EQ(variant_value(), variant_value());
  EXPECT_EQ(variant_value("text"), variant_value(std::string("text")));
  EXPECT_EQ(variant_value(5), variant_value(5LL));
  EXPECT_NE(variant_value(5), variant_value(5u)) << "the kind";
  EXPECT_NE(variant_value(0), variant_value());
  EXPECT_NE(variant_value(5), variant_value(6)) << "the scalar";
  EXPECT_NE(variant_value("text"), variant_value("other")) << "the text";
  variant_value stored("text");
  stored.store_int64(1);
  EXPECT_NE(stored, variant_value("text")) << "the scalar beside the text";
}

TEST(VariantValue, DoublesCompareByTheirBits) {
  EXPECT_EQ(variant_value(nan), variant_value(nan)) << "an unchanged NaN is no change";
  EXPECT_NE(variant_value(0.0), variant_value(-0.0));
  EXPECT_TRUE(std::isnan(variant_value(nan).float64()));
}

TEST(VariantValue, CopiesAreIndependent) {
  variant_value original("text");
  const variant_value copy = original;
  original.store_int64(9);
  original = variant_value("other");
  EXPECT_EQ(copy, variant_value("text"));
}

TEST(VariantValue, NoConversionIsImplicit) {
  static_assert(!std::is_convertible_v<bool, variant_value>);
  static_assert(!std::is_convertible_v<int, variant_value>);
  static_assert(!std::is_convertible_v<double, variant_value>);
  static_assert(!std::is_convertible_v<const char*, variant_value>);
  static_assert(!std::is_convertible_v<std::string, variant_value>);
}

}  // namespace
