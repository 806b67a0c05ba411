#include "tests/soak/hostthread.h"

#include <fmt/format.h>

#include <shared_mutex>
#include <thread>

namespace ZoSoak {
namespace {

using std::chrono::milliseconds;

// Instances live for half a minute or so, long enough to be left alone by faults for a while. One whose sensor was away
// when it was made refuses everything for good and goes sooner.
constexpr double kDestroyShare = 0.004;
constexpr double kDestroyIdleShare = 0.05;

}  // namespace

HostThread::HostThread(Host& host, std::size_t number, std::uint64_t seed)
    : host(host), number(number), random(seed * 31 + number) {}

void HostThread::Run(const std::atomic<bool>& end) {
  while (!end) {
    Step();
    std::this_thread::sleep_for(milliseconds(Below(20)));
  }
}

void HostThread::Step() {
  Slot& slot = host.slots.all[Below(host.slots.all.size())];
  const bool idle = slot.sensor != nullptr && !slot.worked;
  if (Chance(idle ? kDestroyIdleShare : kDestroyShare) || !slot.filled) {
    const std::unique_lock alone(slot.guard, std::try_to_lock);
    if (alone.owns_lock()) {
      if (slot.handle != nullptr) {
        Destroy(slot);
      } else {
        Create(slot);
      }
    }
    return;
  }
  const std::shared_lock shared(slot.guard, std::try_to_lock);
  if (shared.owns_lock() && slot.handle != nullptr) {
    Use(slot);
  }
}

void HostThread::Use(Slot& slot) {
  const std::size_t roll = Below(100);
  if (roll < 36) {
    Read(slot);
  } else if (roll < 48) {
    Write(slot);
  } else if (roll < 56) {
    WriteAndRead(slot);
  } else if (roll < 76) {
    Subscribe(slot);
  } else if (roll < 84) {
    Unsubscribe(slot);
  } else if (roll < 94) {
    Method(slot);
  } else if (roll < 97) {
    MakeAndDelete(slot);
  } else if (roll < 98) {
    StopAndRun(slot);
  } else {
    const CallBoard::Call call(host.board, number, CallKind::Info, Alone());
    if (host.plugin.getIoInfo() == nullptr) {
      host.breaches.Report("bad record", "GetIoInfo gave nothing");
    }
  }
}

void HostThread::Create(Slot& slot) {
  auto listener = std::make_shared<Listener>(slot.sensor, random(), host.tallies, host.breaches);
  const ioHandlerParam param = listener->Param();
  void* handle = nullptr;
  int result = 0;
  host.slots.Add(listener);
  {
    const CallBoard::Call call(host.board, number, CallKind::Create, Alone());
    result = host.plugin.createIoInstance(
        slot.sensor != nullptr ? "127.0.0.1" : "simulator",
        slot.sensor != nullptr ? slot.sensor->port.load() : std::uint16_t{0}, &param, &handle);
  }
  if (result != 0 || handle == nullptr) {
    host.breaches.Report("creation", fmt::format("CreateIoInstance gave {} and {}", result, handle));
    host.slots.Remove(listener);
    return;
  }
  slot.worked = false;
  slot.handle = handle;
  slot.listener = std::move(listener);
  slot.filled = true;
}

void HostThread::Destroy(Slot& slot) {
  int result = 0;
  Clock::duration took{};
  {
    const CallBoard::Call call(host.board, number, CallKind::Destroy, Alone());
    result = host.plugin.destroyIoInstance(slot.handle);
    // The wait for other calls is in it, so a long one does not always mean that a thread was given up.
    took = call.Taken();
  }
  slot.listener->Destroyed(took);
  if (result != 0) {
    host.breaches.Report("destruction", fmt::format("DestroyIoInstance gave {}", result));
  }
  host.slots.Remove(slot.listener);
  host.slots.Bury(std::move(slot.listener));
  slot.listener = nullptr;
  slot.handle = nullptr;
  slot.filled = false;
}

int HostThread::ReadItem(Slot& slot, const std::string& name) {
  CurrentCall& current = Listener::Current();
  current = CurrentCall();
  current.item = name;
  int result = 0;
  {
    const CallBoard::Call call(host.board, number, CallKind::Read, Alone());
    result = host.plugin.readItem(name.c_str(), slot.handle);
  }
  current.item = {};
  const int wanted = result == 0 ? 1 : 0;
  if (result < 0 || result > 1 || current.values != wanted) {
    host.breaches.Report("bad record",
                         fmt::format("ReadItem(\"{}\") gave {} and {} values", name, result, current.values));
  }
  slot.worked = slot.worked || result == 0;
  return result;
}

int HostThread::WriteItem(Slot& slot, const std::string& name, const ioDataValue& value) {
  Listener::Current() = CurrentCall();
  const CallBoard::Call call(host.board, number, CallKind::Write, Alone());
  return host.plugin.writeItem(name.c_str(), &value, 0, slot.handle);
}

int HostThread::CallMethod(Slot& slot, const std::string& method, const std::string& uri,
                           const std::string& arguments) {
  CurrentCall& current = Listener::Current();
  current = CurrentCall();
  current.token = &current;
  const std::size_t id = Below(1'000'000);
  const std::string text = fmt::format(R"({{"id":{},"uri":"{}","args":"{}"}})", id, uri, arguments);
  int result = 0;
  {
    const CallBoard::Call call(host.board, number, CallKind::Method, Alone());
    result = host.plugin.callMethod(&current, nullptr, method.c_str(), text.c_str(), slot.handle);
  }
  current.token = nullptr;
  const bool whole = current.response.starts_with(fmt::format(R"({{"id":{},"errcode":0,"data":")", id)) &&
                     current.response.ends_with("\"}");
  if (result == 0 ? current.results != 1 || !whole : current.results != 0) {
    host.breaches.Report("bad record", fmt::format("CallMethod({}) gave {}, {} responses: {}", method, result,
                                                   current.results, current.response));
  }
  return result;
}

}  // namespace ZoSoak
