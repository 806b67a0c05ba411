#include "tests/model/stoppedtime.h"

#include <pthread.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

#include "qapi/thread.h"
#include "tests/support/deadline.h"

// The linker's names: what __wrap_ is put before is called instead of the function, what __real_ is put before is the
// function.
using SystemTime = std::chrono::system_clock::time_point;
SystemTime RealNow() __asm__("__real__ZNSt6chrono3_V212system_clock3nowEv");
SystemTime WrappedNow() __asm__("__wrap__ZNSt6chrono3_V212system_clock3nowEv");
qStatus RealSleep(std::uint64_t duration) __asm__("__real__Z13qThread_Sleepm");
qStatus WrappedSleep(std::uint64_t duration) __asm__("__wrap__Z13qThread_Sleepm");
qStatus RealJoin(qThread thread, std::uint64_t timeout,
                 int* exitCode) __asm__("__real__Z12qThread_JoinP13qThreadObjectmPi");
qStatus WrappedJoin(qThread thread, std::uint64_t timeout,
                    int* exitCode) __asm__("__wrap__Z12qThread_JoinP13qThreadObjectmPi");

namespace ZoModel {

namespace {

constexpr std::uint64_t untilJoined = 3600ull * 1'000'000;  // µs

std::atomic<StoppedTime*> current = nullptr;

bool IsMonitor() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return std::string(name.data()) == "ZoVyrnClient::M";
}

}  // namespace

StoppedTime::StoppedTime(long long now) : now(now) {
  current = this;
}

StoppedTime::~StoppedTime() {
  current = nullptr;
}

StoppedTime* StoppedTime::Current() {
  return current;
}

bool StoppedTime::WaitForMonitor() {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, ZoTest::kLimit, [this] { return asleep && !turn; });
}

bool StoppedTime::MonitorPass() {
  {
    const std::lock_guard lock(mutex);
    turn = true;
    changed.notify_all();
  }
  return WaitForMonitor();
}

void StoppedTime::SleepMonitor() {
  std::unique_lock lock(mutex);
  asleep = true;
  changed.notify_all();
  changed.wait(lock, [this] { return turn || joined; });
  turn = false;
  asleep = false;
}

std::vector<std::uint64_t> StoppedTime::Joins() {
  const std::lock_guard lock(mutex);
  return joins;
}

void StoppedTime::BeginJoin(std::uint64_t timeout) {
  const std::lock_guard lock(mutex);
  joins.push_back(timeout);
  joined = true;
  changed.notify_all();
}

}  // namespace ZoModel

SystemTime WrappedNow() {
  ZoModel::StoppedTime* time = ZoModel::StoppedTime::Current();
  return time == nullptr ? RealNow() : SystemTime(std::chrono::microseconds(time->Look()));
}

qStatus WrappedSleep(std::uint64_t duration) {
  ZoModel::StoppedTime* time = ZoModel::StoppedTime::Current();
  if (time == nullptr) {
    return RealSleep(duration);
  }
  if (ZoModel::IsMonitor()) {
    time->SleepMonitor();
    return qStatus_Success;
  }
  // A join wakes a worker. What the test's own thread waits for, nobody would end: its pauses stay what they are.
  return RealSleep(time->IsOwner() ? duration : ZoModel::untilJoined);
}

qStatus WrappedJoin(qThread thread, std::uint64_t timeout, int* exitCode) {
  if (ZoModel::StoppedTime* time = ZoModel::StoppedTime::Current(); time != nullptr) {
    time->BeginJoin(timeout);
  }
  return RealJoin(thread, timeout, exitCode);
}
