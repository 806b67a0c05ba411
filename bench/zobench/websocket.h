// Just enough WebSocket for both ends of a benchmark: the handshake, and frames that are not fragmented.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bench/zobench/sockets.h"

namespace ZoBench {

enum class Opcode : std::uint8_t { Text = 1, Close = 8, Ping = 9, Pong = 10 };

// Reads the upgrade and answers it.
void AcceptWebSocket(const Socket& socket);
// Asks for the upgrade and reads the answer.
void OpenWebSocket(const Socket& socket);

// An unmasked frame, or one with the mask of zeros that clients may send.
std::string Frame(Opcode opcode, std::string_view payload, bool masked = false);

struct ReceivedFrame {
  Opcode opcode = Opcode::Text;
  std::string_view payload;  // unmasked; until the next call
  std::size_t bytes = 0;     // of the whole frame
};

// What has been received and not yet looked at.
class FrameReader {
 public:
  FrameReader();

  // Waits for bytes once. False when the other side has gone.
  bool Fill(int file);
  // The next complete frame, if there is one.
  bool Next(ReceivedFrame& frame);

 private:
  std::vector<char> buffer;
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t wanted = 0;  // bytes of the frame that is not complete yet
};

}  // namespace ZoBench
