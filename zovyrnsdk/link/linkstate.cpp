#include "zovyrnsdk/link/linkstate.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>

#include "zovyrnsdk/link/limits.h"
#include "zovyrnsdk/link/members.h"

namespace ZoSdk {

namespace {

constexpr std::chrono::milliseconds sweepInterval{500};
constexpr int brakedStatus = -599;
constexpr const char* isMute = "The sensor has not answered about this resource; it is being asked.";
constexpr const char* endsSessions =
    "The sensor's answers about this resource end the session; it is asked ever more rarely.";

// Over all links, for one that is connected anew goes on with the same values in its user's hands.
std::atomic<std::uint64_t> arrivals{0};

// 0 when there is none.
long long StatusOf(const ZoJson& document) {
  const ZoJson* const status = document.Find(statusMember);
  return status != nullptr && status->IsInteger() ? status->Get<long long>() : 0;
}

bool HasContent(const ZoJson& document) {
  const ZoJson* const payload = document.Find(payloadMember);
  return payload != nullptr && !payload->IsNull();
}

// Whether an answer grants what was asked for. A stream's first content is as good as the status that says so: whoever
// asked goes by the content, provided that there is a status at all.
bool Grants(ZoRequestMethod method, const ZoJson& document) {
  const long long status = StatusOf(document);
  const ZoJson* const payload = document.Find(payloadMember);
  return status == 1 ||
         (status != 0 && method == ZoRequestMethod_StartStream && payload != nullptr && !payload->Empty());
}

// The URI that an answer names by itself.
std::optional<std::string> UriOf(const ZoJson& document) {
  const ZoJson* const uri = document.Find(uriMember);
  return uri != nullptr && uri->IsString() ? std::optional(uri->Get<std::string>()) : std::nullopt;
}

// Whether a success of this method answers with the resource's content.
bool AnswersWithContent(ZoRequestMethod method) {
  return method == ZoRequestMethod_Read || method == ZoRequestMethod_StartStream;
}

std::optional<Restorer::Key> WishStartedBy(ZoRequestMethod method, const std::string& uri) {
  if (method == ZoRequestMethod_StartStream) {
    return Restorer::Key(Restorer::Kind::Stream, uri);
  }
  if (method == ZoRequestMethod_Sub) {
    return Restorer::Key(Restorer::Kind::Subscription, uri);
  }
  return std::nullopt;
}

std::optional<Restorer::Key> WishEndedBy(ZoRequestMethod method, const std::string& uri) {
  if (method == ZoRequestMethod_StopStream) {
    return Restorer::Key(Restorer::Kind::Stream, uri);
  }
  if (method == ZoRequestMethod_UnSub) {
    return Restorer::Key(Restorer::Kind::Subscription, uri);
  }
  return std::nullopt;
}

std::string InSeconds(std::uint64_t microseconds) {
  std::string text = std::to_string(static_cast<double>(microseconds) / 1e6);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) {
    text.pop_back();
  }
  return text + " s";
}

}  // namespace

