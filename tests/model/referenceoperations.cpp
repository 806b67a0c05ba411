// The model's operations: what the host calls.
#include <bit>
#include <stdexcept>

#include "tests/model/referencemodel.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoModel {

namespace {

constexpr int info = 2;
constexpr int warning = 4;
constexpr int error = 5;

const std::string prefix = "ZoIO::ZoVyrnClient::";

// What the JSON library says of a member that is not there.
std::string Missing(const Document& document, const std::string& name) {
  return "JSON value: nothing at \"/" + name + "\": " +
         (document.IsContainer() ? "no member \"" + name + "\""
                                 : "no container where \"" + name + "\" is looked for");
}

// The part of an answer that must be there.
const Document& Need(const Answer& answer, const std::string& name) {
  const Document* part = answer.Part(name);
  if (part == nullptr) {
    throw std::runtime_error(Missing(answer.document, name));
  }
  return *part;
}

std::optional<Document> Written(const Write& step) {
  switch (step.type) {
    case Text:
      return step.text ? std::optional<Document>(*step.text) : std::nullopt;
    case Boolean:
      return Document(step.bits != 0);
    case Signed:
      return Document(static_cast<long long>(step.bits));
    case Float:
      return Document(std::bit_cast<double>(step.bits));
    case Unsigned:
      return step.bits > 0x7fff'ffff'ffff'ffffULL ? Document(step.bits)
                                                  : Document(static_cast<long long>(step.bits));
    default:
      return std::nullopt;
  }
}

Variant VariantOf(const Write& step) {
  if (step.type == Text) {
    return {Text, 0, *step.text};
  }
  return {step.type, step.type == Boolean ? step.bits != 0 : step.bits, ""};
}

}  // namespace

std::string ReferenceModel::Do(const Read& step) {
  if (!IsConnected()) {
    return "1";
  }
  Log(info, prefix + "Read", "Reading item " + step.name);
  Item& item = ItemOf(step.name);
  if (!item.valid) {
    return "1";
  }
  UpdateResource(item.uri);
  item.Refresh(Newest(item.uri));
  Deliver(item);
  return "0";
}

void ReferenceModel::UpdateResource(const std::string& uri) {
  try {
    Add(uri, Need(Ask("Read", uri), "payload"));
  } catch (const std::runtime_error& e) {
    Log(error, prefix + "UpdateResource", e.what());
  }
}

std::string ReferenceModel::Do(const Write& step) {
  if (!IsConnected()) {
    return "1";
  }
  Log(info, prefix + "Write", "Writing to item " + step.name);
  Item& item = ItemOf(step.name);
  const std::optional<Document> value = Written(step);
  if (!item.valid || !value) {
    return "1";
  }
  const Variant previous = item.value;
  item.value = VariantOf(step);
  try {
    if (!Send(item, *value)) {
      item.value = previous;
    }
  } catch (const std::runtime_error& e) {
    Log(error, prefix + "Write", e.what());
    return "1";
  }
  return "0";
}

bool ReferenceModel::Send(const Item& item, const Document& value) {
  const Answer answer = Ask("Update", item.uri, Nest(item.body, value).Text());
  if (answer.document.IsEmpty()) {
    return false;
  }
  const auto* status = std::get_if<long long>(&Need(answer, "status").content);
  if (status == nullptr) {
    throw std::runtime_error("JSON value: a string does not read as a number");
  }
  return *status >= 0;
}

std::string ReferenceModel::Do(const Call& step) {
  if (!IsConnected()) {
    return "1";
  }
  Log(info, prefix + "Call", "Calling method " + step.method);
  try {
    const std::string data = Dispatch(step).Text();
    const Document id = step.id ? Document(*step.id) : Document();
    events.push_back("response {\"id\":" + id.Text() + ",\"errcode\":0,\"data\":" + Quote(data) + "}");
    return "0";
  } catch (const std::runtime_error&) {
    return "1";
  }
}

Document ReferenceModel::Dispatch(const Call& step) {
  const auto result = [](const char* text) { return Nest({"result"}, Document(std::string(text))); };
  if (step.method == "RunSensor") {
    if (IsRunning()) {
      return result("Already running.");
    }
    StartSensor();
    return result("OK");
  }
  if (step.method == "StopSensor") {
    if (!IsRunning()) {
      return result("Not running");
    }
    StopSensor();
    return result("OK");
  }
  for (const char* verb : {"Call", "Create", "Read", "Update", "Delete"}) {
    if (step.method == verb) {
      try {
        return Forward(step);
      } catch (const std::runtime_error& e) {
        if (step.method == "Call") {
          Log(error, "ZoIO::Method::SensorCall", e.what());
        }
        return Document(std::string(e.what()));
      }
    }
  }
  throw std::runtime_error("No such method.");
}

