// What may happen to an instance: one step after the other makes a history.
//
// Plain values. Every step is possible in every state, so any part of a history is a history too.
#pragma once

#include <compare>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

#include "tests/model/document.h"
#include "tests/model/scriptedsensor.h"

namespace ZoModel {

// What a host does. No name stands for a null pointer.
struct Subscribe {
  long long interval;  // ms
  std::vector<std::optional<std::string>> names;
  bool withResults;
};
struct Unsubscribe {
  std::vector<std::string> names;
};
struct Read {
  std::string name;
};
struct Write {
  std::string name;
  unsigned type;
  unsigned long long bits;          // of the value, whatever its type
  std::optional<std::string> text;  // of a string
};
struct Call {
  std::string method;
  std::optional<long long> id;
  std::optional<std::string> uri;
  std::optional<std::string> args;  // JSON text
};

// What the instance's own threads do.
struct MonitorPass {};
struct RetryPass {};
struct Trim {};

// What the sensor manager does on its own: it looks an item up, or brings everything back after a new connection.
struct LookUp {
  std::string name;
};
struct Recreate {};

// What the world does.
struct Push {
  std::string uri;
  Document payload;
};
struct Hold {
  std::string uri;
  std::optional<Document> payload;  // none: the resource goes
};
struct Answers {
  std::string verb;
  Mood mood;
};
struct Connection {
  bool up;
};
struct Clock {
  long long by;  // µs, also backwards
};

using Step = std::variant<Subscribe, Unsubscribe, Read, Write, Call, MonitorPass, RetryPass, Trim, LookUp,
                          Recreate, Push, Hold, Answers, Connection, Clock>;
using History = std::vector<Step>;

std::string Describe(const Step& step);
// One step a line.
std::string Describe(const History& history);

// For the reports of RapidCheck, which finds it by the namespace of the variant's parts.
void showValue(const History& history, std::ostream& out);

}  // namespace ZoModel