bool LinkState::Request(ZoRequestMethod method, const std::string& uri, OutgoingText text,
                        const std::shared_ptr<ZoPendingRequest>& pending, Time now) {
  if (text.status != 1) {
    pending->Answer(ZoRequestResponse(LocalAnswer(text.status, uri, text.error)));
    return true;
  }
  bool ends = false;
  if (const auto wish = WishEndedBy(method, uri)) {
    // Whichever is asked for last decides, in whatever order the answers come: starts made before are undone by this,
    // granted already or not.
    const bool stream = wish->first == Restorer::Kind::Stream;
    table.Supersede(stream ? ZoRequestMethod_StartStream : ZoRequestMethod_Sub, uri);
    interest.Ended(*wish);
    const Restorer::Cancelled cancelled = restorer.Cancel(*wish);
    if (cancelled == Restorer::Cancelled::Doubtful) {
      EnqueueOwn(RequestRole::Cleanup, method, uri, now);
    }
    if (cancelled == Restorer::Cancelled::Waiting || cancelled == Restorer::Cancelled::Doubtful) {
      pending->Answer(ZoRequestResponse(LocalAnswer(1, uri, std::string())));
      return true;
    }
    ends = cancelled == Restorer::Cancelled::Active;
  }
  if (method == ZoRequestMethod_Read) {
    const ReadBrake::Ruling ruling = brake.Read(uri, now);
    if (ruling != ReadBrake::Ruling::Send && brake.EndsSessions(uri) && brake.HasHeard(uri)) {
      pending->Fail(endsSessions);  // an answer would take the place of the last value
      return true;
    }
    if (ruling != ReadBrake::Ruling::Send) {
      // In its place among what arrives: a push that comes now is newer.
      const ZoArrival arrival{.order = ++arrivals, .bytes = 0, .closeToPush = false};
      pending->Answer(ZoRequestResponse(
          LocalAnswer(brakedStatus, uri, brake.EndsSessions(uri) ? endsSessions : isMute), arrival));
      if (ruling == ReadBrake::Ruling::AnswerAndProbe) {
        Enqueue(RequestRole::Probe, method, uri, std::move(text.tail), nullptr, now);
      }
      return true;
    }
  }
  if (!open && waitedInVain) {
    if (method == ZoRequestMethod_Read) {
      brake.ReadUnanswered(uri, now);
    }
    if (method == ZoRequestMethod_Sub) {
      const Restorer::Key wish(Restorer::Kind::Subscription, uri);
      interest.Asked(wish, table.LastId());
      restorer.Unheard(wish, table.LastId(), now);
    }
    pending->Fail("The link to the sensor is down.");
    return false;
  }
  const std::uint64_t id = Enqueue(RequestRole::Caller, method, uri, std::move(text.tail), pending, now);
  if (ends) {
    table.MarkEnds(id);
  }
  if (const auto wish = WishStartedBy(method, uri)) {
    try {
      interest.Asked(*wish, id);
    } catch (...) {  // what is reported as failed must not be sent
      table.Take(id);
      throw;
    }
  }
  return true;
}

void LinkState::TimeOut(const std::shared_ptr<ZoPendingRequest>& pending, std::uint64_t limit, Time now) {
  // A stream or subscription that is granted late counts: the sensor then serves it. And one that has ended here must
  // end there, too.
  const auto entry = table.TakeUnless(pending->id, [](const Entry& each) {
    return each.sent ? WishStartedBy(each.method, each.uri).has_value() : each.ends;
  });
  const bool sent = entry && entry->sent;
  const bool stuck = entry && !sent && open;  // behind others, on a link that is slow but there
  if (entry && entry->ends) {
    // Whatever still comes is dropped.
    pending->Answer(ZoRequestResponse(LocalAnswer(1, entry->uri, std::string())));
    if (sent) {
      NoteUnanswered(now);
    }
    return;
  }
  const char* const what = stuck            ? "The request could not be sent to the sensor within "
                           : sent || !entry ? "The sensor did not answer within "
                                            : "The link to the sensor was down for ";
  if (!pending->Fail(what + InSeconds(limit) + ".")) {
    return;
  }
  if (!entry) {
    return;
  }
  waitedInVain = waitedInVain || (!open && lostAt != never && now >= lostAt + requestPatience);
  if (entry->method == ZoRequestMethod_Read && !stuck) {
    brake.ReadUnanswered(entry->uri, now);
  }
  if (sent) {
    NoteUnanswered(now);
  } else if (entry->method == ZoRequestMethod_Sub && !entry->superseded) {
    // Whoever is not given a stream subscribes. There is nothing else to try for whoever is not even that.
    restorer.Unheard({Restorer::Kind::Subscription, entry->uri}, pending->id, now);
  }
}

void LinkState::Cancel(const std::shared_ptr<ZoPendingRequest>& pending) {
  pending->Fail("The request was cancelled.");
  // Of a stop that was reported as done the sensor still has to hear.
  table.TakeUnless(pending->id, [](const Entry& each) { return each.ends; });
}

void LinkState::Taken(const ZoPendingRequest& pending, const ZoRequest& request, Time now) {
  if (pending.id != 0 && request.Method() == ZoRequestMethod_Read) {
    pushes.AnswerTaken(request.Uri(), now);
  }
}

