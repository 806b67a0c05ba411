#include "tests/model/referencemodel.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace ZoModel {

namespace {

constexpr long long maxAge = 5000;  // ms

constexpr int info = 2;
constexpr int notice = 3;
constexpr int warning = 4;

// Far beyond any clock, a time stays where it is.
long long Later(long long time, long long interval) {
  using Limits = std::numeric_limits<long long>;
  const long long end = interval < 0 ? Limits::min() : Limits::max();
  long long step = 0;
  long long later = 0;
  if (__builtin_mul_overflow(interval, 1'000'000LL, &step)) {
    step = end;
  }
  return __builtin_add_overflow(time, step, &later) ? end : later;
}

// Two lists side by side, line by line, with a mark where they begin to differ.
std::string CompareLists(const std::string& what, const std::vector<std::string>& plugin,
                         const std::vector<std::string>& model) {
  if (plugin == model) {
    return "";
  }
  std::string text;
  for (std::size_t i = 0; i < std::max(plugin.size(), model.size()); ++i) {
    const std::string ours = i < plugin.size() ? plugin[i] : "(nothing)";
    const std::string theirs = i < model.size() ? model[i] : "(nothing)";
    text += ours == theirs ? "    both:    " + ours + "\n"
                           : "    plug-in: " + ours + "\n    model:   " + theirs + "\n";
  }
  return "  " + what + ":\n" + text;
}

}  // namespace

std::string Outcome::Compare(const Outcome& plugin, const Outcome& model) {
  std::string text;
  if (plugin.result != model.result) {
    text += "  result of the plug-in: " + plugin.result + "\n  of the model:          " + model.result + "\n";
  }
  return text + CompareLists("events", plugin.events, model.events) +
         CompareLists("state", plugin.state, model.state);
}

ReferenceModel::ReferenceModel(long long now) : now(now) {}

ReferenceModel::~ReferenceModel() = default;

Outcome ReferenceModel::Perform(const Step& step) {
  events.clear();
  const std::string result = std::visit([this](const auto& kind) { return Do(kind); }, step);
  return {result, events, State()};
}

Outcome ReferenceModel::End() {
  events.clear();
  const std::string function = "ZoIO::ZoVyrnClient::~ZoVyrnClient";
  Log(notice, function, "Destroying ZoIoHandler instance.");
  Log(notice, function, "Joining ZoVyrnClient::Monitor thread.");
  Do(MonitorPass());  // the thread wakes, works once more, and ends
  Log(notice, function, "ZoVyrnClient::Monitor thread joined.");
  Log(info, function, "ZoIoHandler instance destroyed successfully.");
  EndSensor();
  Log(notice, "ZoIO::ItemManager::~ItemManager", "Destroying item manager.");
  Log(notice, "ZoIO::ItemManager::~ItemManager", "Item manager destroyed.");
  return {"", events, {}};
}

std::string ReferenceModel::Do(const MonitorPass& /*step*/) {
  for (auto& [interval, group] : groups) {
    if (now * 1000 >= group.due) {
      Tick(group, interval);
    }
  }
  return "";
}

void ReferenceModel::Tick(Group& group, long long interval) {
  for (auto& [name, entry] : group.entries) {
    Item& item = ItemOf(name);
    item.Refresh(Newest(item.uri));
    if (item.valid || entry.forced || item.value != entry.lastValue) {
      Deliver(item);
      entry = {item.value, false};
    }
  }
  group.due = Later(group.due, interval);
}

