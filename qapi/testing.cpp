#include "qapi/testing.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "qapi/faultswitch.h"
#include "qapi/stragglers.h"
#include "qapi/threadobject.h"

namespace qApi {

constinit std::atomic<bool> faultsArmed{false};

namespace {

constinit std::atomic<std::uint64_t> liveObjects{0};

constexpr std::size_t maxThreadName = 256;

// Plain members only: operations may still come while static objects are being destroyed.
struct FaultSetting {
  bool anyThread = true;
  char threadName[maxThreadName] = {};
  qOperation operation = qOperation::Any;
  std::uint64_t nth = 0;
  std::uint64_t times = 0;
  qStatus status = qStatus_Failure;
  std::uint64_t calls = 0;
  std::uint64_t failures = 0;
};

constinit std::mutex mutex;        // guards setting
constinit FaultSetting setting{};  // NOLINT: written by the functions below only

void Arm(const char* threadName, qOperation operation, std::uint64_t nth, qStatus status,
         std::uint64_t times) {
  const std::lock_guard guard(mutex);
  setting = FaultSetting{};
  setting.anyThread = threadName == nullptr;
  if (threadName != nullptr) {
    std::snprintf(setting.threadName, sizeof setting.threadName, "%s", threadName);
  }
  setting.operation = operation;
  setting.nth = nth;
  setting.times = times;
  setting.status = status;
  faultsArmed.store(true, std::memory_order_relaxed);
}

}  // namespace

bool CountAndFail(qOperation operation, qStatus& status) {
  const std::string caller = CurrentThreadName();
  const std::lock_guard guard(mutex);
  if (!faultsArmed.load(std::memory_order_relaxed)) {
    return false;
  }
  if (setting.operation != qOperation::Any && setting.operation != operation) {
    return false;
  }
  if (!setting.anyThread && caller != setting.threadName) {
    return false;
  }
  const std::uint64_t call = ++setting.calls;
  if (setting.nth == 0 || call < setting.nth || (setting.times != 0 && call - setting.nth >= setting.times)) {
    return false;
  }
  ++setting.failures;
  status = setting.status;
  return true;
}

void AddLiveObject() {
  liveObjects.fetch_add(1, std::memory_order_relaxed);
}
void RemoveLiveObject() {
  liveObjects.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace qApi

void qTest_FailOperation(qOperation operation, std::uint64_t nth, qStatus status, std::uint64_t times) {
  qApi::Arm(nullptr, operation, nth, status, times);
}

void qTest_FailOperationIn(const char* threadName, qOperation operation, std::uint64_t nth, qStatus status,
                           std::uint64_t times) {
  qApi::Arm(threadName, operation, nth, status, times);
}

void qTest_Reset() {
  const std::lock_guard guard(qApi::mutex);
  qApi::faultsArmed.store(false, std::memory_order_relaxed);
  qApi::setting.calls = 0;
  qApi::setting.failures = 0;
}

std::uint64_t qTest_CallCount() {
  const std::lock_guard guard(qApi::mutex);
  return qApi::setting.calls;
}

std::uint64_t qTest_FailureCount() {
  const std::lock_guard guard(qApi::mutex);
  return qApi::setting.failures;
}

std::uint64_t qTest_LiveObjects() {
  qApi::ReapStragglers();
  return qApi::liveObjects.load(std::memory_order_relaxed);
}
