#include "tools/zohost/descriptor.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace zohost {

Descriptor::Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number_, other.number_);
  return *this;
}

Descriptor::~Descriptor() {
  if (number_ >= 0) {
    close(number_);
  }
}

WakeUp::WakeUp() : event_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (event_.Get() < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
}

void WakeUp::Set() noexcept {
  const int before = errno;  // a host callback leaves the plug-in's errno alone
  [[maybe_unused]] const int result = eventfd_write(event_.Get(), 1);  // fails only when it is set already
  errno = before;
}

void WakeUp::Clear() noexcept {
  eventfd_t ignored = 0;
  [[maybe_unused]] const int result = eventfd_read(event_.Get(), &ignored);  // fails when it was not set
}

}  // namespace zohost
