// What waits to be sent to one client, in order and within bounds.
//
// While what waits is young and little, everything is kept. Otherwise a stream push replaces the one of the same URI
// that still waits: a slow client gets the newest values, and answers do not wait behind old ones. It takes its place,
// too, so that every URI has its turn however often it changes; but it never overtakes an answer or a notification.
// Beyond the hard limit the client is given up. The one that is being written is no longer in the queue, but counts
// until it is done. Threads: the I/O thread alone.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>

#include "tools/zosensor/clock.h"
#include "tools/zosensor/outgoing.h"

namespace ZoSensor {

class SendQueue {
 public:
  // How long the oldest may have waited for all to be kept.
  static constexpr std::chrono::milliseconds Patience{100};

  explicit SendQueue(std::size_t hardBytes) : hardLimit(hardBytes) {}

  // False when the hard limit is passed: the client is too slow.
  bool Add(Outgoing item, Time now);
  bool Empty() const { return items.empty(); }
  // The oldest, to be written; its bytes count until Written. Only when not Empty.
  Outgoing Take();
  void Written();
  // Forgets what waits.
  void Clear();

  std::size_t Bytes() const { return bytes; }
  std::size_t Dropped() const { return dropped; }
  // Whether the client should be left waiting before more of its requests are read.
  bool Congested() const { return bytes > hardLimit / 4; }

 private:
  struct Waiting {
    Outgoing item;
    Time since;
  };
  using Items = std::list<Waiting>;
  struct StreamPush {
    Items::iterator place;
    std::uint64_t others = 0;  // how many that are no stream pushes came before it
  };
  // An entry costs more than its text.
  static std::size_t Weight(const Outgoing& item) { return item.text->size() + 128; }
  bool Replace(Outgoing& item);

  const std::size_t hardLimit;
  Items items;
  std::unordered_map<std::string, StreamPush> newestStreamPush;
  std::uint64_t others = 0;
  std::size_t bytes = 0;
  std::size_t writing = 0;
  std::size_t dropped = 0;
};

}  // namespace ZoSensor
