#include "qapi/address.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include <algorithm>
#include <random>
#include <string>

namespace {

qIpAddress Parsed(const std::string& text) {
  qIpAddress address;
  EXPECT_EQ(qIpAddress_Parse(text.c_str(), &address), qStatus_Success) << text;
  return address;
}

void ExpectRefused(const std::string& text) {
  qIpAddress address{qIpFamily::V4, {1, 2, 3, 4}, 5};
  EXPECT_EQ(qIpAddress_Parse(text.c_str(), &address), qStatus_InvalidArgument) << '"' << text << '"';
  EXPECT_EQ(address, qIpAddress{}) << '"' << text << '"';
}

TEST(Address, DefaultIsNoAddress) {
  const qIpAddress address;
  EXPECT_EQ(address.family, qIpFamily::None);
  EXPECT_EQ(qIpAddress_Text(address), "");
}

TEST(Address, IPv4UsesTheFirstFourBytes) {
  const qIpAddress address = Parsed("192.0.2.1");
  EXPECT_EQ(address.family, qIpFamily::V4);
  EXPECT_EQ(address, (qIpAddress{qIpFamily::V4, {192, 0, 2, 1}, 0}));
  EXPECT_EQ(qIpAddress_Text(address), "192.0.2.1");
}

TEST(Address, IPv4LimitsAreAccepted) {
  EXPECT_EQ(Parsed("0.0.0.0").family, qIpFamily::V4);
  EXPECT_EQ(Parsed("255.255.255.255"), (qIpAddress{qIpFamily::V4, {255, 255, 255, 255}, 0}));
}

TEST(Address, IPv6IsInNetworkOrder) {
  const qIpAddress address = Parsed("2001:db8::1");
  EXPECT_EQ(address,
            (qIpAddress{qIpFamily::V6, {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 0}));
}

TEST(Address, TextIsCanonical) {
  EXPECT_EQ(qIpAddress_Text(Parsed("2001:0DB8:0:0:0:0:0:0001")), "2001:db8::1");
  EXPECT_EQ(qIpAddress_Text(Parsed("0:0:0:0:0:0:0:0")), "::");
  EXPECT_EQ(qIpAddress_Text(Parsed("::ffff:192.0.2.1")), "::ffff:192.0.2.1");
}

TEST(Address, ZoneMayBeANumber) {
  const qIpAddress address = Parsed("fe80::1%7");
  EXPECT_EQ(address.scope, 7u);
  EXPECT_EQ(qIpAddress_Text(address), "fe80::1%7");
  EXPECT_EQ(Parsed("fe80::1%4294967295").scope, 4294967295u);
}

TEST(Address, ZoneZeroIsNone) {
  EXPECT_EQ(qIpAddress_Text(Parsed("fe80::1%0")), "fe80::1");
}

TEST(Address, ZoneMayBeTheNameOfAnInterface) {
  const unsigned index = if_nametoindex("lo");
  if (index == 0) {
    GTEST_SKIP() << "this machine has no interface \"lo\" whose name could be looked up";
  }
  const qIpAddress address = Parsed("fe80::1%lo");
  EXPECT_EQ(address.scope, index);
  EXPECT_EQ(qIpAddress_Text(address), "fe80::1%" + std::to_string(index));
}

TEST(Address, EverythingElseIsRefused) {
  for (const char* text : {"",
                           " ",
                           "simulator",
                           "localhost",
                           "example.com",
                           "1",
                           "1.2.3",
                           "1.2.3.4.5",
                           "256.0.0.1",
                           "1.2.3.-4",
                           "01.2.3.4",
                           "0x7f.0.0.1",
                           "2130706433",
                           " 1.2.3.4",
                           "1.2.3.4 ",
                           "1.2.3.4:80",
                           "1.2.3.4%1",
                           "[::1]",
                           "::1 ",
                           ":::",
                           "1::2::3",
                           "12345::",
                           "::g",
                           "1:2:3:4:5:6:7",
                           "1:2:3:4:5:6:7:8:9",
                           "::1/64",
                           "%1",
                           "fe80::1%",
                           "fe80::1% 1",
                           "fe80::1%-1",
                           "fe80::1%+1",
                           "fe80::1%1x",
                           "fe80::1%4294967296",
                           "fe80::1%nosuchzone0",
                           "fe80::1%1%1",
                           "fe80::1%lo%lo"}) {
    ExpectRefused(text);
  }
}

TEST(Address, OverlongTextIsRefused) {
  ExpectRefused(std::string(100'000, '1'));
  ExpectRefused("fe80::1%" + std::string(100'000, '0') + "1");
  ExpectRefused("fe80::1%" + std::string(100'000, 'x'));
}

TEST(Address, EqualsOnlyWhatIsTheSameInEveryPart) {
  const qIpAddress address{qIpFamily::V6, {0xFE, 0x80}, 5};
  EXPECT_EQ(address, (qIpAddress{qIpFamily::V6, {0xFE, 0x80}, 5}));
  EXPECT_NE(address, (qIpAddress{qIpFamily::V4, {0xFE, 0x80}, 5}));
  EXPECT_NE(address, (qIpAddress{qIpFamily::V6, {0xFE, 0x81}, 5}));
  EXPECT_NE(address, (qIpAddress{qIpFamily::V6, {0xFE, 0x80}, 6}));
}

TEST(Address, NullPointersAreRefused) {
  qIpAddress address{qIpFamily::V4, {1, 2, 3, 4}, 0};
  EXPECT_EQ(qIpAddress_Parse(nullptr, &address), qStatus_InvalidArgument);
  EXPECT_EQ(address, qIpAddress{});
  EXPECT_EQ(qIpAddress_Parse("1.2.3.4", nullptr), qStatus_InvalidArgument);
  EXPECT_EQ(qIpAddress_Parse(nullptr, nullptr), qStatus_InvalidArgument);
}

TEST(Address, TextOfAnyAddressParsesBackToIt) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 20'000; ++round) {
    qIpAddress address;
    address.family = random() % 2 == 0 ? qIpFamily::V4 : qIpFamily::V6;
    const std::size_t size = address.family == qIpFamily::V4 ? 4 : 16;
    // Many zero bytes, so that the shortened forms come up.
    std::generate_n(address.bytes.begin(), size,
                    [&] { return static_cast<std::uint8_t>(random() % 2 == 0 ? 0 : random()); });
    if (address.family == qIpFamily::V6 && random() % 2 == 0) {
      address.scope = static_cast<std::uint32_t>(random());
    }
    const std::string text = qIpAddress_Text(address);
    ASSERT_EQ(Parsed(text), address) << text;
  }
}

}  // namespace