std::string ReferenceModel::Do(const RetryPass& /*step*/) {
  try {
    Retry();
    return "";
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

void ReferenceModel::Retry() {
  for (auto name = waiting.begin(); name != waiting.end();) {
    Item& item = items.at(*name);
    const Document* known = Newest(item.uri);
    Document read;
    if (known == nullptr) {
      Answer answer;
      do {
        answer = Ask("Read", item.uri, "", true);
      } while (answer.Part("payload") == nullptr);
      read = *answer.Part("payload");
    }
    item.valid = item.IsIn(known == nullptr ? read : *known);
    if (item.valid && known == nullptr) {
      Add(item.uri, read);
    }
    name = item.valid ? waiting.erase(name) : name + 1;
  }
}

std::string ReferenceModel::Do(const Trim& /*step*/) {
  for (auto& [uri, versions] : cache) {
    while (versions.size() > 1 && versions.begin()->first < now / 1000 - maxAge) {
      versions.erase(versions.begin());
    }
  }
  return "";
}

std::string ReferenceModel::Do(const LookUp& step) {
  ItemOf(step.name);
  return "";
}

Item& ReferenceModel::ItemOf(const std::string& name) {
  const auto known = items.find(name);
  if (known != items.end()) {
    return known->second;
  }
  const std::string function = "ZoIO::ItemManager::Item";
  Log(info, function, name + " does not exist. Creating.");
  Item item(name);
  Log(info, function, name + " created.");
  item.valid = Look(item);
  if (item.valid) {
    Log(info, function, "Adding item " + name);
  } else {
    waiting.push_back(name);
    Log(warning, function, name + " does not exists.");
  }
  return items.emplace(name, item).first->second;
}

bool ReferenceModel::Look(const Item& item) {
  if (IsConnected() && Newest(item.uri) == nullptr) {
    Log(info, "ZoIO::ItemManager::Item", "Retrieving " + item.name + " value.");
    try {
      const Answer answer = Ask("Read", item.uri);
      const Document* payload = answer.Part("payload");
      if (payload == nullptr || payload->IsNull()) {
        return false;
      }
      Add(item.uri, *payload);
    } catch (const std::runtime_error&) {
      return false;
    }
    Log(info, "ZoIO::ItemManager::Item", item.name + " value updated.");
  }
  const Document* known = Newest(item.uri);
  return known != nullptr && item.IsIn(*known);
}

void ReferenceModel::Add(const std::string& uri, const Document& document) {
  cache[uri].emplace(now / 1000, document);  // of one millisecond the first stays
}

const Document* ReferenceModel::Newest(const std::string& uri) const {
  const auto known = cache.find(uri);
  if (known == cache.end()) {
    return nullptr;
  }
  // What is newer than the clock can only be there after a step back: then the next one to come counts.
  const auto next = known->second.lower_bound(now / 1000);
  return next != known->second.end() ? &next->second : &known->second.rbegin()->second;
}

std::string ReferenceModel::Do(const Push& step) {
  Add(step.uri, step.payload);
  return "";
}

std::string ReferenceModel::Do(const Hold& step) {
  step.payload ? sensor.Hold(step.uri, *step.payload) : sensor.Drop(step.uri);
  return "";
}

std::string ReferenceModel::Do(const Answers& step) {
  sensor.SetMood(step.verb, step.mood);
  return "";
}

std::string ReferenceModel::Do(const Connection& step) {
  sensor.SetConnected(step.up);
  return "";
}

std::string ReferenceModel::Do(const Clock& step) {
  now += step.by;
  return "";
}

void ReferenceModel::Deliver(const Item& item) {
  events.push_back("value " + item.name + " " + item.Value() + " status 0");
}

Answer ReferenceModel::Ask(const std::string& verb, const std::string& uri, const std::string& body,
                           bool patient) {
  events.push_back("request " + verb + " " + uri + " " + body + (patient ? " quietly" : ""));
  return sensor.Ask(verb, uri, patient);
}

void ReferenceModel::StartSensor() {
  Ask("Start", "");
  running = true;
}

void ReferenceModel::StopSensor() {
  Ask("Stop", "");
  running = false;
}

void ReferenceModel::Log(int level, const std::string& function, const std::string& text) {
  events.push_back("log " + std::to_string(level) + " " + function + ": " + text);
}

std::vector<std::string> ReferenceModel::State() const {
  std::vector<std::string> lines;
  for (const auto& [name, item] : items) {
    lines.push_back(name + " of " + item.uri + " at " + PointerText(item.pointer) + ", pattern " +
                    item.pattern + (item.valid ? ", valid" : ", not valid") +
                    (item.subscribed ? ", subscribed" : "") + ", type " + std::to_string(item.type) +
                    ", kind " + std::to_string(item.value.kind) + ", bits " +
                    std::to_string(item.value.bits) + ", text " + item.value.text);
  }
  for (const std::string& name : waiting) {
    lines.push_back(name + " waits");
  }
  for (const auto& [uri, versions] : cache) {
    lines.push_back(uri + " is cached " + std::to_string(versions.size()) + " times");
  }
  return lines;
}

}  // namespace ZoModel
