#include "tests/plugin/processstate.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <thread>

#include "tests/support/deadline.h"

namespace ZoTest {
namespace {

#if defined(__SANITIZE_THREAD__)
constexpr std::size_t kOwnThreads = 2;
#else
constexpr std::size_t kOwnThreads = 1;
#endif

// The system gives no event for what becomes of threads, so this looks again and again.
template <typename Condition>
bool WaitUntil(const Deadline& deadline, const Condition& condition) {
  while (!condition()) {
    if (deadline.Expired()) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

}  // namespace

std::vector<std::string> ThreadNames() {
  std::vector<std::string> names;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(task.path() / "comm");
    std::string name;
    if (std::getline(file, name)) {  // a thread may end while the list is read
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> ThreadsThatTake(int signal) {
  std::vector<std::string> names;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream comm(task.path() / "comm");
    std::string name;
    std::getline(comm, name);
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);) {
      constexpr std::string_view blocked = "SigBlk:";
      if (line.starts_with(blocked) &&
          (std::stoull(line.substr(blocked.size()), nullptr, 16) >> (signal - 1) & 1U) == 0) {
        names.push_back(name);
      }
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::size_t InitialThreadCount() {
  std::thread([] {}).join();
  // The joined thread may still be in the list.
  WaitUntil(Deadline(std::chrono::seconds(5)), [] { return ThreadNames().size() <= kOwnThreads; });
  return ThreadNames().size();
}

bool WaitForThreadNames(const std::vector<std::string>& names, std::chrono::milliseconds limit) {
  const Deadline deadline(limit);
  return WaitUntil(deadline, [&names] {
    const std::vector<std::string> present = ThreadNames();
    return std::all_of(names.begin(), names.end(), [&present](const std::string& name) {
      return std::binary_search(present.begin(), present.end(), name);
    });
  });
}

bool WaitForThreadCount(std::size_t count, std::chrono::milliseconds limit) {
  const Deadline deadline(limit);
  return WaitUntil(deadline, [count] { return ThreadNames().size() <= count; });
}

}  // namespace ZoTest
