// Feeds bytes to what the emulator takes from outside: messages of a session, requests of the REST door,
// resource files. Each checks its promises on the way and aborts when one does not hold. For fuzzers, and for
// replaying what they found.
#pragma once

#include <string_view>

namespace ZoFuzz {

// A session's life, a line each: "@" and a number lets that many milliseconds pass, "#" and a setting such as
// "lose=0.5" changes the faults, everything else is a message of the client.
void PlaySession(std::string_view script);

// Requests, separated by lines with a single "%": the first line is method and target, the rest the body.
void PlayRest(std::string_view script);

// A resource file. One that is accepted is run for a moment.
void PlayResourceFile(std::string_view text);

}  // namespace ZoFuzz
