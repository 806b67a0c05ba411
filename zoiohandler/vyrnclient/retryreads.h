// The reads by which the registry's worker looks for missing items.
//
// The worker reads with the registry's lock held, and host calls need that lock too. So a pass waits only a moment for
// all of its answers together; one that takes longer is there for the next pass. A resource that never answers so costs
// nobody its time-out.
//
// Threads: BeginPass and Read one at a time; GiveUp any. Owner: the shared state of a sensor manager. Lock: mutex, rank
// HandlerGate, never held while waiting or calling the SDK.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "zoapi/threads/lockranks.h"
#include "zovyrnsdk/zotransaction.h"

namespace ZoIO {

class RetryReads {
 public:
  using Ask = std::function<ZoTransaction(const std::string& uri)>;

  explicit RetryReads(Ask ask) : ask(std::move(ask)) {}
  RetryReads(const RetryReads&) = delete;
  RetryReads& operator=(const RetryReads&) = delete;

  // Requests that the pass before did not ask about are cancelled.
  void BeginPass();

  // The request about uri once it has its outcome (answer, refusal, failure or 3 s without any), which GetResponse then
  // gives at once; nothing while it is under way. Raises once it was given up.
  std::optional<ZoTransaction> Read(const std::string& uri);

  // Ends a Read that waits. Never blocks.
  void GiveUp() noexcept;
  void RaiseIfGivenUp();

 private:
  using Clock = std::chrono::steady_clock;

  struct Request {
    ZoTransaction transaction;
    Clock::time_point since;
    std::uint64_t pass = 0;  // the last that asked
  };

  static void Cancel(ZoTransaction& transaction) noexcept;
  bool Wait(ZoTransaction& transaction);

  const Ask ask;
  std::unordered_map<std::string, Request> underWay;  // by uri
  std::uint64_t pass = 0;
  Clock::time_point passEnd{};

  Zo::Mutex mutex{"RetryReads", Zo::LockRank_HandlerGate};
  bool givenUp Q_GUARDED_BY(mutex) = false;
  std::optional<ZoTransaction> waiting Q_GUARDED_BY(mutex);
};

}  // namespace ZoIO
