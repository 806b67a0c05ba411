// One message of the sensor, told apart. A plain function, so that it runs outside of every lock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonshapes.h"

namespace ZoSdk {

struct Incoming {
  enum class Kind {
    Answer,        // id and document (without the id) are set
    Stream,        // uri and document are set
    Notification,  // likewise
    Unknown,       // an object that is none of these: to be ignored
    Malformed,     // no JSON object: the session ends
    TooLarge       // one that would cost more memory than documentLimit: likewise
  };
  Kind kind = Kind::Unknown;
  std::uint64_t id = 0;
  std::string uri;
  ZoJson document;
  std::size_t bytes = 0;  // of memory, about, that the document holds
  std::string fault;      // of a malformed one, what is wrong with it
};

// A message that is malformed, and why, provided that there is memory to say it.
Incoming Malformed(const char* fault) noexcept;

// shapes: of the messages before. Raises std::bad_alloc alone.
Incoming ReadIncoming(std::string_view text, ZoJsonShapes& shapes);

// What can still be said of a message that is unreadable: the id or URI it seems to carry near its start or end.
struct Suspect {
  std::optional<std::uint64_t> id;
  std::optional<std::string> uri;
};
Suspect SuspectOf(std::string_view text);

}  // namespace ZoSdk
