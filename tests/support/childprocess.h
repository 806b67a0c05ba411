// Runs a function in a forked child, with its output captured: for what ends a process, and for scenarios
// that run side by side.
//
// The child runs the function, then ends by std::_Exit: 0, or 1 when a GoogleTest assertion in it failed (the
// text is in output). An exception that leaves the function ends the child by std::terminate, as it would a
// host. Threads: fork while the process has one thread only (each test is a process of its own under CTest), or
// ask FaultOfForkBesideThreads first.
// Owner: the test. The destructor kills a child that still runs.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

namespace ZoTest {

struct ChildResult {
  bool finished = false;  // false: it was still running at the limit and was killed
  int exitCode = -1;      // -1 unless it ended by itself
  int signal = 0;         // the signal that ended it, or 0
  std::string output;     // standard output
  std::string errors;     // standard error

  bool Succeeded() const { return finished && signal == 0 && exitCode == 0; }
  // For a failure's message.
  std::string Describe() const;
};

class ChildProcess {
 public:
  explicit ChildProcess(const std::function<void()>& body);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Waits for its end, at most limit. Call it once.
  ChildResult Wait(std::chrono::milliseconds limit = std::chrono::seconds(100));

 private:
  pid_t pid = -1;
  int output = -1;
  int errors = -1;
};

// Start and wait.
ChildResult RunInChild(const std::function<void()>& body,
                       std::chrono::milliseconds limit = std::chrono::seconds(100));

// Why this build must not fork while other threads run, for GTEST_SKIP; nullptr where it may.
const char* FaultOfForkBesideThreads();

}  // namespace ZoTest
