// Faults on purpose: what may go wrong, how often, and the dice that decide for each request.
//
// The settings are a resource of the sensor, /faults, beside the methods /faults/cut, /faults/stall and
// /faults/reset; requests for these are never disturbed, so that faults can always be ended.
// Threads: the I/O thread alone.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tools/zosensor/clock.h"
#include "tools/zosensor/sensor.h"
#include "tools/zosensor/uri.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoSensor {

struct FaultSettings {
  std::string only = "*";  // requests for what this pattern matches
  double latencyMs = 0;    // each answer and push comes later by this ...
  double jitterMs = 0;     // ... and up to this
  double lose = 0;         // shares of the answers, 0 to 1
  double error = 0;
  std::int64_t errorStatus = -500;
  double garbage = 0;
  double truncate = 0;
  double duplicate = 0;
  double reorder = 0;
  std::uint64_t cutEveryRequests = 0;    // of one connection; 0: never
  double cutEveryS = 0;                  // all connections
  std::uint64_t stallEveryRequests = 0;  // of all clients together
  double stallEveryS = 0;
  double stallS = 5;  // how long a stall lasts
  bool mutePushes = false;
  bool refuseStart = false;

  ZoJson ToJson() const;
  // From a document as ToJson makes it. The sentence of what is out of its range goes to objection.
  static std::optional<FaultSettings> FromJson(const ZoJson& document, std::string& objection);
  // These settings with one of them changed: "lose=0.1". Nothing, and an objection, when that cannot be.
  std::optional<FaultSettings> With(std::string_view assignment, std::string& objection) const;
};

// What happens to one request.
struct FaultPlan {
  bool error = false;
  bool lose = false;
  bool garbage = false;
  bool truncate = false;
  bool duplicate = false;
  bool reorder = false;
  Duration latency{};
  std::uint64_t flavour = 0;  // which garbage
};

// What becomes of an answer that does not arrive as it is, for the log; empty for one that does.
std::string_view Fate(const FaultPlan& plan);

// One connection's dice. Each roll takes as many numbers whatever the settings are: a run with one seed and
// one order of requests repeats itself, also when shares change.
class FaultDice {
 public:
  FaultDice(std::uint64_t seed, std::uint64_t connection);

  FaultPlan Roll(const FaultSettings& settings);
  Duration RollPushLatency(const FaultSettings& settings);

 private:
  static Duration Latency(const FaultSettings& settings, double unit);

  std::uint64_t key;
  std::uint64_t rolls = 0;
  std::uint64_t pushRolls = 0;
};

// What one request brings about for the connections, beside its own answer.
enum class Disturbance { None, Cut, Stall };

class FaultController {
 public:
  FaultController(const FaultSettings& initial, std::uint64_t seed, Time now);

  // Adds the resources to the sensor, which must outlive this object's use, and guards its start.
  void Install(Sensor& sensor, Time now);

  const FaultSettings& Settings() const { return settings; }
  FaultDice MakeDice() { return {seed, ++connections}; }

  // Whether faults concern a request for this path; they never do for /faults itself.
  bool Concerns(std::string_view path) const;
  // Counts a request that they concern. requests: the connection's own count.
  Disturbance Count(std::uint64_t& requests);

  // Cuts and stalls by the clock.
  void Step(Time now);
  Time NextDue() const { return std::min(nextCut, nextStall); }

  // Carried out by the server, after a delay and never before they return.
  std::function<void(Duration delay)> cutAll = [](Duration) {};
  std::function<void(Duration delay, Duration length)> stallAll = [](Duration, Duration) {};

  // Begins a stall after a delay. All of them begin here: the next one by the clock counts from the end of the last.
  void Stall(Duration delay, Duration length, Time now);
  Duration StallTime() const { return SecondsToDuration(settings.stallS); }

 private:
  void Apply(const FaultSettings& next, Time now);
  static std::shared_ptr<Resource> MakeMethod(const char* path);

  FaultSettings settings;
  std::optional<Pattern> only;
  const std::uint64_t seed;
  std::uint64_t connections = 0;
  std::uint64_t allRequests = 0;
  Time nextCut = Never;
  Time nextStall = Never;
  Time stallEnd{};  // of the last one
};

}  // namespace ZoSensor
