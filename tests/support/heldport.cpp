#include "tests/support/heldport.h"

#include <unistd.h>

#include "tests/support/boundsocket.h"

namespace ZoTest {

HeldPort::HeldPort(std::uint16_t port, int family) : socket(BoundSocket(port, family)) {}

HeldPort::~HeldPort() {
  ::close(socket);
}

}  // namespace ZoTest
