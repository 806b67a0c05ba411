// Feeds bytes to the receiving side of the link: what a sensor may send, between requests that the link made.
#pragma once

#include <string_view>

namespace ZoFuzz {

// A script of lines. "!" lines are what this side does ("!r /uri" and so on, see the .cpp), all others are
// messages of the sensor. Checks the link's invariants on the way and aborts when one does not hold.
void ReceiveScript(std::string_view script);

}  // namespace ZoFuzz
