// How much a client may ask of the emulator. Plain values, set once, most of them from the command line.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace ZoSensor {

struct Limits {
  std::size_t maxMessage = std::size_t{64} << 20;  // bytes of one request; as much as the SDK sends
  std::size_t maxDepth = 256;                      // nesting of one request; the parser allows no more
  // Values of one request, and of the content that it makes. One thread serves everybody: a request must not keep it
  // from the pings of others for a second, and what it costs is a matter of values, hardly of bytes.
  std::size_t maxValues = 250000;
  std::size_t maxClients = 256;  // sessions at once
  // Bytes that wait for one slow client. A quarter of it holds a largest message: one that is answered with
  // its payload, and notified, must neither end the session nor keep the next request waiting.
  std::size_t maxQueue = std::size_t{256} << 20;
  std::size_t maxResources = 100000;
  std::size_t maxWatches = 100000;  // streams and subscriptions of one session
  // Bytes of the text of a content, or of a call's result: it shall still fit into a message.
  std::size_t maxContent = std::size_t{64} << 20;
  // At the REST door: until the next request has come, or while not a byte of a body or an answer moves.
  std::chrono::milliseconds idleTime = std::chrono::seconds(60);
  // Until the first one has come, if that is sooner: who connects and says nothing keeps others out.
  std::chrono::milliseconds firstRequestTime = std::chrono::seconds(5);
  // Connections at the REST door, and such as have not said yet what they want, beside the sessions. As many more are told
  // that there are too many; beyond these they are closed without a word.
  std::size_t spareConnections = 64;
  std::vector<std::string> allowedOrigins;  // beside the server's own; "*" names all
};

}  // namespace ZoSensor
