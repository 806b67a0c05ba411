// Keeps a port of 127.0.0.1, or of ::1, while the test's server is away: nobody listens there, so that connecting is refused, and the
// system gives it to nobody else. A server that sets SO_REUSEADDR, as ours do, takes it back meanwhile.
//
// Threads and owner: the test's.
#pragma once

#include <sys/socket.h>

#include <cstdint>

namespace ZoTest {

class HeldPort {
 public:
  // Raises std::system_error if it stays taken.
  explicit HeldPort(std::uint16_t port, int family = AF_INET);
  HeldPort(const HeldPort&) = delete;
  HeldPort& operator=(const HeldPort&) = delete;
  ~HeldPort();

 private:
  const int socket;
};

}  // namespace ZoTest
