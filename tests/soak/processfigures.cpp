#include "tests/soak/processfigures.h"

#include <malloc.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "tests/support/deadline.h"

namespace ZoSoak {
namespace {

std::int64_t CountIn(const char* folder) {
  std::int64_t count = 0;
  std::error_code ended;  // of a thread, while the list is read
  for (std::filesystem::directory_iterator entry(folder, ended), end; entry != end; entry.increment(ended)) {
    ++count;
  }
  return count;
}

std::string ContentOf(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void PrintPlaces() {
  std::error_code ended;
  for (std::filesystem::directory_iterator task("/proc/self/task", ended), end; task != end;
       task.increment(ended)) {
    std::cerr << task->path().filename() << " " << ContentOf(task->path() / "comm") << "  waits in "
              << ContentOf(task->path() / "wchan") << "\n"
              << ContentOf(task->path() / "stack") << std::endl;
  }
}

}  // namespace

ProcessFigures TakeFigures() {
  ProcessFigures figures;
  std::ifstream statm("/proc/self/statm");
  std::int64_t size = 0;
  std::int64_t resident = 0;
  statm >> size >> resident;
  figures.memory = resident * ::sysconf(_SC_PAGESIZE);
  figures.threads = CountIn("/proc/self/task");
  figures.files = CountIn("/proc/self/fd") - 1;  // without the one that looks
  if (!ZoTest::kSanitized) {
    const struct mallinfo2 heap = ::mallinfo2();
    figures.heap = static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
  }
  return figures;
}

void PrintStacks() {
  const std::string self = std::to_string(::getpid());
  const pid_t debugger = ::fork();
  if (debugger == 0) {
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    ::execlp("gdb", "gdb", "-nx", "-batch", "-p", self.c_str(), "-ex", "thread apply all bt 40",
             static_cast<char*>(nullptr));
    ::_exit(127);
  }
  // Where only parents may look into their children, this child may look into its parent.
  ::prctl(PR_SET_PTRACER, debugger);
  int status = 0;
  if (debugger < 0 || ::waitpid(debugger, &status, 0) != debugger || status != 0) {
    PrintPlaces();
  }
}

}  // namespace ZoSoak
