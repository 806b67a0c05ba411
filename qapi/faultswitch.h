// Inside the base library only: how an operation asks the test switch whether it is to fail, and the count of
// living objects.
#pragma once

#include <atomic>

#include "qapi/testing.h"

namespace qApi {

// Set while a failure is armed. Relaxed: whoever arms it starts or wakes the threads it is meant for
// afterwards.
extern constinit std::atomic<bool> faultsArmed;

bool CountAndFail(qOperation operation, qStatus& status);

// True when this call of operation has to fail with status.
inline bool Fails(qOperation operation, qStatus& status) {
  return faultsArmed.load(std::memory_order_relaxed) && CountAndFail(operation, status);
}

void AddLiveObject();
void RemoveLiveObject();

}  // namespace qApi
