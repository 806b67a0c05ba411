// A sensor without sockets, on a clock that the test moves by hand.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/zosensor/resourcefile.h"
#include "tools/zosensor/sensor.h"

namespace ZoSensor {

// Remembers what it is pushed.
class RecordingWatcher final : public Watcher {
 public:
  struct Item {
    PushKind kind;
    std::string uri;
    ZoJson message;
  };

  void Push(PushKind kind, const std::string& uri, const SharedText& text, Time) override {
    items.push_back({kind, uri, ZoJson::ParseString(*text)});
  }

  std::vector<std::string> Uris() const {
    std::vector<std::string> uris;
    for (const Item& item : items) {
      uris.push_back(item.uri);
    }
    return uris;
  }
  std::vector<Item> Take() { return std::exchange(items, {}); }

  std::vector<Item> items;
};

class ModelFixture : public ::testing::Test {
 protected:
  void Start(std::string_view resources) {
    sensor = std::make_unique<Sensor>(ParseResources(resources, "test"), limits, 1, now);
  }
  // Moves the clock, stopping wherever something is due.
  void Pass(Duration time) {
    const Time end = now + time;
    while (sensor->NextDue() <= end) {
      now = std::max(now, sensor->NextDue());
      sensor->Step(now);
    }
    now = end;
  }

  Answer Read(const std::string& path) { return sensor->Read(path, now); }
  ZoJson Content(const std::string& path) {
    const Answer answer = Read(path);
    return answer.payload != nullptr ? ZoJson::ParseString(*answer.payload) : ZoJson();
  }
  Answer Update(const std::string& path, std::string_view patch) {
    return sensor->Update(path, ZoJson::ParseString(patch), now);
  }
  Answer Create(const std::string& path, std::string_view content) {
    return sensor->Create(path, ZoJson::ParseString(content), now);
  }
  Answer Call(const std::string& path, std::string_view argument = "null") {
    return sensor->Call(path, ZoJson::ParseString(argument), now);
  }
  Answer Subscribe(const std::string& text) { return sensor->Subscribe(watcher, text, now); }

  Limits limits;
  Time now{std::chrono::hours(1)};
  RecordingWatcher watcher;
  std::unique_ptr<Sensor> sensor;
};

inline ZoJson Json(std::string_view text) {
  return ZoJson::ParseString(text);
}

}  // namespace ZoSensor
