#include "tests/wire/swallowingproxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

namespace ZoTest {

namespace {

sockaddr_in LoopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

void Check(bool done, const char* what) {
  if (!done) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

// Which of a connection's ends bytes of a direction come from.
unsigned EndOf(SwallowingProxy::Direction direction) {
  return direction == SwallowingProxy::ToSensor ? 0 : 1;
}

bool SendAll(int socket, const char* data, std::size_t size) {
  while (size != 0) {
    const ssize_t sent = ::send(socket, data, size, MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

}  // namespace

SwallowingProxy::SwallowingProxy(std::uint16_t target, const Break& point) : target(target), point(point) {
  listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = LoopbackAddress(0);
  socklen_t size = sizeof address;
  Check(::bind(listener, reinterpret_cast<const sockaddr*>(&address), size) == 0, "bind");
  Check(::listen(listener, 64) == 0, "listen");
  Check(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
  Check(::pipe2(wake.data(), O_CLOEXEC) == 0, "pipe2");
  port = ntohs(address.sin_port);
  thread = std::thread([this] { Run(); });
}

SwallowingProxy::~SwallowingProxy() {
  ::close(wake[1]);
  thread.join();
  for (Connection& connection : connections) {
    Drop(connection);
  }
  ::close(wake[0]);
  ::close(listener);
}

void SwallowingProxy::Swallow(Direction direction) {
  const std::lock_guard lock(mutex);
  swallowing = direction;
  for (Connection& connection : connections) {
    connection.swallowed |= direction;
  }
}

void SwallowingProxy::PassNewOnes() {
  const std::lock_guard lock(mutex);
  swallowing = 0;
}

unsigned SwallowingProxy::Accepted() const {
  const std::lock_guard lock(mutex);
  return accepted;
}

unsigned SwallowingProxy::Ended() const {
  const std::lock_guard lock(mutex);
  return ended;
}

bool SwallowingProxy::Broken() const {
  const std::lock_guard lock(mutex);
  return broken;
}

std::size_t SwallowingProxy::Passed(unsigned number, Direction direction) const {
  const std::lock_guard lock(mutex);
  const auto found = passed.find(number);
  return found == passed.end() ? 0 : found->second[EndOf(direction)];
}

void SwallowingProxy::Run() {
  while (true) {
    // Only this thread adds and removes connections, so the list stays as it is while nobody holds the lock.
    std::vector<pollfd> watched{{wake[0], POLLIN, 0}, {listener, POLLIN, 0}};
    for (const Connection& connection : connections) {
      for (unsigned end = 0; end < 2; ++end) {
        watched.push_back({connection.open[end] ? connection.ends[end] : -1, POLLIN, 0});
      }
    }
    if (::poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
      return;
    }
    if (watched[0].revents != 0) {
      return;
    }
    const std::lock_guard lock(mutex);
    std::size_t at = 2;
    for (auto connection = connections.begin(); connection != connections.end();) {
      bool over = false;
      for (unsigned end = 0; end < 2; ++end) {
        over = (watched[at++].revents != 0 && !over && !Move(*connection, end)) || over;
      }
      if (over) {
        Drop(*connection);
        ++ended;
        connection = connections.erase(connection);
      } else {
        ++connection;
      }
    }
    if (watched[1].revents != 0) {
      Welcome();
    }
  }
}

void SwallowingProxy::Welcome() {
  Connection connection;
  connection.swallowed = swallowing;
  connection.ends[0] = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  connection.ends[1] = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = LoopbackAddress(target);
  if (connection.ends[0] < 0 ||
      ::connect(connection.ends[1], reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Drop(connection);
    return;
  }
  for (const int end : connection.ends) {
    const int on = 1;
    ::setsockopt(end, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  connection.number = ++accepted;
  if (GoesOn(connection)) {
    connections.push_back(connection);
  } else {
    Drop(connection);
    ++ended;
  }
}

bool SwallowingProxy::Move(Connection& connection, unsigned from) {
  char scratch[65536];
  const bool swallowed = (connection.swallowed & (from == 0 ? ToSensor : ToClient)) != 0;
  const ssize_t got = ::recv(connection.ends[from], scratch, sizeof scratch, 0);
  if (got <= 0) {
    // An end that nobody hears of leaves the other one as it is.
    connection.open[from] = false;
    return swallowed && connection.open[1 - from];
  }
  if (swallowed) {
    return true;
  }
  const std::size_t size = Allowed(connection, from, static_cast<std::size_t>(got));
  passed[connection.number][from] += size;
  return SendAll(connection.ends[1 - from], scratch, size) && GoesOn(connection);
}

std::size_t SwallowingProxy::Allowed(const Connection& connection, unsigned from, std::size_t size) const {
  if (connection.number != point.number || from != EndOf(point.direction)) {
    return size;
  }
  const auto found = passed.find(connection.number);
  const std::size_t before = found == passed.end() ? 0 : found->second[from];
  return std::min(size, point.bytes - std::min(point.bytes, before));
}

bool SwallowingProxy::GoesOn(Connection& connection) {
  if (broken || connection.number != point.number ||
      passed[connection.number][EndOf(point.direction)] < point.bytes) {
    return true;
  }
  broken = true;
  connection.swallowed |= point.lost;
  return point.silent;
}

void SwallowingProxy::Drop(Connection& connection) {
  for (const int end : connection.ends) {
    if (end >= 0) {
      ::close(end);
    }
  }
}

}  // namespace ZoTest
