#include "tests/model/hoststeps.h"

#include <chrono>
#include <map>

#include "tests/model/item.h"
#include "tests/support/hostvalue.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoModel {

namespace {

constexpr int untouched = -77;

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

std::string Perform(ZoIO::ZoVyrnClient& client, const Subscribe& step) {
  std::vector<const char*> names;
  for (const auto& name : step.names) {
    names.push_back(name ? name->c_str() : nullptr);
  }
  names.push_back(nullptr);  // so that an array of no names is an array all the same
  std::vector<int> codes(names.size(), untouched);
  const int result =
      client.Subscribe(std::chrono::milliseconds(step.interval), names.data(),
                       step.withResults ? codes.data() : nullptr, static_cast<int>(step.names.size()));
  std::string text = std::to_string(result) + ":";
  for (std::size_t i = 0; i < step.names.size(); ++i) {
    text += " " + (codes[i] == untouched ? "untouched" : std::to_string(codes[i]));
  }
  return text;
}

std::string Perform(ZoIO::ZoVyrnClient& client, const Unsubscribe& step) {
  std::vector<const char*> names;
  for (const std::string& name : step.names) {
    names.push_back(name.c_str());
  }
  return Result(
      [&] { return std::to_string(client.Unsubscribe(names.data(), static_cast<int>(names.size()))); });
}

std::string Perform(ZoIO::ZoVyrnClient& client, const Read& step) {
  return std::to_string(client.Read(step.name));
}

std::string Perform(ZoIO::ZoVyrnClient& client, const Write& step) {
  return std::to_string(client.Write(step.name, 0, HostValue(step)));
}

std::string Perform(ZoIO::ZoVyrnClient& client, const Call& step, const void* token) {
  return std::to_string(client.Call(token, step.method, Arguments(step)));
}

std::vector<std::string> StateOf(ZoIO::ISensorManager& sensor, const std::set<std::string>& pushed) {
  std::map<std::string, std::string> items;  // in the order of names
  std::set<std::string> resources = pushed;
  for (const ZoIO::ItemInfo* item : sensor.PLC()->Snapshot()) {
    items.emplace(item->name, StateOf(*item));
    resources.insert(item->uri);
  }
  std::vector<std::string> lines;
  for (const auto& [name, line] : items) {
    lines.push_back(line);
  }
  for (const std::string& name : sensor.PLC()->InvalidItems()) {
    lines.push_back(name + " waits");
  }
  std::size_t cached = 0;
  for (const std::string& uri : resources) {
    if (sensor.Cache()->Exists(uri)) {
      lines.push_back(uri + " is cached " + std::to_string(sensor.Cache()->SizeAt(uri)) + " times");
      ++cached;
    }
  }
  if (cached != sensor.Cache()->Size()) {
    lines.push_back("something unknown is cached");
  }
  return lines;
}

std::string Told(const ZoTest::Entry& entry, const void* token) {
  switch (entry.kind) {
    case ZoTest::Entry::Kind::Value:
      return "value " + entry.item + " " + ZoTest::Describe(entry) + " status " +
             std::to_string(entry.value.status);
    case ZoTest::Entry::Kind::Result:
      return (entry.token == token ? "response " : "response to another ") + entry.response;
    case ZoTest::Entry::Kind::Log:
      break;
  }
  return "log " + ZoTest::LogLine(entry.level, entry.function, entry.message);
}

}  // namespace ZoModel
