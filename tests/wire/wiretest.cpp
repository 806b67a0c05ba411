#include "tests/wire/wiretest.h"

#include <thread>

namespace ZoTest {

void* WireTest::Connect(unsigned short port) {
  return Connect(port, recorder);
}

void* WireTest::Connect(unsigned short port, Recorder& host) {
  void* handle = Create("127.0.0.1", port, host.Param());
  EXPECT_EQ(host.CountMessages("System connected successfully."), 1u);
  return handle;
}

bool WireTest::WaitConnected(void* handle, bool connected) {
  const Deadline deadline;
  while (IsConnected(handle) != connected) {
    if (deadline.Expired()) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::string WireTest::ValueOf(void* handle, const std::string& name) {
  // Of two values of one millisecond the cache keeps the first, and the wire is quicker than that.
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  recorder.Clear();
  if (Read(handle, name) != 0) {
    return "refused";
  }
  const Recorder::Entries values = recorder.Values(name);
  return values.empty() ? "nothing" : Describe(values.back());
}

bool WireTest::WaitReadable(void* handle, const std::string& name) {
  const Deadline deadline;
  while (Read(handle, name) != 0) {
    if (deadline.Expired()) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

bool WireTest::WaitForChange(const Recorder& host, const std::string& name, Clock::time_point since) const {
  std::string first;
  return host.WaitForEntry([&](const Entry& entry) {
    if (entry.time < since || !entry.IsValue(name)) {
      return false;
    }
    if (first.empty()) {
      first = Describe(entry);
    }
    return Describe(entry) != first;
  });
}

std::vector<std::string> WireTest::MessagesOf(const std::string& function) const {
  std::vector<std::string> messages;
  for (const Entry& entry : recorder.Logs()) {
    if (entry.function == function) {
      messages.push_back(entry.message);
    }
  }
  return messages;
}

}  // namespace ZoTest
