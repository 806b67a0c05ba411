#include "tests/soak/catalogue.h"

#include <fmt/format.h>

#include <string_view>

namespace ZoSoak {
namespace {

constexpr std::int64_t kPerSensor = 1'000'000'000'000'000;
constexpr std::int64_t kPerStart = 10'000'000'000;  // samples: ten years of them
constexpr std::int64_t kPerItem = 10'000'000'000'000;

constexpr int kCounters = 6;
constexpr int kDoors = 2;
constexpr double kCounterRate = 20;
constexpr double kDoorRate = 5;

Item Named(const std::string& uri, const std::string& pointer, ItemKind kind, bool changes, double rate = 0,
           int number = 0) {
  return {uri + "#/" + pointer, uri, kind, changes, number, rate};
}

Items MakeSensorItems() {
  Items items;
  for (int i = 0; i < kCounters; ++i) {
    items.push_back(Named(fmt::format("/c{}", i), "n", ItemKind::Counter, true, kCounterRate));
  }
  for (int i = 0; i < kDoors; ++i) {
    items.push_back(Named(fmt::format("/door{}", i), "n", ItemKind::Counter, true, kDoorRate));
  }
  items.push_back(Named("/late", "n", ItemKind::Counter, true, kDoorRate));
  items.push_back(Named("/big", "n", ItemKind::BigCounter, true, kCounterRate));
  items.push_back(Named("/ramp", "v", ItemKind::Ramp, true, kCounterRate));
  items.push_back(Named("/text", "t", ItemKind::Text, true, kDoorRate));
  items.push_back(Named("/flag", "b", ItemKind::Flag, true, kDoorRate));
  for (int i = 0; i < kMostThreads; ++i) {
    items.push_back(Named(fmt::format("/set{}", i), "v", ItemKind::Set, false, 0, i));
    items.push_back(Named(fmt::format("/made{}", i), "v", ItemKind::Made, false, 0, i));
  }
  // None shares its resource with an item that is watched: whoever unsubscribes what is not subscribed takes a user from
  // the resource's stream.
  for (const char* name : {"", "#", "/", "#/x", "x", "/no%20where#/a b", "~#/~", "/set0", "/set0#/none",
                           "\xff#/\xff", "/a#/b#/c", "\n#/\n", "*#/*", "/set1#/v/deeper"}) {
    const std::string_view whole = name;
    items.push_back({name, std::string(whole.substr(0, whole.find('#'))), ItemKind::Odd, false, 0, 0});
  }
  return items;
}

Items MakeSimulatorItems() {
  Items items;
  for (int i = 0; i < 3; ++i) {
    items.push_back(Named(fmt::format("/sim/i{}", i), "int", ItemKind::SimulatedInteger, true));
    items.push_back(Named(fmt::format("/sim/s{}", i), "string", ItemKind::SimulatedText, true));
    items.push_back(Named(fmt::format("/sim/b{}", i), "bool", ItemKind::SimulatedFlag, true));
    items.push_back(Named(fmt::format("/sim/f{}", i), "float", ItemKind::SimulatedFloat, true));
  }
  return items;
}

}  // namespace

const Items& SensorItems() {
  static const Items items = MakeSensorItems();
  return items;
}

const Items& SimulatorItems() {
  static const Items items = MakeSimulatorItems();
  return items;
}

std::int64_t CounterValue(int sensor, int start, std::int64_t sample) {
  return (sensor + 1) * kPerSensor + start * kPerStart + sample;
}

std::int64_t WrittenValue(int sensor, int item, std::uint64_t write) {
  return (sensor + 1) * kPerSensor + item * kPerItem + static_cast<std::int64_t>(write);
}

std::string TextValue(int sensor, int start, int which) {
  return fmt::format("sensor {}, start {}, text {} äöü", sensor, start, which);
}

std::string ResourceFile(int sensor, int start) {
  const std::int64_t first = CounterValue(sensor, start, 0);
  std::string resources;
  const auto add = [&resources](const std::string& uri, const std::string& body) {
    resources += fmt::format("{}\n\"{}\": {{{}}}", resources.empty() ? "" : ",", uri, body);
  };
  const auto counter = [&add](const std::string& uri, std::uint64_t from, double rate, const char* more) {
    add(uri, fmt::format(R"("rate_hz": {0}, "content": {{"n": {1}}}, {2}
        "waves": {{"/n": {{"wave": "counter", "start": {1}}}}})",
                         rate, from, more));
  };
  for (const Item& item : SensorItems()) {
    if (item.kind == ItemKind::Counter) {
      const char* more = item.uri == "/late"             ? R"("appears_after_s": 4,)"
                         : item.uri.starts_with("/door") ? R"("stream": false,)"
                                                         : "";
      counter(item.uri, static_cast<std::uint64_t>(first), item.rate, more);
    } else if (item.kind == ItemKind::BigCounter) {
      counter(item.uri, kBigBase + static_cast<std::uint64_t>(first), item.rate, "");
    } else if (item.kind == ItemKind::Set) {
      // Every other one tells its changes to subscribers, once each: nothing brings a lost one back.
      add(item.uri,
          fmt::format(R"("content": {{"v": 0}}, "writable": true, "integers": ["/v"], "stream": {})",
                      item.number % 2 == 0));
    }
  }
  add("/ramp", R"("rate_hz": 20, "content": {"v": 0.5}, "waves": {"/v": {"wave": "ramp", "period_s": 5}})");
  std::string texts;
  for (int i = 0; i < kTexts; ++i) {
    texts += fmt::format("{}\"{}\"", i == 0 ? "" : ",", TextValue(sensor, start, i));
  }
  add("/text", fmt::format(R"("rate_hz": 5, "content": {{"t": "{}"}},
      "waves": {{"/t": {{"wave": "cycle", "values": [{}], "each_s": 0.7}}}})",
                           TextValue(sensor, start, 0), texts));
  add("/flag", R"("rate_hz": 5, "content": {"b": false},
      "waves": {"/b": {"wave": "cycle", "values": [false, true], "each_s": 0.7}})");
  add("/echo", R"("call": {"echo": true})");
  return fmt::format("{{\"name\": \"soak {}\", \"resources\": {{{}}}}}\n", sensor, resources);
}

}  // namespace ZoSoak
