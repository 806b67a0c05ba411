#include "bench/zobench/pinning.h"

#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace ZoBench {
namespace {

void Bind(pid_t process, const std::vector<int>& cores) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (const int core : cores) {
    CPU_SET(static_cast<std::size_t>(core), &set);
  }
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    const auto thread = static_cast<pid_t>(std::strtol(task.path().filename().c_str(), nullptr, 10));
    // A thread may have ended since the folder was read.
    if (::sched_setaffinity(thread, sizeof set, &set) != 0 && errno != ESRCH) {
      throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
    }
  }
}

}  // namespace

const std::vector<int>& Cores() {
  static const std::vector<int> cores = [] {
    std::vector<int> found;
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(0, sizeof set, &set) != 0) {
      throw std::system_error(errno, std::generic_category(), "sched_getaffinity");
    }
    for (int core = 0; core < CPU_SETSIZE; ++core) {
      if (CPU_ISSET(static_cast<std::size_t>(core), &set)) {
        found.push_back(core);
      }
    }
    return found;
  }();
  return cores;
}

std::vector<Placement> Placements() {
  std::vector<Placement> placements{{"same core", Cores().front(), Cores().front()}};
  if (Cores().size() > 1) {
    placements.push_back({"two cores", Cores()[0], Cores()[1]});
  }
  return placements;
}

Placement Widest() {
  return Placements().back();
}

void PinProcess(pid_t process, int core) {
  Bind(process, {core});
}

void ReleaseProcess(pid_t process) {
  Bind(process, Cores());
}

void Place(const Placement& placement, const std::vector<pid_t>& sensors) {
  Cores();  // read before the first binding narrows them
  PinProcess(::getpid(), placement.hostCore);
  for (const pid_t sensor : sensors) {
    PinProcess(sensor, placement.sensorCore);
  }
}

}  // namespace ZoBench
