#include "tests/model/wiresensor.h"

#include <algorithm>
#include <utility>

namespace ZoModel {

namespace {

Answer Bare() {
  return {Document(Document::Members{})};
}

Answer Status(long long status) {
  return {Document(Document::Members{{"status", Document(status)}})};
}

Answer Payload(long long status, Document payload) {
  return {Document(Document::Members{{"status", Document(status)}, {"payload", std::move(payload)}})};
}

// Names the resource, as a sensor does; a bare acknowledgement stays bare.
Answer About(const std::string& uri, Answer answer) {
  auto& members = std::get<Document::Members>(answer.document.content);
  if (!members.empty()) {
    members.insert(members.begin() + 1, {"uri", Document(uri)});
  }
  return answer;
}

std::string VerbOf(const std::string& method) {
  static const std::map<std::string, std::string> verbs = {
      {"read", "Read"},         {"create", "Create"},      {"update", "Update"},
      {"delete", "Delete"},     {"call", "Call"},          {"sub", "Subscribe"},
      {"unsub", "Unsubscribe"}, {"startStream", "Stream"}, {"stopStream", "StopStream"}};
  return verbs.at(method);
}

}  // namespace

std::string WirePush::Text() const {
  return std::string(R"({"event":")") + (stream ? "stream" : "notification") + R"(","uri":)" + Quote(uri) +
         R"(,"payload":)" + payload.Text() + "}";
}

std::string WirePush::UnusableText(bool stream, const std::string& uri, Unusable how) {
  return UnusableMessage(
      how, std::string(R"("event":")") + (stream ? "stream" : "notification") + R"(","uri":)" + Quote(uri));
}

std::string WirePush::Summary() const {
  return std::string(stream ? "stream " : "notification ") + uri + " " + payload.Text();
}

int NumberOf(const std::string& method) {
  static const std::vector<std::string> methods = {"read", "create", "update",      "delete",    "call",
                                                   "sub",  "unsub",  "startStream", "stopStream"};
  return static_cast<int>(std::find(methods.begin(), methods.end(), method) - methods.begin()) + 1;
}

bool IsStart(const std::string& method) {
  return method == "startStream" || method == "sub";
}

std::vector<std::string> RequestsLast(std::vector<std::string> events) {
  std::stable_partition(events.begin(), events.end(),
                        [](const auto& event) { return !event.starts_with("request "); });
  return events;
}

bool IsBelow(const std::string& pattern, const std::string& uri) {
  if (pattern == "*" || pattern == "/*") {
    return true;
  }
  if (!pattern.ends_with("/*")) {
    return pattern == uri;
  }
  const std::string stem = pattern.substr(0, pattern.size() - 2);
  return uri == stem || uri.starts_with(stem + "/");
}

Answer WireSensor::Ask(const std::string& method, const std::string& uri) {
  const auto known = moodOf.find(VerbOf(method));
  switch (known == moodOf.end() ? Mood::Obeys : known->second) {
    case Mood::Acknowledges:
      Start(method, uri);
      End(method, uri);
      return About(uri, Status(1));
    case Mood::Refuses:
      return About(uri, Payload(-404, {}));
    case Mood::Mumbles:
      return {Document(Document::Members{{"status", Document(std::string("x"))},
                                         {"payload", Nest({"a"}, Document(7LL))}})};
    case Mood::Payloads:
      return {Nest({"payload", "b"}, Document(8LL))};
    case Mood::Silent:
    case Mood::Raises:
      return Bare();
    case Mood::Obeys:
      break;
  }
  return About(uri, Obey(method, uri));
}

Answer WireSensor::Obey(const std::string& method, const std::string& uri) {
  if (method == "read") {
    return Content(uri);
  }
  if (method == "call" && (uri == "/system/start" || uri == "/system/stop")) {
    running = uri == "/system/start";
    return Payload(1, Nest({"state"}, Document(running ? 1LL : 0LL)));
  }
  if (method == "startStream") {
    Answer content = Content(uri);
    const Document* payload = content.Part("payload");
    if (payload->IsEmpty()) {
      return Payload(payload->IsNull() ? -404 : -405, {});
    }
    Start(method, uri);
    return content;
  }
  if (method == "sub" && !patterns.contains(uri)) {
    for (const auto& [name, content] : resources) {
      if (IsBelow(uri, name)) {
        pushes.push_back({false, name, content});
      }
    }
  }
  if (method == "stopStream" && !streams.contains(uri)) {
    return Bare();
  }
  if (method == "unsub" && !patterns.contains(uri)) {
    return Payload(-404, {});
  }
  Start(method, uri);
  End(method, uri);
  return Status(1);
}

Answer WireSensor::Content(const std::string& uri) const {
  if (uri == "/system") {
    return Payload(1, Nest({"state"}, Document(running ? 1LL : 0LL)));
  }
  const auto known = resources.find(uri);
  return known == resources.end() ? Payload(-404, {}) : Payload(1, known->second);
}

void WireSensor::Start(const std::string& method, const std::string& uri) {
  if (method == "startStream") {
    streams.insert(uri);
  } else if (method == "sub") {
    patterns.insert(uri);
  }
}

void WireSensor::End(const std::string& method, const std::string& uri) {
  if (method == "stopStream") {
    streams.erase(uri);
  } else if (method == "unsub") {
    patterns.erase(uri);
  }
}

void WireSensor::Change(const std::string& uri, const std::optional<Document>& payload) {
  if (payload) {
    resources[uri] = *payload;
    if (streams.contains(uri)) {
      pushes.push_back({true, uri, *payload});
    }
  } else if (resources.erase(uri) == 0) {
    return;
  }
  if (std::any_of(patterns.begin(), patterns.end(), [&](const auto& each) { return IsBelow(each, uri); })) {
    pushes.push_back({false, uri, payload.value_or(Document())});
  }
}

void WireSensor::EndSession() {
  ++breaks;
  streams.clear();
  patterns.clear();
  pushes.clear();
}

void WireSensor::Spoil(const std::string& uri, std::optional<Unusable> how) {
  spoilt.erase(uri);
  if (how) {
    spoilt.emplace(uri, *how);
  }
}

std::optional<Ending> WireSensor::Ends(MayEnd mayEnd, const std::string& method, const std::string& uri) {
  if (mayEnd == MayEnd::AtNothing || (mayEnd == MayEnd::AtStarts && !IsStart(method))) {
    return std::nullopt;
  }
  const Loss loss = mayEnd == MayEnd::AtAnything ? Loss::Any
                    : method == "startStream"    ? Loss::StreamStart
                                                 : Loss::SubscriptionStart;
  if (losses.erase(loss) != 0) {
    return Ending{};
  }
  const auto found = spoilt.find(uri);
  return found == spoilt.end() || method == "sub" ? std::nullopt : std::optional(Ending{found->second});
}

std::vector<WirePush> WireSensor::TakePushes() {
  return std::exchange(pushes, {});
}

std::vector<std::string> WireSensor::State() const {
  std::vector<std::string> lines;
  for (const std::string& uri : streams) {
    lines.push_back("sensor streams " + uri);
  }
  for (const std::string& pattern : patterns) {
    lines.push_back("sensor notifies of " + pattern);
  }
  lines.push_back(running ? "sensor runs" : "sensor stands");
  return lines;
}

}  // namespace ZoModel
