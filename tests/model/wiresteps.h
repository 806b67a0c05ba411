// What may happen to an instance that a real link connects with a sensor: one step after the other makes a history.
//
// Plain values. Every step is possible in every state, so any part of a history is a history too.
#pragma once

#include <ostream>
#include <string>
#include <variant>
#include <vector>

#include "tests/model/steps.h"

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
// The session breaks in place of the first answer to the next read, write, or call of a method of one request.
//
// Not in place of an answer to a stream's or subscription's start: what becomes of that is the link's matter, and
// here nobody relies on it. (Nor where more requests may follow in the same step: whether those still find the link down
// is a matter of luck.)
struct LoseAnswer {};
// The first request of the next call of the host stays unanswered for longer than the call waits. (Questions about the
// sensor itself are answered always.)
struct LeaveUnanswered {
  bool late;  // comes after all; that to a start always does, for the reason above
};

// A Connection that is down: the sensor takes no new session until it is up again.
using WireStep =
    std::variant<Subscribe, Unsubscribe, Read, Write, Call, MonitorPass, RetryPass, Trim, LookUp, Hold,
                 Answers, Connection, Clock, StrayPush, Cut, Restart, LoseAnswer, LeaveUnanswered>;
using WireHistory = std::vector<WireStep>;

// Whether a call brings the sensor one request at most.
bool IsOneRequest(const Call& call);

std::string Describe(const WireStep& step);

// For the reports of RapidCheck.
void showValue(const WireHistory& history, std::ostream& out);

}  // namespace ZoModel
