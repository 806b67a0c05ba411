// A socket of 127.0.0.1, or of ::1, for servers of tests that come back on their port.
#pragma once

#include <sys/socket.h>

#include <cstdint>

namespace ZoTest {

// Whether this machine has the loopback address of the family, AF_INET or AF_INET6.
bool HasLoopback(int family);

// Bound with SO_REUSEADDR and not listening yet; the caller closes it. 0: a port that is free. A port that somebody's
// connection has for a moment is waited for; raises std::system_error if it stays taken.
int BoundSocket(std::uint16_t port, int family = AF_INET);

}  // namespace ZoTest