void LinkState::SessionOpened(Time now) {
  open = true;
  waitedInVain = false;
  watchdog.SessionOpened(now);
  brake.SessionOpened();
}

void LinkState::SessionLost(const std::string& reason, Time now) {
  lostAt = open ? now : lostAt;
  open = false;
  // First, with everything still in the table: should there be no memory, all of this is done again.
  KeepUnheard(now);
  for (const Entry& entry : table.TakeSessionBound()) {
    EndWith(entry, reason);
  }
  restorer.SessionLost(now);
}

// The sensor may have granted what it was asked for and could not say so. Whoever asked may not ask again.
void LinkState::KeepUnheard(Time now) {
  table.ForEach([&](std::uint64_t id, const Entry& entry) {
    const auto wish = entry.role == RequestRole::Caller && entry.sent && !entry.superseded
                          ? WishStartedBy(entry.method, entry.uri)
                          : std::nullopt;
    if (wish) {
      restorer.Unheard(*wish, id, now);
    }
  });
}

void LinkState::EndWith(const Entry& entry, const std::string& reason) {
  const auto pending = entry.pending.lock();
  if (!pending) {
    return;
  }
  try {
    if (entry.ends) {
      // The session took it along, so that what was asked for is done.
      pending->Answer(ZoRequestResponse(LocalAnswer(1, entry.uri, std::string())));
    } else {
      pending->Fail("The link to the sensor broke before the answer came: " + reason + ".");
    }
  } catch (const std::bad_alloc&) {  // the others must hear of it as well
    pending->Fail("The link to the sensor broke before the answer came.");
  }
}

void LinkState::MessageUnusable(std::string_view text, bool itself, Time now) {
  const Suspect suspect = SuspectOf(text);
  const Entry* const entry = suspect.id ? table.Find(*suspect.id) : nullptr;
  if (entry == nullptr && !suspect.uri) {
    return;
  }
  const std::string& uri = entry != nullptr ? entry->uri : *suspect.uri;
  // An answer that nobody waits for any more was to a read as a rule: most requests are, and large answers come late.
  const bool late = entry == nullptr && suspect.id && *suspect.id <= table.LastId() && brake.Expects(uri);
  if (late || (entry != nullptr && entry->method == ZoRequestMethod_Read)) {
    // Which says nothing of what is pushed.
    if (itself) {
      brake.ReadEndedTheSession(uri, now);
    }
    return;
  }
  Disown(uri);
  restorer.Blame(uri);
}

// Starts that the resource may come of and that are not granted yet: each session would end like this one.
void LinkState::Disown(const std::string& uri) {
  table.ForEach([&](std::uint64_t, Entry& entry) {
    const auto wish = WishStartedBy(entry.method, entry.uri);
    entry.superseded = entry.superseded || (entry.sent && wish && Concerns(*wish, uri));
  });
}

void LinkState::Close() noexcept {
  open = false;
  table.Clear([](const Entry& entry) {
    if (const auto pending = entry.pending.lock()) {
      pending->Fail("The system was disconnected.");
    }
  });
  restorer.CancelAll();
  interest.Clear();
  pushes.Clear();
}

void LinkState::Receive(Incoming message, Time now) {
  switch (message.kind) {
    case Incoming::Kind::Answer:
      ReceiveAnswer(std::move(message), now);
      break;
    case Incoming::Kind::Stream:
    case Incoming::Kind::Notification:
      ReceivePush(std::move(message), now);
      break;
    case Incoming::Kind::Unknown:
    case Incoming::Kind::Malformed:
    case Incoming::Kind::TooLarge:
      break;
  }
}

