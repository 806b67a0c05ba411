// One client's session, without its socket: takes messages, answers them, passes pushes on, and lets faults
// happen.
//
// Threads: the I/O thread alone. Owner: the session with the socket, which is its outlet and outlives it.
// Invariants: (1) the answer of a request is sent before the pushes that it caused; (2) pushes keep their
// order, also when they are delayed.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/zosensor/clock.h"
#include "tools/zosensor/faults.h"
#include "tools/zosensor/limits.h"
#include "tools/zosensor/log.h"
#include "tools/zosensor/outgoing.h"
#include "tools/zosensor/sensor.h"
#include "tools/zosensor/wire.h"

namespace ZoSensor {

enum class CloseCode : std::uint16_t { Normal = 1000, GoingAway = 1001, NoJsonObject = 1007, TooBig = 1009 };

// The way out of a session. None of these calls back.
class Outlet {
 public:
  virtual ~Outlet() = default;
  virtual void Send(Outgoing item) = 0;
  virtual void Close(CloseCode code, std::string_view reason) = 0;
  // Ends the connection without a word.
  virtual void Cut(std::string_view reason) = 0;
  // Step shall be called then.
  virtual void WakeAt(Time time) = 0;
};

class SessionCore final : public Watcher {
 public:
  SessionCore(Sensor& sessionSensor, FaultController& faultController, const Limits& sessionLimits,
              Log& sessionLog, Outlet& sessionOutlet, std::string peerName);
  ~SessionCore() override;
  SessionCore(const SessionCore&) = delete;
  SessionCore& operator=(const SessionCore&) = delete;

  // A message of the client. text: a text message, not a binary one.
  void Receive(std::string_view message, bool text, Time now);
  // Sends what was delayed until now.
  void Step(Time now);
  void Push(PushKind kind, const std::string& uri, const SharedText& text, Time now) override;

 private:
  Answer DispatchSafely(const Request& request, Time now);
  Answer Dispatch(const Request& request, Time now);
  Answer DispatchPayload(const Request& request, const std::string& path, Time now);
  void Deliver(Outgoing answer, const FaultPlan& plan, Time now);
  void DeliverWithin(Outgoing item, Time due, Time now);
  void SendDelayed(Time now);
  static Outgoing Garbage(std::uint64_t flavour);
  static Outgoing Truncated(const SharedText& text);

  Sensor& sensor;
  FaultController& faults;
  const Limits& limits;
  Log& log;
  Outlet& outlet;
  const std::string peer;
  FaultDice dice;
  std::uint64_t requests = 0;
  std::vector<Outgoing> causedPushes;  // by the request that is being dispatched
  bool dispatching = false;
  std::multimap<Time, Outgoing> delayed;
  std::size_t delayedBytes = 0;
  Time lastPushDue{};
  std::optional<Outgoing> heldBack;  // an answer that another one shall overtake
  Time heldBackUntil = Never;
};

}  // namespace ZoSensor
