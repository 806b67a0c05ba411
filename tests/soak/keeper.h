// Keeps one sensor: starts it, does to it what the seed says, and heals it again.
//
// Threads: one of its own, from the construction to End. The others are called from one thread.
// Owner: the soak.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "tests/soak/breaches.h"
#include "tests/soak/facts.h"
#include "tests/soak/sensorprocess.h"

namespace ZoSoak {

struct Fault {
  const char* name;
  bool disorders;  // answers may overtake pushes
  // What to set in /faults, with {} for a number between least and most; null for what is done otherwise.
  const char* settings;
  double least;
  double most;
};

inline constexpr std::array<Fault, 19> kFaults{{
    {"latency", true, R"({{"latency_ms": {:.0f}}})", 20, 1500},
    {"jitter", true, R"({{"jitter_ms": {:.0f}}})", 20, 1000},
    {"lose", false, R"({{"lose": {:.3f}}})", 0.05, 0.3},
    {"error", false, R"({{"error": {:.3f}, "error_status": -503}})", 0.1, 0.9},
    {"garbage", false, R"({{"garbage": {:.3f}}})", 0.05, 0.5},
    {"truncate", false, R"({{"truncate": {:.3f}}})", 0.05, 0.5},
    {"duplicate", false, R"({{"duplicate": {:.3f}}})", 0.1, 1},
    {"reorder", true, R"({{"reorder": {:.3f}}})", 0.1, 1},
    {"cut every request", false, R"({{"cut_every_requests": {:.0f}}})", 2, 20},
    {"cut every s", false, R"({{"cut_every_s": {:.2f}}})", 0.2, 2},
    {"stall every request", false, R"({{"stall_every_requests": {:.0f}, "stall_s": 2}})", 5, 30},
    {"stall every s", false, R"({{"stall_every_s": {:.2f}, "stall_s": 2}})", 1, 5},
    {"mute pushes", false, R"({{"mute_pushes": true}})", 0, 0},
    {"refuse start", false, R"({{"refuse_start": true}})", 0, 0},
    {"cut", false, nullptr, 0, 0},
    {"stall", false, nullptr, 1, 6},
    {"freeze", false, nullptr, 0, 0},
    {"kill", false, nullptr, 0, 0},
    {"stop", false, nullptr, 0, 0},
}};

class Keeper {
 public:
  // Returns when the sensor listens; raises std::runtime_error when it does not.
  Keeper(SensorFacts& facts, const std::filesystem::path& folder, std::uint64_t seed, Tallies& tallies,
         Breaches& breaches);
  ~Keeper();
  Keeper(const Keeper&) = delete;
  Keeper& operator=(const Keeper&) = delete;

  // No more faults: the sensor is healed if it has to be, and stays. Returns when it is healthy.
  void Calm();
  // Kills it. Does nothing the second time.
  void End();

  std::uint64_t Done(std::size_t fault) const { return done[fault]; }

 private:
  enum class State { Starting, Failed, Troubling, Calm };

  void Run();
  void TroubleUntilCalm();
  void Trouble(std::size_t which);
  void Do(const Fault& fault);
  void Restart(int signal);
  void Heal();
  void Enter(State next);
  // Whether it is time to become calm.
  bool WaitFor(double seconds);
  double Between(double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(random);
  }

  SensorFacts& facts;
  Tallies& tallies;
  Breaches& breaches;
  SensorProcess process;
  std::mt19937_64 random;
  std::array<std::atomic<std::uint64_t>, kFaults.size()> done{};

  std::mutex mutex;
  std::condition_variable changed;
  State state = State::Starting;
  std::string failure;
  bool calmWanted = false;
  bool endWanted = false;
  std::thread thread;
};

}  // namespace ZoSoak
