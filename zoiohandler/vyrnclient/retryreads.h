// The reads by which the registry's worker looks for missing items.
//
// The worker's pass holds the registry's lock, and host calls need that lock too. So what the pass before has looked for is
// asked for before it begins, and most answers are there when it does; for what is new it waits only a moment for all
// answers together, and an answer that takes longer is there for the next pass. A resource that never answers so costs
// nobody its time-out. Only so many requests are under way at once, as host calls queue behind them at the sensor; where
// resources are more, they take turns.
//
// Threads: BeginPass and Read one at a time; GiveUp any. Owner: the shared state of a sensor manager. Lock: mutex, rank
// HandlerGate, never held while waiting or calling the SDK.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zoapi/threads/lockranks.h"
#include "zovyrnsdk/zotransaction.h"

namespace ZoIO {

class RetryReads {
 public:
  using Ask = std::function<ZoTransaction(const std::string& uri)>;
  using IsMissing = std::function<bool(const std::string& uri)>;

  // isMissing: whether the worker, who looks in the cache first, would still ask about a resource.
  RetryReads(Ask ask, IsMissing isMissing) : ask(std::move(ask)), isMissing(std::move(isMissing)) {}
  RetryReads(const RetryReads&) = delete;
  RetryReads& operator=(const RetryReads&) = delete;

  // Requests that the pass before did not ask about are cancelled. What it did ask about and is still missing is asked
  // anew, unless the sensor is away, and waited for: 200 ms at most. Raises once it was given up.
  void BeginPass(bool online);

  struct Outcome {
    ZoTransaction request;
    bool known;  // to somebody who asked in this pass before
  };
  // The request about uri with its outcome (answer, refusal, failure or 3 s without any), which GetResponse then gives at
  // once; the same one to all who ask in one pass. Nothing while there is none. Raises once it was given up.
  std::optional<Outcome> Read(const std::string& uri);

  // Ends a Read that waits. Never blocks.
  void GiveUp() noexcept;
  void RaiseIfGivenUp();

 private:
  using Clock = std::chrono::steady_clock;

  struct Resource {
    std::optional<ZoTransaction> underWay;
    Clock::time_point since;               // it was sent
    std::uint64_t sentIn = 0;              // which pass
    std::optional<ZoTransaction> outcome;  // of this pass
    std::uint64_t turn = 0;                // the last that it had
    std::uint64_t pass = 0;                // the last that asked
    std::uint64_t givenIn = 0;             // the last that was given an outcome
  };
  using Entry = std::pair<const std::string, Resource>;

  static void Cancel(ZoTransaction& transaction) noexcept;
  void Send(const std::string& uri, Resource& resource);
  void Take(Resource& resource);
  // Whether what is under way has its outcome.
  bool Settle(Resource& resource);
  bool Wait(ZoTransaction& transaction, Clock::duration patience);
  void Check() const Q_REQUIRES(mutex);

  const Ask ask;
  const IsMissing isMissing;
  std::unordered_map<std::string, Resource> resources;  // by uri
  std::vector<Entry*> asked;                            // about in this pass, in this order
  std::size_t sent = 0;                                 // requests under way
  std::uint64_t pass = 0;
  std::uint64_t turn = 1;
  bool turnedAway = false;  // somebody, in this turn
  Clock::time_point passEnd{};

  Zo::Mutex mutex{"RetryReads", Zo::LockRank_HandlerGate};
  bool givenUp Q_GUARDED_BY(mutex) = false;
  std::optional<ZoTransaction> waiting Q_GUARDED_BY(mutex);
};

}  // namespace ZoIO
