// How a value reaches the host.
#include <gtest/gtest.h>

#include "tests/vyrnclient/feedtest.h"
#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using xhmi::variant_value;

class ValueToHost : public FeedTest {
 protected:
  // What the host gets for a variant that is sent as a type.
  Entry Sent(const variant_value& value, int type, int status = 0) {
    recorder.Clear();
    feed.UpdateItem("/r#/a", value, static_cast<enumtype>(type), status);
    const Recorder::Entries entries = recorder.All();
    EXPECT_EQ(entries.size(), 1u);
    return entries.empty() ? Entry{} : entries[0];
  }
};

TEST_F(ValueToHost, EachTypeHasItsField) {
  EXPECT_EQ(Describe(Sent(variant_value("text"), enumtype_string)), "0:text");
  EXPECT_EQ(Describe(Sent(variant_value(true), enumtype_bool)), "1:1");
  EXPECT_EQ(Describe(Sent(variant_value(false), enumtype_bool)), "1:0");
  EXPECT_EQ(Describe(Sent(variant_value(-5LL), enumtype_int64)), "2:-5");
  EXPECT_EQ(Describe(Sent(variant_value(0.25), enumtype_double)), "3:0.25");
  EXPECT_EQ(Describe(Sent(variant_value(~0ULL), enumtype_uint64)), "4:18446744073709551615");
}

TEST_F(ValueToHost, TypeInvalidArrivesAsText) {
  EXPECT_EQ(Describe(Sent(variant_value(1LL), enumtype_invalid)), "5:INVALID");
}

TEST_F(ValueToHost, TypeBeyondTheKnownOnesArrivesAsInvalid) {
  for (const int type : {6, 7, 100, -1}) {
    EXPECT_EQ(Describe(Sent(variant_value(1LL), type)), "5:INVALID") << type;
  }
}

TEST_F(ValueToHost, TypeDecidesNotTheVariantsKind) {
  variant_value value(0LL);
  value.store_float64(0.5);
  EXPECT_EQ(Describe(Sent(value, enumtype_double)), "3:0.5");
  value.store_int64(-1);
  EXPECT_EQ(Describe(Sent(value, enumtype_uint64)), "4:18446744073709551615");
  EXPECT_EQ(Describe(Sent(variant_value(3LL), enumtype_string)), "0:");
}

TEST_F(ValueToHost, BooleanIsTheLowByteOfThePayload) {
  EXPECT_EQ(Describe(Sent(variant_value(0x1200LL), enumtype_bool)), "1:0");
  EXPECT_EQ(Describe(Sent(variant_value(0x1201LL), enumtype_bool)), "1:1");
}

TEST_F(ValueToHost, BooleanLeavesTheRestOfTheFieldClear) {
  EXPECT_EQ(Sent(variant_value(0x1201LL), enumtype_bool).value.value.uint64, 1u);
}

TEST_F(ValueToHost, RecordCarriesNameStatusAndZeroes) {
  for (const int status : {0, 3, -9}) {
    const Entry entry = Sent(variant_value(1LL), enumtype_int64, status);
    EXPECT_EQ(entry.item, "/r#/a");
    EXPECT_EQ(entry.value.status, status);
    EXPECT_EQ(entry.value.reserved, 0u);
  }
}

TEST_F(ValueToHost, RecordOfAnInvalidValueCarriesTheSame) {
  for (const int type : {5, 6, 100, -1}) {
    for (const int status : {0, 3, -9}) {
      SCOPED_TRACE(type);
      const Entry entry = Sent(variant_value(1LL), type, status);
      EXPECT_EQ(Describe(entry), "5:INVALID");
      EXPECT_EQ(entry.item, "/r#/a");
      EXPECT_EQ(entry.value.status, status);
      EXPECT_EQ(entry.value.reserved, 0u);
    }
  }
}

TEST_F(ValueToHost, ReadyRecordGoesThroughUnchanged) {
  ioDataValue value{};
  value.type = 99;
  value.padding = 1;
  value.value.uint64 = 0x0123456789abcdefU;
  value.status = -4;
  value.reserved = 8;
  feed.UpdateItem("/x", value);
  const Recorder::Entries entries = recorder.All();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].item, "/x");
  EXPECT_EQ(entries[0].record, &value);
  EXPECT_EQ(entries[0].value.type, 99u);
  EXPECT_EQ(entries[0].value.padding, 1u);
  EXPECT_EQ(entries[0].value.value.uint64, 0x0123456789abcdefU);
  EXPECT_EQ(entries[0].value.status, -4);
  EXPECT_EQ(entries[0].value.reserved, 8u);
}

TEST_F(ValueToHost, HostWithoutCallbackGetsNothing) {
  auto silent = std::make_shared<ioHandlerParam>(*parameters);
  silent->itemValue = nullptr;
  const ZoIO::ItemFeed other(silent, nullptr, logger);
  other.UpdateItem("/x", variant_value(1LL), enumtype_int64, 0);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(ValueToHost, ClosedGateKeepsValuesFromTheHost) {
  const auto gate = std::make_shared<ZoIO::CallbackGate>();
  const ZoIO::ItemFeed other(parameters, gate, logger);
  other.UpdateItem("/before", variant_value(1LL), enumtype_int64, 0);
  gate->Close();
  other.UpdateItem("/after", variant_value(1LL), enumtype_int64, 0);
  EXPECT_EQ(recorder.CountValues("/before"), 1u);
  EXPECT_EQ(recorder.Size(), 1u);
}

using ValueOfAnInstance = FakeInstanceTest;

TEST_F(ValueOfAnInstance, RecordReachesTheHostAsItIs) {
  ioDataValue record{};
  record.type = enumtype_int64;
  record.value.int64 = -7;
  record.status = 3;
  client->UpdateItem("/r#/a", record);
  const Recorder::Entries values = recorder.Values("/r#/a");
  ASSERT_EQ(values.size(), 1u);
  EXPECT_EQ(Describe(values[0]), "2:-7");
  EXPECT_EQ(values[0].value.status, 3);
}

TEST_F(ValueOfAnInstance, VariantReachesTheHostWithItsStatus) {
  client->UpdateItem("/r#/a", variant_value(-7LL), enumtype_int64, 3);
  const Recorder::Entries values = recorder.Values("/r#/a");
  ASSERT_EQ(values.size(), 1u);
  EXPECT_EQ(Describe(values[0]), "2:-7");
  EXPECT_EQ(values[0].value.status, 3);
}

}  // namespace
}  // namespace ZoTest
