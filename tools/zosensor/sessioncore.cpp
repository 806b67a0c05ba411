#include "tools/zosensor/sessioncore.h"

#include <algorithm>
#include <exception>

#include <fmt/format.h>

namespace ZoSensor {
namespace {

// An answer that shall be overtaken waits no longer than this for another one.
constexpr Duration LongestHoldBack = std::chrono::milliseconds(200);

Outgoing MakeAnswer(std::string text) {
  Outgoing item;
  item.text = ShareText(std::move(text));
  return item;
}

// The header of an unmasked text frame, which is what a server sends.
std::string FrameHeader(std::size_t size) {
  std::string header = "\x81";
  const auto append = [&](std::size_t bytes) {
    for (std::size_t i = bytes; i-- > 0;) {
      header += static_cast<char>(static_cast<unsigned char>(size >> (8 * i)));
    }
  };
  if (size < 126) {
    append(1);
  } else if (size < 65536) {
    header += static_cast<char>(126);
    append(2);
  } else {
    header += static_cast<char>(127);
    append(8);
  }
  return header;
}

bool Carries(Method method) {
  return method == Method::Create || method == Method::Update || method == Method::Call;
}

}  // namespace

SessionCore::SessionCore(Sensor& sessionSensor, FaultController& faultController, const Limits& sessionLimits,
                         Log& sessionLog, Outlet& sessionOutlet, std::string peerName)
    : sensor(sessionSensor),
      faults(faultController),
      limits(sessionLimits),
      log(sessionLog),
      outlet(sessionOutlet),
      peer(std::move(peerName)),
      dice(faultController.MakeDice()) {}

SessionCore::~SessionCore() {
  sensor.Leave(*this);
}

void SessionCore::Receive(std::string_view message, bool text, Time now) {
  const auto request = text ? ParseRequest(message, limits) : std::nullopt;
  if (!request) {
    log.Warning("{} sent what is no JSON object of at most {} levels ({} bytes)", peer, limits.maxDepth,
                message.size());
    outlet.Close(CloseCode::NoJsonObject, "not a JSON object");
    return;
  }
  const bool disturbed = faults.Concerns(Uri::Parse(request->uri).path);
  FaultPlan plan;
  if (disturbed) {
    const Disturbance disturbance = faults.Count(requests);
    if (disturbance == Disturbance::Cut) {
      log.Debug("{} {} {} -> cut on purpose", peer, request->method ? MethodName(*request->method) : "?",
                request->uri);
      outlet.Cut("cut on purpose");
      return;
    }
    if (disturbance == Disturbance::Stall) {
      faults.Stall(Duration::zero(), faults.StallTime(), now);
    }
    plan = dice.Roll(faults.Settings());
  }
  Answer answer;
  if (plan.error) {
    answer = Answer::Failure(static_cast<int>(faults.Settings().errorStatus), "an error on purpose");
  } else {
    dispatching = true;
    answer = DispatchSafely(*request, now);
    dispatching = false;
  }
  log.Debug("{} {} {} -> {}{}{}", peer, request->method ? MethodName(*request->method) : "?", request->uri,
            answer.bare ? 1 : answer.status, answer.error.empty() ? "" : ": " + answer.error, Fate(plan));
  // The answer first: pushes that become due with it are sent after it.
  plan.latency += answer.delay;
  const Time due = now + plan.latency;
  Deliver(MakeAnswer(ResponseText(request->idText, request->uri, answer)), plan, now);
  // A slow call makes its changes when its answer is due. To hold back their pushes instead would let other
  // changes overtake them, or wait with them.
  sensor.CompleteAt(due, answer);
  for (Outgoing& push : std::exchange(causedPushes, {})) {
    DeliverWithin(std::move(push), due, now);
  }
}

Answer SessionCore::DispatchSafely(const Request& request, Time now) {
  try {
    return Dispatch(request, now);
  } catch (const std::exception& error) {  // one client's odd request must not end the others' sessions
    log.Error("{} {}: {}", peer, request.uri, error.what());
    return Answer::Failure(Status::Internal, error.what());
  }
}

Answer SessionCore::Dispatch(const Request& request, Time now) {
  if (!request.fault.empty()) {
    return Answer::Failure(request.faultStatus, request.fault);
  }
  const std::string path = Uri::Parse(request.uri).path;
  if (Carries(*request.method)) {
    return DispatchPayload(request, path, now);
  }
  switch (*request.method) {
    case Method::Read:
      return sensor.Read(path, now);
    case Method::Delete:
      return sensor.Delete(path, now);
    case Method::Subscribe:
      return sensor.Subscribe(*this, request.uri, now);
    case Method::Unsubscribe:
      return sensor.Unsubscribe(*this, request.uri);
    case Method::StartStream:
      return sensor.StartStream(*this, request.uri, now);
    case Method::StopStream:
      return sensor.StopStream(*this, request.uri);
    default:
      return Answer::Failure(Status::Internal, "a method without its way");
  }
}

Answer SessionCore::DispatchPayload(const Request& request, const std::string& path, Time now) {
  if (request.method == Method::Call) {
    return sensor.Call(path, request.payload.value_or(ZoJson()), now);
  }
  if (!request.payload) {
    return Answer::Failure(Status::Malformed, fmt::format("{} needs a payload", MethodName(*request.method)));
  }
  return request.method == Method::Create ? sensor.Create(path, *request.payload, now)
                                          : sensor.Update(path, *request.payload, now);
}

void SessionCore::Push(PushKind kind, const std::string& uri, const SharedText& text, Time now) {
  if (faults.Settings().mutePushes) {
    return;
  }
  Outgoing item;
  item.kind = kind == PushKind::Stream ? Outgoing::Kind::Stream : Outgoing::Kind::Notification;
  item.text = text;
  if (kind == PushKind::Stream) {
    item.uri = uri;
  }
  if (dispatching) {
    causedPushes.push_back(std::move(item));
    return;
  }
  DeliverWithin(std::move(item), now + dice.RollPushLatency(faults.Settings()), now);
}

void SessionCore::Deliver(Outgoing answer, const FaultPlan& plan, Time now) {
  if (plan.lose) {
    return;
  }
  const SharedText text = answer.text;
  if (plan.garbage) {
    answer = Garbage(plan.flavour);
  } else if (plan.truncate) {
    answer = Truncated(text);
  }
  if (plan.reorder && !heldBack) {
    heldBack = std::move(answer);
    heldBackUntil = now + plan.latency + LongestHoldBack;
    outlet.WakeAt(heldBackUntil);
    return;
  }
  DeliverWithin(answer, now + plan.latency, now);
  if (plan.duplicate) {
    DeliverWithin(answer, now + plan.latency, now);
  }
  if (heldBack) {
    // Right after the answer that overtakes it, but not later than it would have come alone.
    DeliverWithin(*std::exchange(heldBack, std::nullopt), std::min(now + plan.latency, heldBackUntil), now);
    heldBackUntil = Never;
  }
}

void SessionCore::DeliverWithin(Outgoing item, Time due, Time now) {
  if (item.kind != Outgoing::Kind::Answer) {
    due = lastPushDue = std::max(lastPushDue, due);
  }
  if (due <= now) {
    SendDelayed(now);  // what was due earlier goes first
    outlet.Send(std::move(item));
    return;
  }
  delayedBytes += item.text->size() + sizeof(Outgoing);
  if (delayedBytes > limits.maxQueue) {
    outlet.Cut("too much waits for its latency to pass");
    return;
  }
  delayed.emplace(due, std::move(item));
  outlet.WakeAt(delayed.begin()->first);
}

void SessionCore::SendDelayed(Time now) {
  while (!delayed.empty() && delayed.begin()->first <= now) {
    auto entry = delayed.extract(delayed.begin());
    delayedBytes -= entry.mapped().text->size() + sizeof(Outgoing);
    outlet.Send(std::move(entry.mapped()));
  }
}

void SessionCore::Step(Time now) {
  SendDelayed(now);
  if (heldBackUntil <= now) {
    outlet.Send(*std::exchange(heldBack, std::nullopt));
    heldBackUntil = Never;
  }
  const Time next = std::min(heldBackUntil, delayed.empty() ? Never : delayed.begin()->first);
  if (next != Never) {
    outlet.WakeAt(next);
  }
}

Outgoing SessionCore::Garbage(std::uint64_t flavour) {
  switch (flavour % 4) {
    case 0:
      return MakeAnswer("]}{ this is no JSON");
    case 1:
      return MakeAnswer("[\"JSON, but no object\"]");
    case 2:
      return MakeAnswer("{\"not UTF-8\":\"\xc3\x28\xff\"}");
    default: {
      Outgoing item = MakeAnswer(
          "\x83\x03"
          "zzz");  // an operation code that nobody has defined
      item.framing = Outgoing::Framing::Bytes;
      return item;
    }
  }
}

Outgoing SessionCore::Truncated(const SharedText& text) {
  Outgoing item = MakeAnswer(FrameHeader(text->size()) + text->substr(0, text->size() / 2));
  item.framing = Outgoing::Framing::BytesThenCut;
  return item;
}

}  // namespace ZoSensor
