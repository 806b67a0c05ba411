// Pushes on their way from the wire to the handlers, spaced so that the newest value is never the one that is
// lost.
//
// Whoever takes values in keeps only the first of two that come within one millisecond. So pushes of one URI
// are handed on at least 2 ms apart from the last push or answer about it; of those that wait the newest
// wins, and a newer answer takes the place of one that waits. An answer that somebody waits for counts from when it was
// taken, but holds a push back for 4 ms at most; and pushes and answers in turn for 50 ms. Invariants: (1) at most one
// push waits for each URI; (2) bytes is the sum over those that wait, with their URIs, delivering over those that were
// taken out last, uriBytes over the URIs that are remembered. A plain state machine: the caller brings the time. Guarded
// by its owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/link/clock.h"

namespace ZoSdk {

struct Push {
  enum class Kind : std::uint8_t { Stream, Notification };
  Kind kind = Kind::Stream;
  ZoJson document;
  std::size_t bytes = 0;
  std::uint64_t order = 0;  // of its arrival; see ZoResponse
};

class PushQueue {
 public:
  void Offer(const std::string& uri, Push push, Time now);

  // An answer with the resource's content arrived. Its receiver may drop it, so it takes the place of a push that
  // waits, and nothing is lost. taking: somebody waits for it and will report AnswerTaken. True when an older push was
  // handed on so short a time before that whoever takes both in may find them in one millisecond.
  bool AnswerArrived(const std::string& uri, const ZoJson& payload, std::size_t size, bool taking, Time now,
                     std::uint64_t order = 0);
  void AnswerTaken(const std::string& uri, Time now);

  // Takes out what is due, oldest due first, at most limit of them. Until Delivered it counts as bytes.
  std::vector<Push> TakeDue(Time now, std::size_t limit);
  // What was taken out has been handed on; the distance to the next counts from now.
  void Delivered(Time now);

  // When the next one is due; never when none waits.
  Time NextDue() const { return order.empty() ? never : order.begin()->first; }

  void Clear();
  bool Full() const;
  std::size_t Waiting() const { return order.size(); }
  std::size_t Bytes() const { return bytes; }
  std::size_t Remembered() const { return slots.size(); }
  std::size_t RememberedBytes() const { return uriBytes; }

 private:
  struct Slot;
  using Slots = std::unordered_map<std::string, Slot>;
  using Order = std::multimap<Time, Slots::value_type*>;
  struct Slot {
    Time last = Time::min();      // the last push handed on, or answer
    Time lastPush = Time::min();  // handed on
    Time began{};                 // to wait
    Time arrived{};               // of what waits, as far as an answer came before it
    Push push;
    bool waiting = false;
    bool handedOn = false;    // taken out, and not reported Delivered yet
    Order::iterator place{};  // only when waiting
  };

  static constexpr std::size_t leastPruned = 1024;
  static constexpr std::size_t longName = 1024;  // bytes, on the average
  static constexpr std::chrono::milliseconds pruneNamesEvery{10};

  static Time DueOf(const Slot& slot, Time now);
  Slots::value_type& Remember(const std::string& uri, Time now);
  void Schedule(Slot& slot, Time now);
  void Move(Slot& slot, Time due);
  void Prune(Time now);

  Slots slots;
  Order order;
  std::size_t bytes = 0;
  std::size_t delivering = 0;
  std::vector<Slot*> handed;  // the slots of what was taken out last
  std::size_t uriBytes = 0;
  std::size_t pruneAt = leastPruned;
  Time pruneNamesAt = Time::min();
};

}  // namespace ZoSdk
