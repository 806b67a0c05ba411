// The requests under way: those that wait to be sent, in order, and those that wait for their answer, by id.
//
// Ids rise over the link's whole life and are never used twice. Requests are looked at weakly: one whose last
// transaction is gone costs nothing but its place here until it is answered or swept. A plain container: the
// caller brings the time. Guarded by its owner.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "zovyrnsdk/link/clock.h"
#include "zovyrnsdk/link/pendingrequest.h"
#include "zovyrnsdk/zorequest.h"

namespace ZoSdk {

// Whose request it is. All but the callers' are the link's own.
enum class RequestRole : std::uint8_t {
  Caller,
  Restore,  // brings a stream or subscription back
  Probe,    // asks for a braked URI
  Health,   // asks a sensor that left requests unanswered about itself
  Cleanup   // ends a stream or subscription that was cancelled while it was being restored
};

class RequestTable {
 public:
  struct Entry {
    ZoRequestMethod method = ZoRequestMethod_Read;
    RequestRole role = RequestRole::Caller;
    bool sent = false;
    bool superseded =
        false;          // a later request undid it before its answer came, or its answer ends the session
    bool ends = false;  // a stream or subscription that the sensor had granted, and so does the session's end
    std::string uri;
    std::string tail;  // the message behind its id; empty once sent
    std::weak_ptr<ZoPendingRequest> pending;
    Time since{};  // made, or sent
  };

  // Returns the id.
  std::uint64_t Add(Entry entry);

  // The message of the oldest request that waits to be sent; it then waits for its answer.
  std::optional<std::string> NextMessage(Time now);
  // Whether anything waits to be sent.
  bool HasUnsent() const { return unsent != 0; }

  // Takes an entry out.
  std::optional<Entry> Take(std::uint64_t id);
  // Takes an entry out, or gives a copy of one of which keep says that it stays for its answer.
  template <typename Predicate>
  std::optional<Entry> TakeUnless(std::uint64_t id, Predicate keep) {
    const Entry* const entry = Find(id);
    return entry != nullptr && keep(*entry) ? std::optional(*entry) : Take(id);
  }
  // The session's end, too, does what this one asks for.
  void MarkEnds(std::uint64_t id);
  // The entry, or null.
  const Entry* Find(std::uint64_t id) const;

  // Takes out what the broken session leaves without an answer: all that was sent, and unsent ones of the
  // link's own, or that the session's end has done.
  std::vector<Entry> TakeSessionBound();
  // Shows each entry to the visitor, and forgets them all. Allocates nothing.
  template <typename Visitor>
  void Clear(Visitor visit) {
    for (const auto& [id, entry] : entries) {
      visit(entry);
    }
    entries.clear();
    queue.clear();
    unsent = 0;
    restoring = 0;
  }
  // Takes out what has waited too long for an answer, or to be sent with nobody waiting.
  std::vector<Entry> TakeStale(Time now);

  std::size_t Count(RequestRole role) const;
  // Marks the callers' requests of this kind.
  void Supersede(ZoRequestMethod method, const std::string& uri);
  // Whether a caller's request of this kind is under way that no later one has undone.
  bool Has(ZoRequestMethod method, const std::string& uri) const;
  // Shows each entry, with its id, to the visitor.
  template <typename Visitor>
  void ForEach(Visitor visit) {
    for (auto& [id, entry] : entries) {
      visit(id, entry);
    }
  }
  std::size_t Size() const { return entries.size(); }
  std::size_t QueueLength() const { return queue.size(); }
  std::uint64_t LastId() const { return lastId; }

 private:
  template <typename Predicate>
  std::vector<Entry> TakeIf(Predicate predicate);
  void NoteGone(const Entry& entry);

  std::unordered_map<std::uint64_t, Entry> entries;
  std::deque<std::uint64_t> queue;  // ids in sending order, some of them gone already
  std::size_t unsent = 0;
  std::size_t restoring = 0;
  std::uint64_t lastId = 0;
};

}  // namespace ZoSdk
