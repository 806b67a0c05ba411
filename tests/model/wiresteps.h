// What may happen to an instance that a real link connects with a sensor: one step after the other makes a history.
//
// Plain values. Every step is possible in every state, so any part of a history is a history too.
#pragma once

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

#include "tests/model/steps.h"
#include "tests/model/unusable.h"
#include "tests/model/wiresensor.h"

namespace ZoModel {

// The sensor pushes of its own accord, whether somebody asked for it or not. (What was asked for it pushes when a
// resource changes, which is a Hold.)
struct StrayPush {
  bool stream;  // else a notification
  std::string uri;
  Document payload;
};
// The session breaks; the sensor is there and takes the next one.
struct Cut {};
// Likewise, but the sensor has forgotten its resources.
struct Restart {};
// The session breaks in place of the first answer to the next read, write, or call of a method of one request. (Not
// where more requests may follow in the same step: whether those still find the link down is a matter of luck.)
struct LoseAnswer {};
// The session breaks in place of the answer to the next start of a stream, or of a subscription, that a batch of one name
// brings. Whether the sensor has granted it by then makes no difference: that would have ended with the session.
struct LoseStart {
  bool stream;
};
// What the sensor says of a resource ends the session, or does so no more: an answer to a read, write, or call of a method
// of one request; that to a stream's start which a batch of one name brings.
struct Spoil {
  std::string uri;
  std::optional<Unusable> how;
};
// The sensor pushes what ends the session.
struct UnusablePush {
  bool stream;  // else a notification
  std::string uri;
  Unusable how;
};
// The first request of the next call of the host stays unanswered for longer than the call waits. (Questions about the
// sensor itself are answered always.)
struct LeaveUnanswered {
  bool late;  // comes after all; that to a start always does, as what becomes of it is the link's matter
};
bool ComesLate(const std::string& method, const LeaveUnanswered& step);

// A Connection that is down: the sensor takes no new session until it is up again.
using WireStep = std::variant<Subscribe, Unsubscribe, Read, Write, Call, MonitorPass, RetryPass, Trim, LookUp,
                              Hold, Answers, Connection, Clock, StrayPush, Cut, Restart, LoseAnswer,
                              LoseStart, Spoil, UnusablePush, LeaveUnanswered>;
using WireHistory = std::vector<WireStep>;

// Whether a call brings the sensor one request at most.
bool IsOneRequest(const Call& call);

// What the instance under test is told of a step.
struct Expected {
  std::size_t requests = 0;           // that must come to the sensor
  MayEnd mayEnd = MayEnd::AtNothing;  // of its session
};

std::string Describe(const WireStep& step);

// For the reports of RapidCheck.
void showValue(const WireHistory& history, std::ostream& out);

}  // namespace ZoModel
