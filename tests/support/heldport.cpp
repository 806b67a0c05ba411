#include "tests/support/heldport.h"

#include <unistd.h>

#include "tests/support/boundsocket.h"

namespace ZoTest {

HeldPort::HeldPort(std::uint16_t port) : socket(BoundSocket(port)) {}

HeldPort::~HeldPort() {
  ::close(socket);
}

}  // namespace ZoTest
