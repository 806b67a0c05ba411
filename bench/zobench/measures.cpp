#include "bench/zobench/measures.h"

#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace ZoBench {
namespace {

double Read(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace

double Now() {
  return Read(CLOCK_MONOTONIC);
}

double ThreadCpu() {
  return Read(CLOCK_THREAD_CPUTIME_ID);
}

double ProcessCpu() {
  return Read(CLOCK_PROCESS_CPUTIME_ID);
}

std::map<std::string, double> CpuByThread() {
  std::map<std::string, double> threads;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    double nanoseconds = 0;
    std::getline(std::ifstream(task.path() / "comm"), name);
    if (std::ifstream(task.path() / "schedstat") >> nanoseconds) {
      threads[name] += nanoseconds / 1e9;
    }
  }
  return threads;
}

std::size_t ThreadCount() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    ++count;
  }
  return count;
}

std::size_t ResidentBytes() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::size_t AllocatedBytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace ZoBench
