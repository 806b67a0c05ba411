#include "tests/model/wirepeer.h"

#include <algorithm>
#include <utility>

namespace ZoModel {

using ZoTest::FakePeer;

WirePeer::WirePeer(Listener note, Listener noteUnanswered, int mostBreaks)
    : note(std::move(note)), noteUnanswered(std::move(noteUnanswered)), sensor(mostBreaks) {
  door.SetScript([this](FakePeer& peer) { Serve(peer); });
}

WirePeer::~WirePeer() {
  End();
}

void WirePeer::End() {
  {
    const std::lock_guard lock(mutex);
    ended = true;
    changed.notify_all();
  }
  door.End();
}

void WirePeer::SetOpen(bool nowOpen) {
  const std::lock_guard lock(mutex);
  open = nowOpen;
  changed.notify_all();
}

void WirePeer::Cut() {
  const std::lock_guard lock(mutex);
  if (current != nullptr) {
    gone = current->number;
    current->Drop();
  }
}

void WirePeer::EndBy(const std::string& message) {
  const std::lock_guard lock(mutex);
  if (current != nullptr) {
    gone = current->number;
    current->Send(message);
  }
}

void WirePeer::SetMayEnd(MayEnd next) {
  const std::lock_guard lock(mutex);
  mayEnd = next;
  lost = false;
}

bool WirePeer::HasLost() const {
  const std::lock_guard lock(mutex);
  return lost;
}

void WirePeer::SetSilent(std::optional<LeaveUnanswered> next) {
  const std::lock_guard lock(mutex);
  silence = next;
  unanswered = false;
}

bool WirePeer::HasLeftUnanswered() const {
  const std::lock_guard lock(mutex);
  return unanswered;
}

void WirePeer::SendLate() {
  const std::lock_guard lock(mutex);
  if (current != nullptr && !late.empty()) {
    current->Send(late);
  }
  late.clear();
}

bool WirePeer::WaitForRequests(std::size_t count, ZoTest::Clock::duration limit) {
  return WaitFor(limit, [&] { return requests >= count; });
}

bool WirePeer::WaitUntilAway(ZoTest::Clock::duration limit) {
  return WaitFor(limit, [&] { return asking > gone; });
}

bool WirePeer::WaitUntilBack(ZoTest::Clock::duration limit) {
  return WaitFor(limit, [&] { return listening > gone; });
}

bool WirePeer::WaitUntilRead(ZoTest::Clock::duration limit) {
  std::uint64_t ping = 0;
  {
    const std::lock_guard lock(mutex);
    ping = ++pings;
    if (current == nullptr || !current->SendFrame(FakePeer::Ping, std::to_string(ping))) {
      return false;
    }
  }
  return WaitFor(limit, [&] { return pongs >= ping; });
}

void WirePeer::ClearCount() {
  const std::lock_guard lock(mutex);
  requests = 0;
}

void WirePeer::Send(const std::string& message) {
  const std::lock_guard lock(mutex);
  if (current != nullptr) {
    current->Send(message);
  }
}

bool WirePeer::WaitFor(ZoTest::Clock::duration limit, const std::function<bool()>& predicate) {
  std::unique_lock lock(mutex);
  return changed.wait_until(lock, ZoTest::Clock::now() + limit, predicate);
}

void WirePeer::Serve(FakePeer& peer) {
  if (!peer.ReadUpgrade()) {
    return;
  }
  {
    std::unique_lock lock(mutex);
    asking = std::max(asking, peer.number);
    changed.notify_all();
    changed.wait(lock, [this] { return open || ended; });
    if (ended || !peer.AcceptUpgrade()) {
      return;
    }
    // One that the link has given up while it was kept waiting takes nobody's place.
    current = current == nullptr || current->number < peer.number ? &peer : current;
    peer.SendFrame(FakePeer::Ping, std::to_string(++pings));
  }
  while (const auto frame = peer.Receive()) {
    switch (frame->opcode) {
      case FakePeer::Text:
        Answer(peer, frame->payload);
        break;
      case FakePeer::Ping:
        peer.SendFrame(FakePeer::Pong, frame->payload);
        break;
      case FakePeer::Pong:
        NotePong(peer, frame->payload);
        break;
      default:
        break;
    }
    if (frame->opcode == FakePeer::Close) {
      peer.SendFrame(FakePeer::Close, frame->payload);
      break;
    }
  }
  const std::lock_guard lock(mutex);
  current = current == &peer ? nullptr : current;
}

void WirePeer::Answer(FakePeer& peer, const std::string& text) {
  const ZoJson request = ZoJson::ParseString(text);
  const std::string method = request.At("method").Get<std::string>();
  const std::string uri = request.At("uri").Get<std::string>();
  const std::lock_guard lock(mutex);
  note("request " + method + " " + uri + " " +
       (request.HasKey("payload") ? request.At("payload").ToString() : ""));
  const std::string id = "\"id\":" + request.At("id").ToString();
  if (const std::optional<Ending> end = sensor.Ends(mayEnd, method, uri)) {
    mayEnd = MayEnd::AtNothing;
    lost = true;
    gone = peer.number;
    // Before the link can know, and so come back; and back it comes once the caller has told all, for the order's sake.
    sensor.EndSession();
    open = false;
    end->message ? void(peer.Send(UnusableMessage(*end->message, id))) : peer.Drop();
  } else {
    const ZoModel::Answer answer = sensor.Ask(method, uri);
    const std::string members = answer.Text();
    const std::string message = "{" + id + (members == "{}" ? "}" : "," + members.substr(1));
    if (silence && uri != "/system") {
      late = ComesLate(method, *silence) ? message : "";
      silence.reset();
      unanswered = true;
      noteUnanswered(std::to_string(NumberOf(method)) + " " + uri);
    } else {
      peer.Send(message);
    }
  }
  ++requests;
  changed.notify_all();
}

void WirePeer::NotePong(const FakePeer& peer, const std::string& payload) {
  const std::lock_guard lock(mutex);
  listening = std::max(listening, peer.number);
  pongs = std::stoull(payload);
  changed.notify_all();
}

}  // namespace ZoModel
