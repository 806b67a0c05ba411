#include "tests/support/boundsocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "tests/support/deadline.h"

namespace ZoTest {

int BoundSocket(std::uint16_t port) {
  const int bound = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  ::setsockopt(bound, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const Deadline deadline;
  while (::bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
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