Document ReferenceModel::Forward(const Call& step) {
  const Document arguments{Document::Members{}};
  const bool hasBody = step.method != "Read" && step.method != "Delete";
  if (hasBody && !step.args) {
    throw std::runtime_error(Missing(arguments, "args"));
  }
  if (hasBody) {
    ZoJson::ParseString(*step.args);  // what is no JSON raises, in the library's own words
  }
  if (!step.uri) {
    throw std::runtime_error(Missing(arguments, "uri"));
  }
  return Ask(step.method, *step.uri, hasBody ? *step.args : "").document;
}

std::string ReferenceModel::Do(const Subscribe& step) {
  std::vector<std::string> codes(step.names.size(), "untouched");
  int result = 0;
  const auto told = [&] {
    std::string text = std::to_string(result) + ":";
    for (const std::string& code : codes) {
      text += " " + code;
    }
    return text;
  };
  if (!IsConnected() || !step.withResults) {
    result = 1;
    return told();
  }
  Log(info, prefix + "Subscribe", "Subscribing items.");
  Group& group = groups.try_emplace(step.interval, Group{now * 1000, {}}).first->second;
  for (std::size_t i = 0; i < step.names.size(); ++i) {
    if (!step.names[i]) {
      Log(warning, prefix + "Subscribe", "Invalid item name. Skipping.");
      result = 1;
      return told();
    }
    try {
      codes[i] = std::to_string(SubscribeName(group, *step.names[i]));
    } catch (const std::runtime_error& e) {
      Log(error, prefix + "Subscribe", e.what());
      codes[i] = "6";
      result = 1;
    }
  }
  return told();
}

unsigned ReferenceModel::SubscribeName(Group& group, const std::string& name) {
  Item& item = ItemOf(name);
  int& users = streams[item.uri];
  if (users <= 0) {
    Log(info, prefix + "Subscribe", "Starting stream " + item.uri);
    users = 0;
    SubscribeItem(item);
  }
  group.entries.try_emplace(name);
  ++users;
  return item.value.kind;
}

void ReferenceModel::SubscribeItem(Item& item) {
  const Answer answer = Ask("Stream", item.uri);
  Log(info, prefix + "Subscribe", "Attempting to stream resource " + item.uri);
  const Document* payload = answer.Part("payload");
  if (payload != nullptr && !payload->IsEmpty()) {
    Log(info, prefix + "Subscribe", "Resource streamed successfully.");
  } else {
    Log(info, prefix + "Subscribe", "Stream attempt failed.Attempting to subscribe.");
    SubscribePattern(item);
  }
  item.subscribed = true;
}

void ReferenceModel::SubscribePattern(const Item& item) {
  int& users = subscriptions[item.pattern];
  if (users != 0) {
    Log(info, prefix + "Subscribe", "Resource already subscribed.Skipping.");
    ++users;
    return;
  }
  const Answer answer = Ask("Subscribe", item.pattern);
  const Document* status = answer.Part("status");
  if (status != nullptr && *status == Document(1LL)) {
    Log(info, prefix + "Subscribe", "Resource subscribed successfully.");
    ++users;
  } else {
    Log(warning, prefix + "Subscribe", "Could not subscribe resource.");
  }
}

std::string ReferenceModel::Do(const Unsubscribe& step) {
  if (!IsConnected()) {
    return "1";
  }
  Log(info, prefix + "Unsubscribe", "Unsubscribing items.");
  try {
    for (const std::string& name : step.names) {
      UnsubscribeName(name);
    }
    return "0";
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

void ReferenceModel::UnsubscribeName(const std::string& name) {
  Item& item = ItemOf(name);
  for (auto& [interval, group] : groups) {
    group.entries.erase(name);
  }
  std::erase_if(groups, [](const auto& group) { return group.second.entries.empty(); });
  int& users = streams[item.uri];
  --users;
  if (users < 1) {
    Log(info, prefix + "Unsubscribe", "Stopping stream " + item.uri);
    UnsubscribeItem(item);
    users = 0;
  }
}

void ReferenceModel::UnsubscribeItem(Item& item) {
  if (Ask("StopStream", item.uri).document.IsEmpty()) {
    int& users = subscriptions[item.pattern];
    if (users == 1) {
      Ask("Unsubscribe", item.pattern);
    }
    --users;  // may fall below 0
  }
  item.subscribed = false;
}

std::string ReferenceModel::Do(const Recreate& /*step*/) {
  subscriptions.clear();
  try {
    for (auto& [name, item] : items) {
      if (item.subscribed) {
        SubscribeItem(item);
      }
      UpdateResource(item.uri);
      item.Refresh(Newest(item.uri));
      Deliver(item);
    }
    return "";
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

}  // namespace ZoModel
