#include "qapi/stragglers.h"

#include <atomic>
#include <memory>
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

// In a forked child, whose one thread is the only one that runs there.
constinit qThreadObject* parents = nullptr;  // left alone, where a leak checker finds them
std::atomic<std::uint64_t> process = 0;      // 0 when a child would not be told

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

// What was remembered is the parent's: its threads are not in this process, and whoever held the lock is not, either.
void InChild() {
  std::construct_at(&mutex);
  while (first != nullptr) {
    qThreadObject* const thread = std::exchange(first, first->nextStraggler);
    thread->nextStraggler = std::exchange(parents, thread);
  }
  process = Platform::ProcessNumber();
  ForgetThreadNumber();
}

class Runtime {
 public:
  Runtime() { process = Platform::OnFork(&InChild) ? Platform::ProcessNumber() : 0; }
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;
  ~Runtime();
};

Runtime::~Runtime() {
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

std::uint64_t ProcessNumber() {
  InitialiseRuntime();
  const std::uint64_t known = process;
  return known != 0 ? known : Platform::ProcessNumber();
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
  thread->Wake();
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
