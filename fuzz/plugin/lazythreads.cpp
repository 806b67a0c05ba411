// The base library's threads, linked in place of its own: one that gets no time until somebody joins it.
//
// A scheduler may do so, and the workers of an instance then find that their work is over. What is left of an input runs
// on the fuzzer's thread alone: the same each time, and without the wake-ups that would take most of the time. The passes
// are made by hand. Replayed, the inputs meet the real threads.
#include <chrono>
#include <thread>
#include <unordered_map>
#include <utility>

#include "qapi/faultswitch.h"
#include "qapi/platform.h"
#include "qapi/stragglers.h"
#include "qapi/thread.h"
#include "qapi/threadobject.h"

namespace {

struct Task {
  qThreadBody body = nullptr;
  void* argument = nullptr;
};

// What was started and not joined. Simulators, which have threads of their own, start none of these.
std::unordered_map<qThread, Task>& Tasks() {
  static std::unordered_map<qThread, Task> tasks;
  return tasks;
}

}  // namespace

qStatus qThread_Construct(qThread* out) {
  qApi::InitialiseRuntime();
  *out = new qThreadObject;
  qApi::AddLiveObject();
  return qStatus_Success;
}

qStatus qThread_SetName(qThread, const char*) {
  return qStatus_Success;
}

qStatus qThread_Start(qThread thread, qThreadBody body, void* argument) {
  Tasks()[thread] = {body, argument};
  return qStatus_Success;
}

qStatus qThread_Join(qThread thread, std::uint64_t, int* exitCode) {
  const Task task = std::exchange(Tasks()[thread], {});
  Tasks().erase(thread);
  const int code = task.body == nullptr ? qStatus_Success : task.body(task.argument);
  if (exitCode != nullptr) {
    *exitCode = code;
  }
  return qStatus_Success;
}

qStatus qThread_Sleep(std::uint64_t duration) {
  std::this_thread::sleep_for(std::chrono::microseconds(static_cast<std::int64_t>(duration)));
  return qStatus_Success;
}

std::uint64_t qThread_CurrentId() {
  thread_local const std::uint64_t number = qApi::Platform::ThreadNumber();
  return number;
}

void qApi::ForgetThreadNumber() noexcept {}  // a fuzzer does not fork

void qThread_Adopt(std::thread thread) {
  thread.join();
}
