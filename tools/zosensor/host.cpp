#include "tools/zosensor/host.h"

#include <algorithm>

namespace ZoSensor {
namespace {

namespace ip = boost::asio::ip;

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// What a registered name or an IPv4 address consists of.
bool IsNameCharacter(char c) {
  return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z') ||
         std::string_view("-._~%!$&'()*+,;=").find(c) != std::string_view::npos;
}

bool IsPort(std::string_view text) {
  return text.empty() || (text.front() == ':' &&
                          std::all_of(text.begin() + 1, text.end(), [](char c) { return IsDigit(c); }));
}

std::optional<ip::address> AddressIn(std::string_view host) {
  boost::system::error_code error;
  const auto address = ip::make_address(std::string(host), error);
  return error ? std::nullopt : std::optional(address);
}

// The host of an origin such as "http://hmi.example:8080".
std::optional<std::string> HostOfOrigin(std::string_view origin) {
  const auto scheme = origin.find("://");
  return HostOf(scheme == std::string_view::npos ? origin : origin.substr(scheme + 3));
}

}  // namespace

ip::address Unmapped(const ip::address& address) {
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return ip::make_address_v4(ip::v4_mapped, address.to_v6());
  }
  return address;
}

bool IsLoopback(const ip::address& address) {
  return Unmapped(address).is_loopback();
}

std::optional<std::string> HostOf(std::string_view authority) {
  std::string host;
  std::string_view port;
  if (authority.starts_with('[')) {
    const auto end = authority.find(']');
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    host = authority.substr(1, end - 1);
    port = authority.substr(end + 1);
    const auto address = AddressIn(host);
    if (!address || !address->is_v6()) {
      return std::nullopt;
    }
  } else {
    const auto end = std::min(authority.find(':'), authority.size());
    host = authority.substr(0, end);
    port = authority.substr(end);
    if (host.empty() || !std::all_of(host.begin(), host.end(), IsNameCharacter)) {
      return std::nullopt;
    }
  }
  if (!IsPort(port)) {
    return std::nullopt;
  }
  std::transform(host.begin(), host.end(), host.begin(), Lower);
  return host;
}

bool IsHostAllowed(std::string_view host, bool onLoopback, const std::vector<std::string>& allowed) {
  if (host == "localhost") {
    return true;
  }
  if (const auto address = AddressIn(host); address && (!onLoopback || IsLoopback(*address))) {
    return true;
  }
  return std::any_of(allowed.begin(), allowed.end(),
                     [&](const std::string& each) { return each == "*" || HostOfOrigin(each) == host; });
}

}  // namespace ZoSensor
