// Plain blocking sockets on 127.0.0.1. Everything raises std::system_error, also when the other side has gone.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace ZoBench {

class Socket {
 public:
  Socket() = default;
  explicit Socket(int file) : file(file) {}
  Socket(Socket&& other) noexcept : file(std::exchange(other.file, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(file, other.file);
    return *this;
  }
  ~Socket();

  int File() const { return file; }

 private:
  int file = -1;
};

// Listens on a port of the system's choosing.
Socket Listen(std::uint16_t& port);
// Both without delay.
Socket Accept(const Socket& listener);
Socket Connect(std::uint16_t port);
// From now on a receive ends with EAGAIN after so long.
void LimitWaits(const Socket& socket, std::chrono::milliseconds limit);

void WriteAll(int file, const void* data, std::size_t size);
void ReadExactly(int file, void* data, std::size_t size);

}  // namespace ZoBench
