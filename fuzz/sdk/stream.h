// Feeds raw bytes, framing and all, to the link's end of a connection, over a real socket.
#pragma once

#include <string_view>

namespace ZoFuzz {

// One session, from its first byte to its last; what the input is made of, streampeer.h says. Checks on the way that
// the link understands the framing as frames.h does, and keeps its promises; aborts when one does not hold.
void PlayStream(std::string_view input);

}  // namespace ZoFuzz
