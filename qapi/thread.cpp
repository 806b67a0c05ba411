#include "qapi/thread.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "qapi/faultswitch.h"
#include "qapi/platform.h"
#include "qapi/stragglers.h"
#include "qapi/threadobject.h"
#include "qapi/timedwait.h"

using qApi::Fails;

namespace {

// Asked for with every log line; the system call would cost more than the rest.
thread_local std::uint64_t ownNumber = 0;

}  // namespace

qStatus qThread_Construct(qThread* out) {
  if (out == nullptr) {
    return qStatus_InvalidArgument;
  }
  *out = nullptr;
  if (qStatus status; Fails(qOperation::ThreadConstruct, status)) {
    return status;
  }
  qApi::InitialiseRuntime();
  qApi::ReapStragglers();
  *out = new (std::nothrow) qThreadObject;
  if (*out == nullptr) {
    return qStatus_OutOfMemory;
  }
  qApi::AddLiveObject();
  return qStatus_Success;
}

qStatus qThread_SetName(qThread thread, const char* name) {
  if (thread == nullptr || name == nullptr) {
    return qStatus_InvalidArgument;
  }
  if (qStatus status; Fails(qOperation::ThreadSetName, status)) {
    return status;
  }
  return thread->SetName(name);
}

qStatus qThread_Start(qThread thread, qThreadBody body, void* argument) {
  if (thread == nullptr || body == nullptr) {
    return qStatus_InvalidArgument;
  }
  if (qStatus status; Fails(qOperation::ThreadStart, status)) {
    return status;
  }
  return thread->Start(body, argument);
}

qStatus qThread_Join(qThread thread, std::uint64_t timeout, int* exitCode) {
  if (thread == nullptr) {
    return qStatus_InvalidArgument;
  }
  if (qStatus status; Fails(qOperation::ThreadJoin, status)) {
    return status;
  }
  if (thread == qThreadObject::Current()) {
    return qStatus_Deadlock;
  }
  return thread->Join(timeout, exitCode);
}

qStatus qThread_Sleep(std::uint64_t duration) {
  if (qStatus status; Fails(qOperation::ThreadSleep, status)) {
    return status;
  }
  if (qThreadObject* const current = qThreadObject::Current(); current != nullptr) {
    current->Sleep(duration);
  } else {
    std::this_thread::sleep_for(
        std::chrono::microseconds(static_cast<std::int64_t>(std::min(duration, qApi::unlimited))));
  }
  return qStatus_Success;
}

std::uint64_t qThread_CurrentId() {
  if (ownNumber == 0) {
    qApi::InitialiseRuntime();  // which sees to it that a forked child asks again
    ownNumber = qApi::Platform::ThreadNumber();
  }
  return ownNumber;
}

void qApi::ForgetThreadNumber() noexcept {
  ownNumber = 0;
}

void qThread_Adopt(std::thread thread) {
  if (!thread.joinable()) {
    return;
  }
  qThreadObject* adopted = nullptr;
  try {
    adopted = new qThreadObject(std::move(thread));
  } catch (const std::bad_alloc&) {
    // Without the memory to remember it, waiting is all that is left: it is never detached.
    thread.join();
    return;
  }
  qApi::KeepStraggler(adopted);
}
