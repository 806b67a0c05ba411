// The link's side of one request: where its outcome is kept, and who waits for it.
//
// Owners: the transactions that the request was handed out to; the link only looks at it weakly. Threads:
// any; settled once, by whoever comes first (the answer, a broken link, a time-out, a cancel), and unchanged
// afterwards. Lock: its own, innermost of the link's.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "zoapi/threads/lockranks.h"
#include "zovyrnsdk/zorequest.h"
#include "zovyrnsdk/zoresponse.h"

namespace ZoSdk {
class Connection;
}  // namespace ZoSdk

struct ZoPendingRequest {
 public:
  // A request that never reaches a connection.
  ZoPendingRequest() = default;
  // The connection lives as long as somebody may wait on it.
  explicit ZoPendingRequest(std::shared_ptr<ZoSdk::Connection> connection)
      : connection(std::move(connection)) {}

  // Record the outcome; false when there is one already. None of them wakes anybody: that is the connection's
  // part.
  bool Answer(ZoRequestResponse answer);
  bool Fail(std::string cause);
  // The same with a sentence that is there for good, and so also without memory.
  bool Fail(const char* cause) noexcept;

  bool Settled() const noexcept { return settled.load(std::memory_order_acquire); }

  // The answer, or the exception that stands for the outcome. Only when settled.
  ZoRequestResponse Take() const;

  const std::shared_ptr<ZoSdk::Connection> connection{};
  std::atomic<std::uint64_t> id{0};  // in the connection's table; 0 for none
  std::atomic<unsigned> waiters{0};  // threads inside GetResponse
  std::atomic<bool> settled{false};  // the outcome below is final

 private:
  Zo::Mutex mutex{"ZoPendingRequest", Zo::LockRank_Link + 2};
  // Written once, under the mutex and before settled; read without it after settled.
  std::optional<ZoRequestResponse> response;
  std::string failure;
  const char* lastingFailure = nullptr;
};
