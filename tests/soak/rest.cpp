#include "tests/soak/rest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cstdlib>

namespace ZoSoak {
namespace {

// "HTTP/1.1 200 OK"
int StatusIn(const std::string& answer) {
  const std::size_t blank = answer.find(' ');
  return blank == std::string::npos ? 0 : std::atoi(answer.c_str() + blank + 1);
}

int Exchange(int file, std::uint16_t port, const std::string& request) {
  const timeval limit{2, 0};
  ::setsockopt(file, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(file, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::send(file, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
    return 0;
  }
  std::string answer;
  char block[512];
  // The status line is all that counts; it comes first.
  for (ssize_t got = 0; answer.find('\n') == std::string::npos;
       answer.append(block, static_cast<std::size_t>(got))) {
    got = ::recv(file, block, sizeof block, 0);
    if (got <= 0) {
      return 0;
    }
  }
  return StatusIn(answer);
}

}  // namespace

int AskRest(std::uint16_t port, const std::string& method, const std::string& path, const std::string& body) {
  const int file = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (file < 0) {
    return 0;
  }
  const int status = Exchange(file, port,
                              fmt::format("{} /vyrn/v1/resources{} HTTP/1.1\r\nHost: localhost\r\n"
                                          "Connection: close\r\nContent-Length: {}\r\n\r\n{}",
                                          method, path, body.size(), body));
  ::close(file);
  return status;
}

}  // namespace ZoSoak
