#include "bench/zobench/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace ZoBench {
namespace {

int Checked(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

Socket WithoutDelay(Socket socket) {
  const int on = 1;
  Checked(::setsockopt(socket.File(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "setsockopt");
  return socket;
}

}  // namespace

Socket::~Socket() {
  if (file >= 0) {
    ::close(file);
  }
}

Socket Listen(std::uint16_t& port) {
  Socket listener(Checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  Checked(::bind(listener.File(), reinterpret_cast<const sockaddr*>(&address), size), "bind");
  Checked(::listen(listener.File(), 128), "listen");
  Checked(::getsockname(listener.File(), reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
  port = ntohs(address.sin_port);
  return listener;
}

Socket Accept(const Socket& listener) {
  return WithoutDelay(Socket(Checked(::accept4(listener.File(), nullptr, nullptr, SOCK_CLOEXEC), "accept")));
}

Socket Connect(std::uint16_t port) {
  Socket socket(Checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
  const sockaddr_in address = Loopback(port);
  Checked(::connect(socket.File(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "connect");
  return WithoutDelay(std::move(socket));
}

void LimitWaits(const Socket& socket, std::chrono::milliseconds limit) {
  const timeval time{limit.count() / 1000, limit.count() % 1000 * 1000};
  Checked(::setsockopt(socket.File(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time), "setsockopt");
}

void WriteAll(int file, const void* data, std::size_t size) {
  const char* next = static_cast<const char*>(data);
  while (size != 0) {
    const ssize_t sent = ::send(file, next, size, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    Checked(sent < 0 ? -1 : 0, "send");
    next += sent;
    size -= static_cast<std::size_t>(sent);
  }
}

void ReadExactly(int file, void* data, std::size_t size) {
  char* next = static_cast<char*>(data);
  while (size != 0) {
    const ssize_t got = ::recv(file, next, size, 0);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got == 0) {
      throw std::system_error(ECONNRESET, std::generic_category(), "recv");
    }
    Checked(got < 0 ? -1 : 0, "recv");
    next += got;
    size -= static_cast<std::size_t>(got);
  }
}

}  // namespace ZoBench
