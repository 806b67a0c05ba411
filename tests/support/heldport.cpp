#include "tests/support/heldport.h"

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

HeldPort::HeldPort(std::uint16_t port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  // Somebody's connection may have it for a moment.
  const Deadline deadline;
  while (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (deadline.Expired()) {
      const int reason = errno;
      ::close(socket);
      throw std::system_error(reason, std::generic_category(), "bind");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

HeldPort::~HeldPort() {
  ::close(socket);
}

}  // namespace ZoTest
