// The records as bytes: what a host in either language writes into a field stands where the plug-in looks for
// it.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/xhmi/hostrecords.h"

namespace {

static_assert(sizeof(ioDataValue) == 24 && alignof(ioDataValue) == 8);
static_assert(sizeof(ioHandlerParam) == 17 * 8 && alignof(ioHandlerParam) == 8);
static_assert(sizeof(ioParamInfo) == 24 && alignof(ioParamInfo) == 8);
static_assert(sizeof(ioInfo) == 56 && alignof(ioInfo) == 8);

static_assert(enumtype_string == 0 && enumtype_bool == 1 && enumtype_int64 == 2 && enumtype_double == 3 &&
              enumtype_uint64 == 4 && enumtype_invalid == 5);

constexpr unsigned char untouched = 0xee;

// The bytes of a record that was filled with a pattern before.
template <typename Record, typename Fill>
std::vector<unsigned char> BytesOf(Fill fill) {
  Record record;
  std::memset(&record, untouched, sizeof record);
  fill(&record);
  std::vector<unsigned char> bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

// Expected bytes, written down field by field in little-endian order.
class Expected {
 public:
  template <typename Value>
  Expected& Add(Value value) {
    unsigned char raw[sizeof value];
    std::memcpy(raw, &value, sizeof value);
    bytes.insert(bytes.end(), raw, raw + sizeof value);
    return *this;
  }
  Expected& AddUntouched(std::size_t count) {
    bytes.insert(bytes.end(), count, untouched);
    return *this;
  }
  const std::vector<unsigned char>& Bytes() const { return bytes; }

 private:
  std::vector<unsigned char> bytes;
};

class Layout : public testing::TestWithParam<HostFunctions (*)()> {
 protected:
  const HostFunctions host = GetParam()();
};

TEST(ByteOrder, ThisMachineIsLittleEndian) {
  const std::uint32_t value = 0x01020304;
  unsigned char bytes[4];
  std::memcpy(bytes, &value, sizeof value);
  EXPECT_EQ(bytes[0], 0x04);
}

TEST_P(Layout, DataValueOfAnInteger) {
  const auto bytes = BytesOf<ioDataValue>([this](ioDataValue* value) { host.fillValue(value); });
  EXPECT_EQ(bytes, Expected()
                       .Add(std::uint32_t{0x11121314})
                       .Add(std::uint32_t{0x21222324})
                       .Add(std::int64_t{-0x3132333435363738})
                       .Add(std::int32_t{-0x41424344})
                       .Add(std::uint32_t{0x51525354})
                       .Bytes());
}

TEST_P(Layout, DataValueOfAText) {
  const char* const text = "text";
  const auto bytes = BytesOf<ioDataValue>([&](ioDataValue* value) { host.fillText(value, text); });
  EXPECT_EQ(bytes, Expected().Add(std::uint32_t{0}).AddUntouched(4).Add(text).AddUntouched(8).Bytes());
}

TEST_P(Layout, DataValueOfABooleanIsTheLowByteAlone) {
  const auto bytes = BytesOf<ioDataValue>([this](ioDataValue* value) { host.fillBoolean(value, 1); });
  EXPECT_EQ(bytes,
            Expected().Add(std::uint32_t{1}).AddUntouched(4).Add(std::uint8_t{1}).AddUntouched(15).Bytes());
}

TEST_P(Layout, DataValueOfADouble) {
  const auto bytes = BytesOf<ioDataValue>([this](ioDataValue* value) { host.fillDouble(value, -1.5); });
  // -1.5 is sign 1, exponent 0x3ff, fraction 0x8000000000000.
  EXPECT_EQ(bytes, Expected()
                       .Add(std::uint32_t{3})
                       .AddUntouched(4)
                       .Add(std::uint64_t{0xbff8000000000000})
                       .AddUntouched(8)
                       .Bytes());
}

TEST_P(Layout, HandlerParamIsSeventeenWords) {
  int context = 0;
  const auto bytes = BytesOf<ioHandlerParam>([&](ioHandlerParam* param) { host.fillParam(param, &context); });
  Expected expected;
  expected.Add(HOST_WORD(0)).Add(&context).Add(host.itemValue).Add(host.methodResult);
  for (std::uint64_t word = 4; word <= 14; ++word) {
    expected.Add(HOST_WORD(word));
  }
  expected.Add(host.log).Add(HOST_WORD(16));
  EXPECT_EQ(bytes, expected.Bytes());
}

TEST_P(Layout, ParamInfo) {
  const char* const label = "label";
  const char* const description = "description";
  const auto bytes =
      BytesOf<ioParamInfo>([&](ioParamInfo* info) { host.fillParamInfo(info, label, description); });
  EXPECT_EQ(bytes, Expected().Add(label).Add(description).Add(HOST_WORD(2)).Bytes());
}

TEST_P(Layout, Info) {
  const char* const name = "name";
  const char* const description = "description";
  const ioParamInfo params[1] = {};
  const auto bytes = BytesOf<ioInfo>([&](ioInfo* info) { host.fillInfo(info, name, description, params); });
  EXPECT_EQ(bytes, Expected()
                       .Add(std::uint32_t{100})
                       .Add(std::uint32_t{101})
                       .Add(std::uint32_t{102})
                       .Add(std::uint32_t{103})
                       .Add(name)
                       .Add(description)
                       .Add(std::uint32_t{104})
                       .Add(std::uint32_t{105})
                       .Add(static_cast<const ioParamInfo*>(params))
                       .Add(HOST_WORD(6))
                       .Bytes());
}

INSTANTIATE_TEST_SUITE_P(Hosts, Layout, testing::Values(&CHost, &CppHost),
                         [](const auto& host) { return std::string(host.index == 0 ? "C" : "Cpp"); });

}  // namespace
