// What waits to be sent to one client, in order and within bounds.
//
// While little waits, everything is kept. Once more than the soft limit waits, a stream push takes the place
// of the one of the same URI that still waits: a slow client gets the newest values. Beyond the hard limit
// the client is given up. The one that is being written is no longer in the queue, but counts until it is
// done. Threads: the I/O thread alone.
#pragma once

#include <cstddef>
#include <list>
#include <string>
#include <unordered_map>

#include "tools/zosensor/outgoing.h"

namespace ZoSensor {

class SendQueue {
 public:
  explicit SendQueue(std::size_t hardBytes) : hardLimit(hardBytes) {}

  // False when the hard limit is passed: the client is too slow.
  bool Add(Outgoing item);
  bool Empty() const { return items.empty(); }
  // The oldest, to be written; its bytes count until Written. Only when not Empty.
  Outgoing Take();
  void Written();
  // Forgets what waits.
  void Clear();

  std::size_t Bytes() const { return bytes; }
  std::size_t Dropped() const { return dropped; }
  // Whether the client should be left waiting before more of its requests are read.
  bool Congested() const { return bytes > SoftLimit(); }

 private:
  using Items = std::list<Outgoing>;
  // An entry costs more than its text.
  static std::size_t Weight(const Outgoing& item) { return item.text->size() + 128; }
  std::size_t SoftLimit() const { return hardLimit / 4; }

  const std::size_t hardLimit;
  Items items;
  std::unordered_map<std::string, Items::iterator> newestStreamPush;
  std::size_t bytes = 0;
  std::size_t writing = 0;
  std::size_t dropped = 0;
};

}  // namespace ZoSensor
