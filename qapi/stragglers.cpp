#include "qapi/stragglers.h"

#include <mutex>
#include <utility>

#include "qapi/platform.h"
#include "qapi/threadobject.h"

namespace qApi {

namespace {

// Without destructors, so that they outlive the runtime object.
constinit std::mutex mutex;                // guards the two below
constinit qThreadObject* first = nullptr;  // linked by nextStraggler
constinit bool closed = false;

void Push(qThreadObject* thread) {
  thread->nextStraggler = first;
  first = thread;
}

void Finish(qThreadObject* thread) {
  if (thread->IsCallingThread()) {
    // A straggler that ends the process cannot wait for itself. It stays in the list, neither joined nor
    // detached.
    const std::lock_guard guard(mutex);
    Push(thread);
    return;
  }
  thread->JoinAtLast();
  thread->Release();
}

class Runtime {
 public:
  Runtime() = default;
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;
  ~Runtime();

 private:
  std::uint64_t process = Platform::ProcessNumber();
};

Runtime::~Runtime() {
  if (process != Platform::ProcessNumber()) {
    return;  // a forked child: the threads are not in this process
  }
  qThreadObject* thread = nullptr;
  {
    const std::lock_guard guard(mutex);
    closed = true;
    thread = std::exchange(first, nullptr);
  }
  for (qThreadObject* each = thread; each != nullptr; each = each->nextStraggler) {
    each->Wake();
  }
  while (thread != nullptr) {
    Finish(std::exchange(thread, thread->nextStraggler));
  }
}

}  // namespace

void InitialiseRuntime() {
  static const Runtime runtime;
}

void KeepStraggler(qThreadObject* thread) {
  InitialiseRuntime();
  ReapStragglers();
  {
    const std::lock_guard guard(mutex);
    if (!closed) {
      Push(thread);
      return;
    }
  }
  Finish(thread);
}

void ReapStragglers() {
  qThreadObject* ended = nullptr;
  {
    const std::lock_guard guard(mutex);
    for (qThreadObject** link = &first; *link != nullptr;) {
      qThreadObject* const thread = *link;
      if (closed || !thread->TryJoin()) {
        link = &thread->nextStraggler;
        continue;
      }
      *link = thread->nextStraggler;
      thread->nextStraggler = ended;
      ended = thread;
    }
  }
  while (ended != nullptr) {
    std::exchange(ended, ended->nextStraggler)->Release();
  }
}

}  // namespace qApi
