// Entering and leaving a lock beside the standard library's mutexes, alone and with a second thread that wants it too.
#include <benchmark/benchmark.h>

#include <pthread.h>
#include <sched.h>

#include <cstdint>
#include <mutex>
#include <shared_mutex>

#include "zoapi/threads/locker.h"

namespace {

class OurLock {
 public:
  OurLock() { qLock_Construct(lock.Out(), "bench", 0); }  // entering one that was not made raises
  template <typename Work>
  void Do(Work work) {
    const Zo::Locker held(lock);
    work();
  }

 private:
  Zo::Lock lock;
};

template <typename Mutex>
class StandardLock {
 public:
  template <typename Work>
  void Do(Work work) {
    const std::lock_guard held(mutex);
    work();
  }

 private:
  Mutex mutex;
};

// Binds the calling thread.
bool OnCore(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(static_cast<unsigned>(core), &cores);
  return ::pthread_setaffinity_np(::pthread_self(), sizeof cores, &cores) == 0;
}

// Each thread counts under the lock. Ours goes to whoever has waited longest, a mutex to whoever is awake.
// Of several, each has a core of its own: on one core they would hardly ever meet.
template <typename Lock>
void Counting(benchmark::State& state) {
  static Lock* lock = nullptr;
  static std::int64_t count = 0;
  if (state.thread_index() == 0) {
    lock = new Lock;
    count = 0;
  }
  if (state.threads() > 1 && !OnCore(state.thread_index())) {
    state.SkipWithError("there is no core for each thread");
  }
  for (auto _ : state) {
    lock->Do([] { benchmark::DoNotOptimize(++count); });
  }
  if (state.thread_index() == 0) {  // all threads have left the loop
    if (count != state.iterations() * state.threads()) {
      state.SkipWithError("lost count");
    }
    delete lock;
  }
}
BENCHMARK(Counting<OurLock>)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(Counting<StandardLock<std::mutex>>)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(Counting<StandardLock<std::timed_mutex>>)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(Counting<StandardLock<std::shared_timed_mutex>>)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace
