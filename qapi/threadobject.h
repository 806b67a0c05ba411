// Inside the base library only: the object behind a qThread.
//
// Threads: any. Owner: its references (the handle, and the running thread itself); the handle's reference
// passes to the stragglers when the handle is destroyed before the thread was joined. Invariants: (1) thread
// is joinable exactly from a successful Start until a join took it, and is never detached; (2) what was
// woken once does not sleep any more. Lock: mutex, a leaf, never held while the body runs.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "qapi/thread.h"
#include "qapi/wakeup.h"

struct qThreadObject {
 public:
  qThreadObject() = default;
  explicit qThreadObject(std::thread adopted);
  qThreadObject(const qThreadObject&) = delete;
  qThreadObject& operator=(const qThreadObject&) = delete;

  static qThreadObject* Current();

  qStatus SetName(const char* text);
  std::string Name();
  qStatus Start(qThreadBody function, void* context);
  qStatus Join(std::uint64_t timeout, int* code);
  // On the thread itself only.
  void Sleep(std::uint64_t duration);

  void Release();
  bool IsUnjoined();

  // For the stragglers, which own the handle's reference by then, so that nobody else joins.
  bool TryJoin();
  void JoinAtLast();
  void Wake();
  bool IsCallingThread() const { return thread.get_id() == std::this_thread::get_id(); }
  qThreadObject* nextStraggler = nullptr;

 private:
  enum class State { Idle, Running, Ended, Joining, Joined };

  ~qThreadObject() = default;
  void Run();

  std::atomic<int> references{1};
  std::mutex mutex;
  std::condition_variable changed;  // state
  State state = State::Idle;
  int exitCode = 0;
  std::string name;
  std::thread thread;
  qApi::WakeUp wakeUp;
  qThreadBody body = nullptr;
  void* argument = nullptr;
};

namespace qApi {

// The full name of the calling thread, empty for none.
std::string CurrentThreadName();

}  // namespace qApi
