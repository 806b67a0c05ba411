#include "tests/qapi/unloadmodule.h"

#include <chrono>
#include <thread>

#include "qapi/address.h"
#include "qapi/library.h"
#include "qapi/lock.h"
#include "qapi/thread.h"

namespace {

int SleepLong(void* argument) {
  qThread_NameCurrent("sleeps long");
  qThread_CurrentId();
  qThread_Sleep(std::uint64_t{3600} * 1'000'000);
  ++static_cast<UnloadReport*>(argument)->threadsEnded;
  return 0;
}

int EndLate(void* argument) {
  auto& report = *static_cast<UnloadReport*>(argument);
  while (!report.unloading) {
    std::this_thread::yield();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ++report.threadsEnded;
  return 0;
}

int StartAndAbandon(qThreadBody body, UnloadReport* report) {
  qThread thread = nullptr;
  if (const qStatus status = qThread_Construct(&thread); status != qStatus_Success) {
    return status;
  }
  const qStatus status = qThread_Start(thread, body, report);
  qObject_Destroy(thread);
  return status;
}

int UseLock() {
  qLock lock = nullptr;
  if (const qStatus status = qLock_Construct(&lock, "lock in a module", 10); status != qStatus_Success) {
    return status;
  }
  qStatus status = qLock_Enter(lock);
  if (status == qStatus_Success) {
    status = qLock_Exit(lock);
  }
  qObject_Destroy(lock);
  return status;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int UnloadModule_Run(UnloadReport* report) {
  qApiLib library = nullptr;
  qIpAddress address;
  for (const int status : {qApiLib_Construct(&library), qIpAddress_Parse("127.0.0.1", &address), UseLock(),
                           StartAndAbandon(SleepLong, report), StartAndAbandon(EndLate, report)}) {
    if (status != qStatus_Success) {
      return status;
    }
  }
  qThread_CurrentId();
  qObject_Destroy(library);
  return qStatus_Success;
}
