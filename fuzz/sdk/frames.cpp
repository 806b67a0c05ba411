#include "fuzz/sdk/frames.h"

#include <cstdint>
#include <optional>
#include <utility>

#include "zovyrnsdk/link/outgoing.h"

namespace ZoFuzz {

namespace {

enum Opcode : unsigned { Continuation = 0, Text = 1, Binary = 2, Close = 8, Ping = 9, Pong = 10 };

struct Frame {
  unsigned opcode = 0;
  bool fin = false;
  std::string payload;
};

class Reader {
 public:
  Reader(std::string_view bytes, Side sender) : rest(bytes), masked(sender == Side::Link) {}

  Framing Read() {
    while (framing.fault.empty() && !framing.closed && !rest.empty()) {
      const auto frame = Next();
      if (!frame) {
        framing.tail = framing.fault.empty();
        break;
      }
      Take(*frame);
    }
    framing.bytesBehind = framing.closed ? rest.size() : 0;
    return std::move(framing);
  }

 private:
  std::optional<Frame> Fault(const char* what) {
    framing.fault = what;
    return std::nullopt;
  }

  // None when it is not whole, or at a fault.
  std::optional<Frame> Next() {
    const auto byte = [this](std::size_t i) { return static_cast<unsigned char>(rest[i]); };
    if (rest.size() < 2) {
      return std::nullopt;
    }
    Frame frame;
    frame.fin = (byte(0) & 0x80U) != 0;
    frame.opcode = byte(0) & 0x0FU;
    std::uint64_t length = byte(1) & 0x7FU;
    const bool control = frame.opcode >= Close;
    if ((byte(0) & 0x70U) != 0) {
      return Fault("reserved bits");
    }
    if (frame.opcode > Pong || (frame.opcode > Binary && frame.opcode < Close)) {
      return Fault("reserved opcode");
    }
    if (((byte(1) & 0x80U) != 0) != masked) {
      return Fault("masked by the wrong side");
    }
    if (control && (!frame.fin || length > 125)) {
      return Fault("large control frame");
    }
    if (!control && (frame.opcode == Continuation) != inside) {
      return Fault("continues nothing, or begins inside");
    }
    const std::size_t extra = length == 126 ? 2 : length == 127 ? 8 : 0;
    const std::size_t head = 2 + extra + (masked ? 4 : 0);
    if (rest.size() < head) {
      return std::nullopt;
    }
    length = extra == 0 ? length : 0;
    for (std::size_t i = 0; i < extra; ++i) {
      length = length << 8U | byte(2 + i);
    }
    if ((extra == 2 && length < 126) || (extra == 8 && length <= 0xFFFF)) {
      return Fault("length in the wrong form");
    }
    if (length > rest.size() - head) {
      return std::nullopt;
    }
    frame.payload = rest.substr(head, static_cast<std::size_t>(length));
    for (std::size_t i = 0; masked && i < frame.payload.size(); ++i) {
      frame.payload[i] = static_cast<char>(frame.payload[i] ^ rest[head - 4 + i % 4]);
    }
    rest.remove_prefix(head + frame.payload.size());
    return frame;
  }

  void Take(const Frame& frame) {
    switch (frame.opcode) {
      case Close:
        framing.closed = true;
        return;
      case Ping:
        ++framing.pings;
        return;
      case Pong:
        ++framing.pongs;
        return;
      default:
        break;
    }
    if (frame.opcode != Continuation) {
      message.binary = frame.opcode == Binary;
    }
    message.text += frame.payload;
    inside = !frame.fin;
    if (inside) {
      return;
    }
    if (!message.binary && !ZoSdk::IsUtf8(message.text)) {
      framing.fault = "no UTF-8";
      return;
    }
    framing.messages.push_back(std::exchange(message, {}));
  }

  std::string_view rest;
  const bool masked;
  bool inside = false;  // a message of several frames
  FramedMessage message;
  Framing framing;
};

}  // namespace

Framing ReadFraming(std::string_view bytes, Side sender) {
  return Reader(bytes, sender).Read();
}

}  // namespace ZoFuzz
