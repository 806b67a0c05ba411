#include "tests/model/wiresteps.h"

namespace ZoModel {

namespace {

struct Teller {
  template <typename Kind>
  std::string operator()(const Kind& step) const {
    return Describe(Step(step));
  }
  std::string operator()(const StrayPush& step) const {
    return std::string("sensor pushes ") + (step.stream ? "stream " : "notification ") + Quote(step.uri) +
           " " + step.payload.Text();
  }
  std::string operator()(const Cut&) const { return "session cut"; }
  std::string operator()(const Restart&) const { return "sensor restarted"; }
  std::string operator()(const LeaveUnanswered& step) const {
    return std::string("request to be answered ") + (step.late ? "too late" : "never");
  }
  std::string operator()(const LoseStart& step) const {
    return std::string("session to be cut instead of the grant of a ") +
           (step.stream ? "stream" : "subscription");
  }
  std::string operator()(const Spoil& step) const {
    return "what is said of " + Quote(step.uri) + " " + (step.how ? Name(*step.how) : "is usable");
  }
  std::string operator()(const UnusablePush& step) const {
    return std::string("sensor pushes ") + (step.stream ? "stream " : "notification ") + Quote(step.uri) +
           " that " + Name(step.how);
  }
  std::string operator()(const LoseAnswer&) const { return "session to be cut instead of an answer"; }
};

}  // namespace

bool IsOneRequest(const Call& call) {
  return call.method != "RunSensor" && call.method != "StopSensor";
}

bool ComesLate(const std::string& method, const LeaveUnanswered& step) {
  return IsStart(method) || step.late;
}

std::string Describe(const WireStep& step) {
  return std::visit(Teller(), step);
}

void showValue(const WireHistory& history, std::ostream& out) {
  out << history.size() << " steps\n";
  for (const WireStep& step : history) {
    out << "  " << Describe(step) << "\n";
  }
}

}  // namespace ZoModel
