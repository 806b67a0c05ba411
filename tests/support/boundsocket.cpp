#include "tests/support/boundsocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "tests/support/deadline.h"

namespace ZoTest {

namespace {

int BindToLoopback(int bound, int family, std::uint16_t port) {
  if (family == AF_INET6) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = in6addr_loopback;
    return ::bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return ::bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace

bool HasLoopback(int family) {
  const int probe = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (probe < 0) {
    return false;
  }
  const bool bound = BindToLoopback(probe, family, 0) == 0;
  ::close(probe);
  return bound;
}

int BoundSocket(std::uint16_t port, int family) {
  const int bound = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  ::setsockopt(bound, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const Deadline deadline;
  while (BindToLoopback(bound, family, port) != 0) {
    if (deadline.Expired()) {
      const int reason = errno;
      ::close(bound);
      throw std::system_error(reason, std::generic_category(), "bind");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return bound;
}

}  // namespace ZoTest