void LinkState::ReceiveAnswer(Incoming message, Time now) {
  const bool asked = message.id <= table.LastId();
  if (asked) {
    watchdog.AnswerArrived();
    watchdog.PeerHears(now);
  }
  // It stays in the table until all is noted: should there be no memory for that, it counts as lost with the session.
  const std::uint64_t id = message.id;
  const Entry* const entry = table.Find(id);
  if (entry == nullptr) {
    // Late, or never asked for. A late one may be the very answer that the brake was set for.
    if (const auto uri = UriOf(message.document); asked && uri) {
      brake.Spoken(*uri);
      brake.ReadAnswered(*uri);
    }
    return;
  }
  if (entry->method == ZoRequestMethod_Read) {
    brake.ReadAnswered(entry->uri);
  }
  if (AnswersWithContent(entry->method) && HasContent(message.document)) {
    brake.Answered(entry->uri);
  } else {
    brake.Spoken(entry->uri);
  }
  switch (entry->role) {
    case RequestRole::Caller:
      AnswerCaller(*entry, std::move(message), now);
      break;
    case RequestRole::Restore:
      AnswerRestore(*entry, message, now);
      break;
    case RequestRole::Probe:
    case RequestRole::Health:
    case RequestRole::Cleanup:
      break;
  }
  table.Take(id);
}

void LinkState::ReceivePush(Incoming message, Time now) {
  if (!interest.Covers(message.uri)) {
    brake.Spoken(message.uri);
    return;
  }
  if (HasContent(message.document)) {
    brake.Pushed(message.uri);
  } else {
    brake.Spoken(message.uri);
  }
  Push push;
  push.kind = message.kind == Incoming::Kind::Stream ? Push::Kind::Stream : Push::Kind::Notification;
  push.document = std::move(message.document);
  push.bytes = message.bytes;
  push.order = ++arrivals;
  pushes.Offer(message.uri, std::move(push), now);
}

void LinkState::AnswerCaller(const Entry& entry, Incoming message, Time now) {
  const auto pending = entry.pending.lock();
  const long long status = StatusOf(message.document);
  const bool bare = message.document.Empty();
  ZoArrival arrival{.order = ++arrivals, .bytes = message.bytes, .closeToPush = false};
  const ZoJson* const payload = message.document.Find(payloadMember);
  if (entry.method == ZoRequestMethod_Read && pending && status == 1 && payload != nullptr) {
    arrival.closeToPush =
        pushes.AnswerArrived(entry.uri, *payload, message.bytes, pending->waiters != 0, now, arrival.order);
  }
  NoteOutcome(entry, message, arrival.order, now);
  if (!pending) {
    return;
  }
  if (entry.ends && bare) {
    // What was granted ended by itself, with its resource. The stop is as good as any, and not one of what was never there.
    pending->Answer(ZoRequestResponse(LocalAnswer(1, entry.uri, std::string()), arrival));
  } else if (status == 0 && !bare) {
    pending->Fail("The sensor's answer carries no status.");
  } else {
    pending->Answer(ZoRequestResponse(std::move(message.document), arrival));
  }
}

// What the answer to a caller's request means for its wish.
void LinkState::NoteOutcome(const Entry& entry, const Incoming& message, std::uint64_t order, Time now) {
  const auto wish = WishStartedBy(entry.method, entry.uri);
  if (!wish || entry.superseded) {
    return;
  }
  if (!Grants(entry.method, message.document)) {
    interest.Refused(*wish, message.id);
    restorer.Forget(*wish, message.id);
    return;
  }
  restorer.Granted(*wish, message.id);
  if (wish->first == Restorer::Kind::Stream && message.document.HasKey(payloadMember)) {
    pushes.AnswerArrived(entry.uri, message.document.At(payloadMember), message.bytes, false, now, order);
  }
}

void LinkState::AnswerRestore(const Entry& entry, const Incoming& message, Time now) {
  const auto wish = WishStartedBy(entry.method, entry.uri);
  if (!Grants(entry.method, message.document)) {
    if (const auto id = restorer.Refused(*wish, now)) {
      interest.Refused(*wish, *id);
    }
    return;
  }
  if (!restorer.Restored(*wish)) {
    // Cancelled meanwhile, so the sensor is told; unless the caller has asked for it anew.
    if (!table.Has(entry.method, entry.uri)) {
      const bool stream = wish->first == Restorer::Kind::Stream;
      EnqueueOwn(RequestRole::Cleanup, stream ? ZoRequestMethod_StopStream : ZoRequestMethod_UnSub, entry.uri,
                 now);
    }
    return;
  }
  if (wish->first == Restorer::Kind::Stream && message.document.HasKey(payloadMember)) {
    Push push;
    push.document = ZoJson::EmptyObject();
    push.document.Set("event", "stream");
    push.document.Set("uri", entry.uri);
    push.document.Set("payload", message.document.At(payloadMember));
    push.bytes = message.bytes;
    push.order = ++arrivals;
    pushes.Offer(entry.uri, std::move(push), now);
  }
}

