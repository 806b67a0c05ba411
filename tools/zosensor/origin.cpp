#include "tools/zosensor/origin.h"

#include <algorithm>

#include <fmt/format.h>

namespace ZoSensor {

bool IsOriginAllowed(std::string_view origin, std::string_view localAddress, std::uint16_t port,
                     const std::vector<std::string>& allowed) {
  if (origin.empty()) {
    return true;
  }
  if (std::any_of(allowed.begin(), allowed.end(),
                  [&](const std::string& each) { return each == "*" || each == origin; })) {
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
