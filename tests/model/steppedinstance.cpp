#include "tests/model/steppedinstance.h"

#include <map>
#include <stdexcept>

#include "tests/support/hostvalue.h"

namespace ZoModel {

namespace {

constexpr int untouched = -77;

// What a step raises is its result.
template <typename Work>
std::string Result(const Work& work) {
  try {
    return work();
  } catch (const std::exception& e) {
    return e.what();
  }
}

ioDataValue HostValue(const Write& step) {
  ioDataValue value{};
  value.type = step.type;
  value.value.uint64 = step.bits;
  if (step.type == Text) {
    value.value.text = step.text ? step.text->c_str() : nullptr;
  }
  return value;
}

std::string Arguments(const Call& step) {
  Document::Members members;
  if (step.id) {
    members.emplace_back("id", Document(*step.id));
  }
  if (step.uri) {
    members.emplace_back("uri", Document(*step.uri));
  }
  if (step.args) {
    members.emplace_back("args", Document(*step.args));
  }
  return Document(members).Text();
}

std::string StateOf(const ZoIO::ItemInfo& item) {
  return item.name + " of " + item.uri + " at " + item.pointer.ToString() + ", pattern " +
         item.subscriptionUri + (item.valid ? ", valid" : ", not valid") +
         (item.subscribed ? ", subscribed" : "") + ", type " + std::to_string(item.type) + ", kind " +
         std::to_string(item.value.kind()) + ", bits " + std::to_string(item.value.uint64()) + ", text " +
         item.value.text();
}

}  // namespace

SteppedInstance::SteppedInstance(long long now) : time(now) {
  const auto note = [this](const ZoTest::Entry& entry) { Note(entry); };
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
  return {result, events, State()};
}

Outcome SteppedInstance::End() {
  events.clear();
  client.reset();
  return {"", events, {}};
}

void SteppedInstance::Note(const ZoTest::Entry& entry) {
  switch (entry.kind) {
    case ZoTest::Entry::Kind::Value:
      events.push_back("value " + entry.item + " " + ZoTest::Describe(entry) + " status " +
                       std::to_string(entry.value.status));
      break;
    case ZoTest::Entry::Kind::Result:
      events.push_back((entry.token == this ? "response " : "response to another ") + entry.response);
      break;
    case ZoTest::Entry::Kind::Log:
      events.push_back("log " + ZoTest::LogLine(entry.level, entry.function, entry.message));
      break;
  }
}

ZoJson SteppedInstance::AnswerTo(const ZoTest::FakeSensorManager::Request& request) {
  const bool hasBody = request.verb == "Create" || request.verb == "Update" || request.verb == "Call";
  const bool quietly = !request.logFailure && request.verb == "Read";
  events.push_back("request " + request.verb + " " + request.uri + " " +
                   (hasBody ? request.payload.ToString() : "") + (quietly ? " quietly" : ""));
  const Answer answer = script.Ask(request.verb, request.uri, quietly);
  return ZoJson::ParseString(answer.Text());
}

std::string SteppedInstance::Do(const Subscribe& step) {
  std::vector<const char*> names;
  for (const auto& name : step.names) {
    names.push_back(name ? name->c_str() : nullptr);
  }
  names.push_back(nullptr);  // so that an array of no names is an array all the same
  std::vector<int> codes(names.size(), untouched);
  const int result =
      client->Subscribe(std::chrono::milliseconds(step.interval), names.data(),
                        step.withResults ? codes.data() : nullptr, static_cast<int>(step.names.size()));
  std::string text = std::to_string(result) + ":";
  for (std::size_t i = 0; i < step.names.size(); ++i) {
    text += " " + (codes[i] == untouched ? "untouched" : std::to_string(codes[i]));
  }
  return text;
}

std::string SteppedInstance::Do(const Unsubscribe& step) {
  std::vector<const char*> names;
  for (const std::string& name : step.names) {
    names.push_back(name.c_str());
  }
  return Result(
      [&] { return std::to_string(client->Unsubscribe(names.data(), static_cast<int>(names.size()))); });
}

std::string SteppedInstance::Do(const Read& step) {
  return std::to_string(client->Read(step.name));
}

std::string SteppedInstance::Do(const Write& step) {
  return std::to_string(client->Write(step.name, 0, HostValue(step)));
}

std::string SteppedInstance::Do(const Call& step) {
  return std::to_string(client->Call(this, step.method, Arguments(step)));
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

std::vector<std::string> SteppedInstance::State() {
  std::map<std::string, std::string> items;  // in the order of names
  std::set<std::string> resources = pushed;
  for (const ZoIO::ItemInfo* item : sensor->PLC()->Snapshot()) {
    items.emplace(item->name, StateOf(*item));
    resources.insert(item->uri);
  }
  std::vector<std::string> lines;
  for (const auto& [name, line] : items) {
    lines.push_back(line);
  }
  for (const std::string& name : sensor->PLC()->InvalidItems()) {
    lines.push_back(name + " waits");
  }
  std::size_t cached = 0;
  for (const std::string& uri : resources) {
    if (sensor->Cache()->Exists(uri)) {
      lines.push_back(uri + " is cached " + std::to_string(sensor->Cache()->SizeAt(uri)) + " times");
      ++cached;
    }
  }
  if (cached != sensor->Cache()->Size()) {
    lines.push_back("something unknown is cached");
  }
  return lines;
}

}  // namespace ZoModel
