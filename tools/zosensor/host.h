// Whether a request means this server, by the host that it names.
//
// A page from anywhere may have its own name resolved to the address of a server here; to the browser that
// server is then the page's own origin, and no Origin header gives it away. The name that the request carries
// does. Functions without state.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/ip/address.hpp>

namespace ZoSensor {

// An IPv4 address that is spelled as an IPv6 one, as a socket for both has them, as itself; others as they are.
boost::asio::ip::address Unmapped(const boost::asio::ip::address& address);

bool IsLoopback(const boost::asio::ip::address& address);

// The host of a text such as "localhost:3600" or "[::1]": in lower case, an IPv6 address without its
// brackets. Nothing when the text is no host with or without a port.
std::optional<std::string> HostOf(std::string_view authority);

// host: as HostOf gives it. onLoopback: whether the server listens on the loopback, and so is meant only by its
// names and addresses; elsewhere any IP address is as good, because only names can be made to point here.
// allowed: origins; the host of any of them will do, and any host with "*".
bool IsHostAllowed(std::string_view host, bool onLoopback, const std::vector<std::string>& allowed);

}  // namespace ZoSensor
