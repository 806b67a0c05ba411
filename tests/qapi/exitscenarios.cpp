// What becomes of threads when the process ends. Each scenario prints a line when something happens;
// exittest.cpp runs them and looks at the lines.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "qapi/library.h"
#include "qapi/thread.h"

namespace {

void Say(const char* text) {
  std::puts(text);
  std::fflush(stdout);
}

std::atomic<bool> mainHasReturned{false};
std::atomic<bool> threadIsReady{false};

// Long enough for a process that does not wait to be gone.
void Linger() {
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

void Await(const std::atomic<bool>& flag) {
  while (!flag) {
    std::this_thread::yield();
  }
}

// Made before the library's own static object, so destroyed after it.
struct First {
  ~First() {
    if (armed) {
      Say("first static destroyed");
    }
    if (thread != nullptr) {
      qObject_Destroy(thread);
      Say("late handle destroyed");
    }
  }
  bool armed = false;
  qThread thread = nullptr;
};

// Made after the library's own static object, so destroyed before it.
struct Last {
  ~Last() {
    Say("last static destroyed");
    mainHasReturned = true;
  }
};

First first;

int EndAfterMain(void*) {
  threadIsReady = true;
  Await(mainHasReturned);
  Linger();
  Say("thread ended");
  return 0;
}

int SleepLong(void*) {
  threadIsReady = true;
  qThread_Sleep(std::uint64_t{3600} * 1'000'000);
  Say("thread ended");
  return 0;
}

int ExitProcess(void*) {
  Await(threadIsReady);
  std::exit(7);
}

qThread Start(qThreadBody body) {
  qThread thread = nullptr;
  if (qThread_Construct(&thread) != qStatus_Success ||
      qThread_Start(thread, body, nullptr) != qStatus_Success) {
    std::abort();
  }
  return thread;
}

void InitialiseLibrary() {
  qApiLib library = nullptr;
  if (qApiLib_Construct(&library) != qStatus_Success) {
    std::abort();
  }
  qObject_Destroy(library);
  static Last last;
  first.armed = true;
}

[[noreturn]] void WaitForEver() {
  for (;;) {
    pause();
  }
}

// The child has none of the threads, so its exit must not wait for one.
int ExitInAForkedChild() {
  qObject_Destroy(Start(EndAfterMain));
  Await(threadIsReady);
  const pid_t child = fork();
  if (child == 0) {
    std::exit(3);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Say(WIFEXITED(status) && WEXITSTATUS(status) == 3 ? "child exited" : "child failed");
  return 0;
}

int Run(const char* scenario) {
  if (std::strcmp(scenario, "straggler") == 0) {
    qObject_Destroy(Start(EndAfterMain));
    return 0;
  }
  if (std::strcmp(scenario, "timed-out-join") == 0) {
    qThread thread = Start(EndAfterMain);
    if (qThread_Join(thread, 1000, nullptr) != qStatus_TimeOut) {
      return 1;
    }
    qObject_Destroy(thread);
    return 0;
  }
  if (std::strcmp(scenario, "sleeping-straggler") == 0) {
    qObject_Destroy(Start(SleepLong));
    Await(threadIsReady);
    return 0;
  }
  if (std::strcmp(scenario, "adopted") == 0) {
    qThread_Adopt(std::thread(EndAfterMain, nullptr));
    return 0;
  }
  if (std::strcmp(scenario, "straggler-exits") == 0) {
    qObject_Destroy(Start(ExitProcess));
    threadIsReady = true;
    WaitForEver();
  }
  if (std::strcmp(scenario, "adopted-exits") == 0) {
    qThread_Adopt(std::thread(ExitProcess, nullptr));
    threadIsReady = true;
    WaitForEver();
  }
  if (std::strcmp(scenario, "owned-thread-exits") == 0) {
    qObject_Destroy(Start(EndAfterMain));  // a straggler beside it is still joined
    Start(ExitProcess);                    // whose handle nobody destroys
    WaitForEver();
  }
  if (std::strcmp(scenario, "late-handle") == 0) {
    first.thread = Start(EndAfterMain);
    return 0;
  }
  if (std::strcmp(scenario, "late-sleeping-handle") == 0) {
    first.thread = Start(SleepLong);
    Await(threadIsReady);
    return 0;
  }
  if (std::strcmp(scenario, "fork") == 0) {
    return ExitInAForkedChild();
  }
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  InitialiseLibrary();
  return argc == 2 ? Run(argv[1]) : 2;
}
