#include "tests/model/steppedinstance.h"

#include <map>
#include <stdexcept>

#include "tests/model/hoststeps.h"

namespace ZoModel {

SteppedInstance::SteppedInstance(long long now) : time(now) {
  const auto note = [this](const ZoTest::Entry& entry) { events.push_back(Told(entry, this)); };
  const ioHandlerParam host = recorder.Param();
  sensor =
      std::make_shared<ZoTest::FakeSensorManager>(std::make_shared<ZoIO::Logger>(host.context, host.log));
  for (const char* verb : {"Read", "Create", "Update", "Call", "Delete", "Subscribe", "Unsubscribe", "Stream",
                           "StopStream", "Start", "Stop"}) {
    sensor->SetScript(verb, [this](const auto& request) { return AnswerTo(request); });
  }
  client = std::make_unique<ZoIO::ZoVyrnClient>(sensor, sensor, host);
  if (!time.WaitForMonitor()) {
    throw std::runtime_error("The monitor does not start.");
  }
  recorder.OnValue(note);
  recorder.OnResult(note);
  recorder.OnLog(note);
}

Outcome SteppedInstance::Perform(const Step& step) {
  events.clear();
  const std::string result = std::visit([this](const auto& kind) { return Do(kind); }, step);
  recorder.Clear();
  sensor->ClearCalls();
  return {result, events, StateOf(*sensor, pushed)};
}

Outcome SteppedInstance::End() {
  events.clear();
  client.reset();
  return {"", events, {}};
}

ZoJson SteppedInstance::AnswerTo(const ZoTest::FakeSensorManager::Request& request) {
  const bool hasBody = request.verb == "Create" || request.verb == "Update" || request.verb == "Call";
  const bool quietly = !request.logFailure && request.verb == "Read";
  events.push_back("request " + request.verb + " " + request.uri + " " +
                   (hasBody ? request.payload.ToString() : "") + (quietly ? " quietly" : ""));
  const Answer answer = script.Ask(request.verb, request.uri, quietly);
  return ZoJson::ParseString(answer.Text());
}

std::string SteppedInstance::Do(const Call& step) {
  return ZoModel::Perform(*client, step, this);
}

std::string SteppedInstance::Do(const MonitorPass& /*step*/) {
  return time.MonitorPass() ? "" : "the monitor did not come back";
}

std::string SteppedInstance::Do(const RetryPass& /*step*/) {
  return Result([&] {
    sensor->PLC()->RetryInvalidItems();
    return "";
  });
}

std::string SteppedInstance::Do(const Trim& /*step*/) {
  sensor->Cache()->TrimAt(time.Now() / 1000);
  return "";
}

std::string SteppedInstance::Do(const LookUp& step) {
  sensor->PLC()->Item(step.name);
  return "";
}

std::string SteppedInstance::Do(const Recreate& /*step*/) {
  client->ClearSubscriptionsList();
  std::map<std::string, ZoIO::ItemInfo*> items;  // in an order that the model knows
  for (auto& [name, item] : sensor->PLC()->Items()) {
    items.emplace(name, &item);
  }
  return Result([&] {
    for (const auto& [name, item] : items) {
      if (item->subscribed) {
        client->Subscribe(*item);
      }
      client->UpdateResource(item->uri);
      client->UpdateItemFromCache(*item);
      client->UpdateItem(item->name, item->value, item->type, 0);
    }
    return "";
  });
}

std::string SteppedInstance::Do(const Push& step) {
  pushed.insert(step.uri);
  sensor->Cache()->Add(step.uri, ZoJson::ParseString(step.payload.Text()));
  return "";
}

std::string SteppedInstance::Do(const Hold& step) {
  step.payload ? script.Hold(step.uri, *step.payload) : script.Drop(step.uri);
  return "";
}

std::string SteppedInstance::Do(const Answers& step) {
  script.SetMood(step.verb, step.mood);
  return "";
}

std::string SteppedInstance::Do(const Connection& step) {
  script.SetConnected(step.up);
  sensor->SetConnected(step.up);
  return "";
}

std::string SteppedInstance::Do(const Clock& step) {
  time.Advance(step.by);
  return "";
}

}  // namespace ZoModel
