// Replaces the global operator new by one that a test can make fail.
//
// Threads: a failure is set for the calling thread alone, or for all workers; the count is of all threads.
#pragma once

#include <cstddef>

namespace ZoTest {

// While it lives, the nth allocation (1 is the next) of this thread fails, once.
class FailingNew {
 public:
  explicit FailingNew(int nth);
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;
  ~FailingNew();

  // Whether the nth allocation came.
  bool HasFailed() const;
};

// While it lives, the nth allocation of all workers together fails, once. A worker is a thread with a name of its own:
// one of the system under test, while those of a test bear the program's. One at a time in a process.
class FailingWorkersNew {
 public:
  explicit FailingWorkersNew(int nth);
  FailingWorkersNew(const FailingWorkersNew&) = delete;
  FailingWorkersNew& operator=(const FailingWorkersNew&) = delete;
  ~FailingWorkersNew();

  bool HasFailed() const;
};

// While it lives, allocations of this thread neither fail nor count, or (with false) do so again: for what a test does
// between the calls that it looks at.
class SparedNew {
 public:
  explicit SparedNew(bool spare = true);
  SparedNew(const SparedNew&) = delete;
  SparedNew& operator=(const SparedNew&) = delete;
  ~SparedNew();

 private:
  const bool before;
};

// Blocks allocated and not freed.
std::ptrdiff_t LiveAllocations();

}  // namespace ZoTest
