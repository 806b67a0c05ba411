#include "tools/zosensor/origin.h"

#include <algorithm>

#include <fmt/format.h>

namespace ZoSensor {

namespace {

// Scheme and host are the same in capitals; browsers write them in small letters.
std::string InSmallLetters(std::string_view text) {
  std::string small(text);
  std::transform(small.begin(), small.end(), small.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return small;
}

}  // namespace

bool IsOriginAllowed(std::string_view originHeader, std::string_view localAddress, std::uint16_t port,
                     const std::vector<std::string>& allowed) {
  if (originHeader.empty()) {
    return true;
  }
  const std::string origin = InSmallLetters(originHeader);
  if (std::any_of(allowed.begin(), allowed.end(),
                  [&](const std::string& each) { return each == "*" || InSmallLetters(each) == origin; })) {
    return true;
  }
  const auto isOwn = [&](std::string_view host) {
    const bool ipv6 = host.find(':') != std::string_view::npos;
    const std::string own = ipv6 ? fmt::format("http://[{}]", host) : fmt::format("http://{}", host);
    return origin == fmt::format("{}:{}", own, port) || (port == 80 && origin == own);
  };
  const bool loopback = localAddress.starts_with("127.") || localAddress == "::1";
  return isOwn(localAddress) || (loopback && isOwn("localhost"));
}

}  // namespace ZoSensor