std::optional<std::string> LinkState::NextMessage(Time now) {
  // Restores and callers take turns: neither waits behind a long row of the other.
  AskForRestores(now);
  auto message = table.NextMessage(now);
  NoteHealthAsked(now);
  return message;
}

void LinkState::NoteHealthAsked(Time now) {
  const Entry* const entry = healthId != 0 ? table.Find(healthId) : nullptr;
  if (entry != nullptr && entry->sent) {
    watchdog.HealthAsked(now);
    healthId = 0;
  }
}

void LinkState::AskForRestores(Time now) {
  if (!open || table.Count(RequestRole::Restore) >= restoreWindow) {
    return;
  }
  if (const auto wish = restorer.Next(now)) {
    const bool stream = wish->first == Restorer::Kind::Stream;
    EnqueueOwn(RequestRole::Restore, stream ? ZoRequestMethod_StartStream : ZoRequestMethod_Sub, wish->second,
               now);
  }
}

Watchdog::Verdict LinkState::Step(Time now) {
  if (now >= nextSweep) {
    SweepStale(now);
  }
  return open ? watchdog.Step(now) : Watchdog::Verdict::Healthy;
}

bool LinkState::HasMessage(Time now) const {
  return table.HasUnsent() ||
         (restorer.NextDue() <= now && table.Count(RequestRole::Restore) < restoreWindow);
}

Time LinkState::NextDue(bool canSend) const {
  Time due = nextSweep;
  if (open) {
    due = std::min(due, watchdog.NextDue());
    if (canSend && table.Count(RequestRole::Restore) < restoreWindow) {
      due = std::min(due, restorer.NextDue());
    }
  }
  return due;
}

void LinkState::SweepStale(Time now) {
  for (const Entry& entry : table.TakeStale(now)) {
    if (entry.role == RequestRole::Restore) {
      restorer.Unanswered(*WishStartedBy(entry.method, entry.uri), now);
    }
    if (entry.sent) {
      NoteUnanswered(now);
    } else if (entry.role == RequestRole::Health) {
      watchdog.HealthNotAsked();
    }
    if (const auto pending = entry.pending.lock()) {
      pending->Fail(open ? "The request could not be sent to the sensor, and nobody waited for it."
                         : "The link to the sensor was down, and nobody waited for the request.");
    }
  }
  nextSweep = table.Size() == 0 ? never : now + sweepInterval;
}

void LinkState::NoteUnanswered(Time now) {
  if (open && watchdog.RequestUnanswered()) {
    try {
      healthId = EnqueueOwn(RequestRole::Health, ZoRequestMethod_Read, "/system", now);
    } catch (...) {  // or nobody would ever ask again
      watchdog.HealthNotAsked();
      throw;
    }
  }
}

std::uint64_t LinkState::Enqueue(RequestRole role, ZoRequestMethod method, const std::string& uri,
                                 std::string tail, const std::shared_ptr<ZoPendingRequest>& pending,
                                 Time now) {
  Entry entry;
  entry.method = method;
  entry.role = role;
  entry.uri = uri;
  entry.tail = std::move(tail);
  entry.pending = pending;
  entry.since = now;
  const std::uint64_t id = table.Add(std::move(entry));
  if (pending) {
    pending->id = id;
  }
  if (nextSweep == never) {
    nextSweep = now + sweepInterval;
  }
  return id;
}

std::uint64_t LinkState::EnqueueOwn(RequestRole role, ZoRequestMethod method, const std::string& uri,
                                    Time now) {
  return Enqueue(role, method, uri, ComposeRequest(method, uri, nullptr).tail, nullptr, now);
}

}  // namespace ZoSdk
