#include "tests/plugin/loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace ZoTest {

MutePeer::MutePeer() : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (socket < 0 || ::bind(socket, generic, size) != 0 || ::listen(socket, 16) != 0 ||
      ::getsockname(socket, generic, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "listen on loopback");
  }
  port = ntohs(address.sin_port);
}

MutePeer::~MutePeer() {
  ::close(socket);
}

unsigned short ClosedPort() {
  return MutePeer().Port();
}

}  // namespace ZoTest
