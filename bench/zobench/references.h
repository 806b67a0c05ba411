// What the plug-in is compared with: the same work, done as simply as it can be.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/zobench/child.h"
#include "bench/zobench/host.h"
#include "bench/zobench/sockets.h"
#include "bench/zobench/websocket.h"

namespace ZoBench {

// Two processes that exchange bytes over TCP with blocking calls and without delay.
class PingPong {
 public:
  PingPong();
  pid_t Pid() const { return child.Pid(); }
  // Seconds of an exchange, from so many.
  double Exchange(std::uint64_t requestBytes, std::uint64_t answerBytes, std::uint64_t count);

 private:
  Child child;
  Socket socket;
};

// A client that streams resources and looks at nothing but the frames' heads.
class FramesOnlyReader {
 public:
  FramesOnlyReader(std::uint16_t port, const std::vector<std::string>& uris);
  // Reads to the next ping and answers it; returns how many pushes came. Raises CheckFailed when the sensor goes away.
  std::uint64_t TakeToPing();

 private:
  ReceivedFrame NextFrame();

  Socket socket;
  FrameReader reader;
};

// Names and values side by side, handed to a callback one after the other.
class FlatTable {
 public:
  void Add(const std::string& name, double value);
  void Walk(ioItemValueCallback callback, void* context) const;

 private:
  struct Entry {
    std::string name;
    ioDataValue value;
  };
  std::vector<Entry> entries;
};

}  // namespace ZoBench
