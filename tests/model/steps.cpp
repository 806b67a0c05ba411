#include "tests/model/steps.h"

namespace ZoModel {

namespace {

std::string Words(const Document& payload) {
  return payload.Text();
}

std::string Words(const std::optional<std::string>& text) {
  return text ? Quote(*text) : "null";
}

template <typename Texts>
std::string List(const Texts& texts) {
  std::string all;
  for (const auto& text : texts) {
    all += " " + Words(text);
  }
  return all;
}

struct Teller {
  std::string operator()(const Subscribe& step) const {
    return "subscribe every " + std::to_string(step.interval) + " ms" + List(step.names) +
           (step.withResults ? "" : " without results");
  }
  std::string operator()(const Unsubscribe& step) const { return "unsubscribe" + List(step.names); }
  std::string operator()(const Read& step) const { return "read " + Quote(step.name); }
  std::string operator()(const Write& step) const {
    return "write " + Quote(step.name) + " type " + std::to_string(step.type) + " bits " +
           std::to_string(step.bits) + " text " + Words(step.text);
  }
  std::string operator()(const Call& step) const {
    return "call " + Quote(step.method) + " id " + (step.id ? std::to_string(*step.id) : "none") + " uri " +
           Words(step.uri) + " args " + Words(step.args);
  }
  std::string operator()(const MonitorPass&) const { return "monitor pass"; }
  std::string operator()(const RetryPass&) const { return "retry pass"; }
  std::string operator()(const Trim&) const { return "trim"; }
  std::string operator()(const LookUp& step) const { return "look up " + Quote(step.name); }
  std::string operator()(const Recreate&) const { return "recreate subscriptions"; }
  std::string operator()(const Push& step) const {
    return "push " + Quote(step.uri) + " " + Words(step.payload);
  }
  std::string operator()(const Hold& step) const {
    return "sensor holds " + Quote(step.uri) + " " + (step.payload ? Words(*step.payload) : "no more");
  }
  std::string operator()(const Answers& step) const {
    return "sensor, asked to " + step.verb + ", " + Name(step.mood);
  }
  std::string operator()(const Connection& step) const {
    return step.up ? "sensor online" : "sensor offline";
  }
  std::string operator()(const Clock& step) const { return "clock by " + std::to_string(step.by) + " µs"; }
};

}  // namespace

std::string Describe(const Step& step) {
  return std::visit(Teller(), step);
}

std::string Describe(const History& history) {
  std::string text;
  for (const Step& step : history) {
    text += "  " + Describe(step) + "\n";
  }
  return text;
}

void showValue(const History& history, std::ostream& out) {
  out << history.size() << " steps\n" << Describe(history);
}

}  // namespace ZoModel
