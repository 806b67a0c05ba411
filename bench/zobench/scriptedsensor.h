// A sensor that costs next to nothing: every content and every push is composed once and then only sent, so that what is
// measured is the plug-in. It grants everything.
//
// A resource's content is {"n":1000000000, and what the case's script says of its URI; n is the number of the round in
// which it was pushed. Runs in a child process, on one thread; commands come over the child's channel, one at a time,
// and each returns when it has been carried out. Owner: a case.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "bench/zobench/child.h"

namespace ZoBench {

// The members behind n, such as "a":1,"b":2; may be empty.
using Script = std::function<std::string(std::string_view uri)>;

// What n counts from: numbers of one width, so that a round only overwrites digits.
constexpr std::uint64_t FirstRound = 1'000'000'000;

struct SensorRecord {
  std::uint64_t requests = 0;      // since the start
  std::uint64_t requestBytes = 0;  // the last one on the wire, frame and all
  std::uint64_t answerBytes = 0;   // likewise
  std::string lastRequest;
};

class ScriptedSensor {
 public:
  explicit ScriptedSensor(Script script);

  std::uint16_t Port() const { return port; }
  pid_t Pid() const { return child.Pid(); }

  // Pushes everything that the client streams, in the order in which it was asked for, rounds times, and then a ping;
  // returns when the client has answered that, so that it has read everything. Clients count from 0 in the order in
  // which they connected.
  void Push(unsigned client, std::uint64_t firstRound, std::uint64_t rounds) const;
  // The same in two halves.
  void BeginPush(unsigned client, std::uint64_t firstRound, std::uint64_t rounds) const;
  void AwaitPush() const;

  SensorRecord Record() const;

 private:
  Child child;
  std::uint16_t port = 0;
};

}  // namespace ZoBench
