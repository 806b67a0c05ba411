// Any bytes as a call of a method. For fuzzers, and for replaying what they found.
#pragma once

#include <string_view>

namespace ZoFuzz {

// The first line names the method, the second is the sensor's answer (an empty document where it is no JSON; a fault
// with this text behind a "!"), the rest are the arguments. Called with an idle sensor, a running one and one that is not
// connected. Aborts when a promise is broken.
void PlayMethod(std::string_view script);

}  // namespace ZoFuzz
