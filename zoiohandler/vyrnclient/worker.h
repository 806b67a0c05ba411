// Starting a worker over state that it co-owns.
//
// Every worker of an instance runs over a block that it shares with its owner, never over the owner itself:
// when a join runs out of time, the owner goes and the block stays until the worker ends.
#pragma once

#include <memory>
#include <utility>

#include "qapi/thread.h"

namespace ZoIO {

// Starts body on thread. body must fetch its share with WorkerState first of all.
template <typename State>
qStatus StartWorker(qThread thread, qThreadBody body, const std::shared_ptr<State>& state) {
  auto share = std::make_unique<std::shared_ptr<State>>(state);
  const qStatus status = qThread_Start(thread, body, share.get());
  if (status == qStatus_Success) {
    static_cast<void>(share.release());  // the worker's now
  }
  return status;
}

// The worker's share, taken out of the thread's argument.
template <typename State>
std::shared_ptr<State> WorkerState(void* argument) {
  const std::unique_ptr<std::shared_ptr<State>> share(static_cast<std::shared_ptr<State>*>(argument));
  return std::move(*share);
}

}  // namespace ZoIO
