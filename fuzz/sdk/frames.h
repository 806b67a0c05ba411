// A second, plain reading of the WebSocket's framing, to hold the link's against.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ZoFuzz {

enum class Side { Sensor, Link };  // who sent the bytes: the link masks its frames, the sensor does not

struct FramedMessage {
  std::string text;
  bool binary = false;
};

struct Framing {
  std::vector<FramedMessage> messages;  // the whole ones, up to the first fault or closing frame
  std::size_t pings = 0;
  std::size_t pongs = 0;
  std::string fault;            // the first one; empty when there is none
  bool closed = false;          // a closing frame came
  bool tail = false;            // bytes of a frame that is not whole
  std::size_t bytesBehind = 0;  // behind the closing frame
};

Framing ReadFraming(std::string_view bytes, Side sender);

}  // namespace ZoFuzz
