// One thing to be sent to a session's client. A plain value.
#pragma once

#include <cstdint>
#include <string>

#include "tools/zosensor/answer.h"

namespace ZoSensor {

struct Outgoing {
  enum class Kind : std::uint8_t { Answer, Notification, Stream };
  enum class Framing : std::uint8_t {
    Message,  // one text message
    Bytes,    // as it is, frame header and all
    BytesThenCut
  };

  Kind kind = Kind::Answer;
  Framing framing = Framing::Message;
  SharedText text;
  std::string uri;  // of a stream push, in the client's spelling
};

}  // namespace ZoSensor
