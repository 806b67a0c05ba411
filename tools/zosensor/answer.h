// What the model answers to one request. A plain value.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tools/zosensor/clock.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoSensor {

// A JSON text that many clients are sent: printed once, shared by their queues.
using SharedText = std::shared_ptr<const std::string>;

inline SharedText ShareText(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

enum class Status {
  Success = 1,
  Malformed = -400,
  NotFound = -404,
  NotAllowed = -405,
  Conflict = -409,
  TooLarge = -413,
  WrongKind = -422,
  Internal = -500,
  Busy = -503,
};

struct Answer {
  int status = static_cast<int>(Status::Success);
  SharedText payload;  // JSON text; none for a success without data
  std::string error;   // the sentence of a failure
  bool bare = false;   // an acknowledgement and nothing else
  Duration delay{};    // how long the sensor takes its time
  // What it changes, to be made when the answer is due, by Sensor::CompleteAt.
  std::function<void(Time)> completion;

  bool Succeeded() const { return status == static_cast<int>(Status::Success); }

  static Answer Success() { return {}; }
  static Answer Success(SharedText payload) {
    Answer answer;
    answer.payload = std::move(payload);
    return answer;
  }
  static Answer Success(const ZoJson& payload) { return Success(ShareText(payload.ToString())); }
  static Answer Bare() {
    Answer answer;
    answer.bare = true;
    return answer;
  }
  static Answer Failure(int status, std::string reason) {
    Answer answer;
    answer.status = status;
    answer.error = std::move(reason);
    return answer;
  }
  static Answer Failure(Status status, std::string reason) {
    return Failure(static_cast<int>(status), std::move(reason));
  }
  static Answer NoResource(const std::string& path) {
    return Failure(Status::NotFound, "there is no resource " + path);
  }
};

}  // namespace ZoSensor
