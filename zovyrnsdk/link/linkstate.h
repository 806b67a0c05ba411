// What the link knows and decides, without its threads, its sockets and its clock.
//
// Requests and messages go in, with the time; outcomes land in the pending requests, pushes in the queue,
// messages to send come out. Session and connection are told apart: the state outlives sessions and is told
// when one opens and when it is lost. Threads: none of its own; guarded by its owner, the connection. Nothing
// in here blocks or calls out.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zovyrnsdk/link/clock.h"
#include "zovyrnsdk/link/incoming.h"
#include "zovyrnsdk/link/interest.h"
#include "zovyrnsdk/link/outgoing.h"
#include "zovyrnsdk/link/pendingrequest.h"
#include "zovyrnsdk/link/pushqueue.h"
#include "zovyrnsdk/link/readbrake.h"
#include "zovyrnsdk/link/requesttable.h"
#include "zovyrnsdk/link/restorer.h"
#include "zovyrnsdk/link/watchdog.h"

namespace ZoSdk {

class LinkState {
 public:
  // A caller's request, settled at once where no message is needed, or where waiting for the link has been in vain
  // already: one call in an outage may wait for its end, not each of a long row. False in that last case.
  bool Request(ZoRequestMethod method, const std::string& uri, OutgoingText text,
               const std::shared_ptr<ZoPendingRequest>& pending, Time now);
  // A GetResponse whose time is up: settles it. The limit is for the sentence alone.
  void TimeOut(const std::shared_ptr<ZoPendingRequest>& pending, std::uint64_t limit, Time now);
  void Cancel(const std::shared_ptr<ZoPendingRequest>& pending);
  // A GetResponse returns this outcome to its caller.
  void Taken(const ZoPendingRequest& pending, const ZoRequest& request, Time now);

  void SessionOpened(Time now);
  // reason is a clause for the sentence of those that were under way.
  void SessionLost(const std::string& reason, Time now);
  // The session is about to end because of this message; itself: not because there was no memory just then. What was asked
  // for and brought it is not asked for again, or only after a while.
  void MessageUnusable(std::string_view text, bool itself, Time now);
  // The system was disconnected: everything ends.
  void Close() noexcept;

  // One readable message of the sensor.
  void Receive(Incoming message, Time now);
  void BytesArrived(Time now) { watchdog.BytesArrived(now); }
  void PeerHears(Time when) { watchdog.PeerHears(when); }
  void MessageGrows(Time now) { watchdog.MessageGrows(now); }
  void Paused(Time now) { watchdog.Paused(now); }
  void AnswersPings() { watchdog.AnswersPings(); }
  void Deaf(Duration time, Time now) { watchdog.Deaf(time, now); }

  // The next message to send, if any. Only while a session is open.
  std::optional<std::string> NextMessage(Time now);

  // What the time asks for: ends what waited too long, and tells how the peer does (Healthy while no session
  // is open).
  Watchdog::Verdict Step(Time now);
  // canSend: NextMessage would be asked at once.
  Time NextDue(bool canSend) const;
  bool HasMessage(Time now) const;

  PushQueue& Pushes() { return pushes; }
  const Restorer& Wishes() const { return restorer; }
  const Interest& Interests() const { return interest; }
  const RequestTable& Requests() const { return table; }
  const ReadBrake& Brake() const { return brake; }

 private:
  using Entry = RequestTable::Entry;

  // Returns the id.
  std::uint64_t Enqueue(RequestRole role, ZoRequestMethod method, const std::string& uri, std::string tail,
                        const std::shared_ptr<ZoPendingRequest>& pending, Time now);
  std::uint64_t EnqueueOwn(RequestRole role, ZoRequestMethod method, const std::string& uri, Time now);
  void ReceiveAnswer(Incoming message, Time now);
  void ReceivePush(Incoming message, Time now);
  void AnswerCaller(const Entry& entry, Incoming message, Time now);
  void AnswerRestore(const Entry& entry, const Incoming& message, Time now);
  void NoteOutcome(const Entry& entry, const Incoming& message, std::uint64_t order, Time now);
  void NoteUnanswered(Time now);
  void AskForRestores(Time now);
  void NoteHealthAsked(Time now);
  void SweepStale(Time now);
  void KeepUnheard(Time now);
  void Disown(const std::string& uri);
  static void EndWith(const Entry& entry, const std::string& reason);

  RequestTable table;
  Restorer restorer;
  Interest interest;
  ReadBrake brake;
  PushQueue pushes;
  Watchdog watchdog;
  std::uint64_t healthId = 0;  // of a question about the sensor's health that waits to be sent; 0 for none
  bool open = false;
  Time lostAt = never;        // when open became false
  bool waitedInVain = false;  // somebody, for a whole time-out, since then
  Time nextSweep = never;
};

}  // namespace ZoSdk
