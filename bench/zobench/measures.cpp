#include "bench/zobench/measures.h"

#include <linux/tcp.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "bench/zobench/checkfailed.h"

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
  // Counted page by page: the quick sums of statm and status are behind by dozens of pages for each core.
  std::ifstream rollup("/proc/self/smaps_rollup");
  for (std::string line; std::getline(rollup, line);) {
    if (line.starts_with("Rss:")) {
      return std::stoul(line.substr(std::string_view("Rss:").size())) * 1024;
    }
  }
  throw CheckFailed("/proc/self/smaps_rollup has no Rss");
}

std::size_t AllocatedBytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

Traffic TrafficWith(std::uint16_t port) {
  Traffic traffic;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename());
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0 ||
        peer.sin_family != AF_INET || ntohs(peer.sin_port) != port) {
      continue;
    }
    tcp_info info{};
    size = sizeof info;
    if (::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) == 0) {
      traffic.sent += info.tcpi_bytes_acked;
      traffic.received += info.tcpi_bytes_received;
    }
  }
  return traffic;
}

}  // namespace ZoBench
