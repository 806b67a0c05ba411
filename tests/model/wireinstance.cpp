#include "tests/model/wireinstance.h"

#include <stdexcept>
#include <utility>

#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoModel {

WireInstance::WireInstance(long long now, ZoTest::Clock::duration patience, int mostBreaks)
    : patience(patience),
      time(now),
      peer([this](const std::string& request) { Note(request); },
           [this](const std::string& request) { watch.NoteUnanswered(request); }, mostBreaks) {
  // What a host still asks for when its session has ended in place of an answer goes out first in the next one.
  watch.OnSubscription([this] {
    if (peer.HasLost()) {
      peer.SetOpen(true);
    }
  });
  const auto note = [this](const ZoTest::Entry& entry) { Note(Told(entry, this)); };
  recorder.OnValue(note);
  recorder.OnResult(note);
  recorder.OnLog(note);
  client = std::make_unique<ZoIO::ZoVyrnClient>("127.0.0.1", peer.Port(), recorder.Param());
  if (!time.WaitForMonitor() || !peer.WaitUntilBack(ZoTest::kLimit)) {
    throw std::runtime_error("The instance does not start.");
  }
}

Outcome WireInstance::Begin() {
  recorder.Clear();
  return {"", TakeEvents(), {}};
}

Outcome WireInstance::Perform(const WireStep& step, const Expected& expected) {
  peer.ClearCount();
  mayEnd = expected.mayEnd;
  std::string result = std::visit([this](const auto& kind) { return Do(kind); }, step);
  result += Settle(expected.requests);
  recorder.Clear();
  unanswered = false;
  return {result, std::exchange(apart, false) ? RequestsLast(TakeEvents()) : TakeEvents(), State()};
}

Outcome WireInstance::End() {
  client.reset();
  peer.End();
  return {"", TakeEvents(), {}};
}

void WireInstance::Note(std::string event) {
  const std::lock_guard lock(mutex);
  events.push_back(std::move(event));
}

std::vector<std::string> WireInstance::TakeEvents() {
  const std::lock_guard lock(mutex);
  return std::exchange(events, {});
}

std::vector<std::string> WireInstance::State() {
  std::vector<std::string> lines = StateOf(*client->Sensor(), pushed);
  for (std::string& line : peer.With([](const WireSensor& sensor) { return sensor.State(); })) {
    lines.push_back(std::move(line));
  }
  for (const std::string& push : watch.TakeHandedOn()) {
    lines.push_back("handed on " + push);
  }
  return lines;
}

std::string WireInstance::Settle(std::size_t requests) {
  if (std::exchange(lost, false) &&
      !(peer.WaitUntilBack(patience) && peer.WaitForRequests(requests, patience) &&
        peer.WaitUntilRead(patience) && watch.WaitUntilHandedOn(patience))) {
    return " The link does not come back with what it had.";
  }
  if (!peer.WaitForRequests(requests, patience)) {
    return " The sensor misses requests.";
  }
  if (unanswered) {
    peer.SendLate();
    if (!peer.WaitUntilRead(patience)) {
      return " A late answer is not read.";
    }
  }
  // One by one, as the link keeps only the newest of those that wait.
  for (const WirePush& push : peer.With([](WireSensor& sensor) { return sensor.TakePushes(); })) {
    pushed.insert(push.uri);
    if (connected && !HandOn(push.Text())) {
      return " A push is not handed on.";
    }
  }
  return "";
}

bool WireInstance::HandOn(const std::string& message) {
  peer.Send(message);
  return peer.WaitUntilRead(patience) && watch.WaitUntilHandedOn(patience);
}

// What the host does.

std::string WireInstance::Hosted(const std::function<std::string()>& call) {
  const bool ending = mayEnd != MayEnd::AtNothing;
  peer.SetMayEnd(mayEnd);
  peer.SetSilent(ending ? std::nullopt : silence);
  watch.ExpectSilence(!ending && silence);
  std::string result = call();
  watch.ExpectSilence(false);
  unanswered = peer.HasLeftUnanswered();
  silence = unanswered ? std::nullopt : silence;
  apart = unanswered;
  peer.SetSilent(std::nullopt);
  if (peer.HasLost()) {
    lost = true;
    apart = mayEnd == MayEnd::AtStarts;
    peer.SetOpen(true);
  }
  peer.SetMayEnd(MayEnd::AtNothing);
  return result;
}

