// IP addresses.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "qapi/status.h"

enum class qIpFamily : std::uint8_t { None, V4, V6 };

// An IPv4 or IPv6 address; a plain value. The default is no address at all.
struct qIpAddress {
  qIpFamily family = qIpFamily::None;
  std::array<std::uint8_t, 16> bytes{};  // network order; an IPv4 address uses the first four
  std::uint32_t scope = 0;               // IPv6 zone index, 0 for none

  friend bool operator==(const qIpAddress&, const qIpAddress&) = default;
};

// Parses "192.0.2.1", "2001:db8::1" or "fe80::1%eth0" (zone by name or number). On failure *out is no
// address.
qStatus qIpAddress_Parse(const char* text, qIpAddress* out);

// The canonical text, empty for no address.
std::string qIpAddress_Text(const qIpAddress& address);