std::string WireInstance::Do(const Subscribe& step) {
  return Hosted([&] { return ZoModel::Perform(*client, step); });
}

std::string WireInstance::Do(const Unsubscribe& step) {
  return Hosted([&] { return ZoModel::Perform(*client, step); });
}

std::string WireInstance::Do(const Read& step) {
  return Hosted([&] { return ZoModel::Perform(*client, step); });
}

std::string WireInstance::Do(const Write& step) {
  return Hosted([&] { return ZoModel::Perform(*client, step); });
}

std::string WireInstance::Do(const Call& step) {
  return Hosted([&] { return ZoModel::Perform(*client, step, this); });
}

std::string WireInstance::Do(const LoseAnswer& /*step*/) {
  peer.With([](WireSensor& sensor) { sensor.Lose(Loss::Any); });
  return "";
}

std::string WireInstance::Do(const LoseStart& step) {
  peer.With(
      [&](WireSensor& sensor) { sensor.Lose(step.stream ? Loss::StreamStart : Loss::SubscriptionStart); });
  return "";
}

std::string WireInstance::Do(const LeaveUnanswered& step) {
  silence = step;
  return "";
}

// What the instance's threads do.

std::string WireInstance::Do(const MonitorPass& /*step*/) {
  return time.MonitorPass() ? "" : "the monitor did not come back";
}

std::string WireInstance::Do(const RetryPass& /*step*/) {
  return Result([&] {
    client->Sensor()->PLC()->RetryInvalidItems();
    return "";
  });
}

std::string WireInstance::Do(const Trim& /*step*/) {
  client->Sensor()->Cache()->TrimAt(time.Now() / 1000);
  return "";
}

std::string WireInstance::Do(const LookUp& step) {
  client->Sensor()->PLC()->Item(step.name);
  return "";
}

// What the world does.

std::string WireInstance::Do(const Hold& step) {
  peer.With([&](WireSensor& sensor) { sensor.Change(step.uri, step.payload); });
  return "";
}

std::string WireInstance::Do(const Answers& step) {
  peer.With([&](WireSensor& sensor) { sensor.SetMood(step.verb, step.mood); });
  return "";
}

std::string WireInstance::Do(const Clock& step) {
  time.Advance(step.by);
  watch.Advance(step.by);
  return "";
}

std::string WireInstance::Do(const StrayPush& step) {
  pushed.insert(step.uri);
  const bool handedOn = !connected || HandOn(WirePush{step.stream, step.uri, step.payload}.Text());
  return handedOn ? "" : "A push is not read.";
}

void WireInstance::LoseSession() {
  peer.With([](WireSensor& sensor) { sensor.EndSession(); });
  peer.Cut();
}

std::string WireInstance::Do(const Spoil& step) {
  peer.With([&](WireSensor& sensor) { sensor.Spoil(step.uri, step.how); });
  return "";
}

std::string WireInstance::Do(const UnusablePush& step) {
  if (connected && peer.With([](const WireSensor& sensor) { return sensor.MayBreak(); })) {
    peer.With([](WireSensor& sensor) { sensor.EndSession(); });
    peer.EndBy(WirePush::UnusableText(step.stream, step.uri, step.how));
    lost = true;
  }
  return "";
}

std::string WireInstance::Do(const Cut& /*step*/) {
  if (connected && peer.With([](const WireSensor& sensor) { return sensor.MayBreak(); })) {
    LoseSession();
    lost = true;
  }
  return "";
}

std::string WireInstance::Do(const Restart& /*step*/) {
  if (!connected || peer.With([](const WireSensor& sensor) { return sensor.MayBreak(); })) {
    peer.With([](WireSensor& sensor) { sensor.Forget(); });
    Do(Cut());
  }
  return "";
}

std::string WireInstance::Do(const Connection& step) {
  if (connected && !step.up && peer.With([](const WireSensor& sensor) { return sensor.MayBreak(); })) {
    connected = false;
    peer.SetOpen(false);
    LoseSession();
    return peer.WaitUntilAway(patience) ? "" : "The link does not notice that its session is gone.";
  }
  if (!connected && step.up) {
    connected = true;
    lost = true;
    peer.SetOpen(true);
  }
  return "";
}

}  // namespace ZoModel
