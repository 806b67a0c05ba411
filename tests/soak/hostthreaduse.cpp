// What a host thread does with an instance.
#include <fmt/format.h>

#include <algorithm>
#include <thread>

#include "tests/soak/hostthread.h"
#include "tests/soak/rest.h"

namespace ZoSoak {
namespace {

using std::chrono::milliseconds;

constexpr int kFailedName = 6;
constexpr int kUntouched = 99;

ioDataValue Integer(std::int64_t number) {
  ioDataValue value{};
  value.type = enumtype_int64;
  value.value.int64 = number;
  return value;
}

}  // namespace

const Item& HostThread::AnyItem(const Slot& slot) {
  const Items& items = slot.listener->Catalogue();
  return items[Below(items.size())];
}

std::vector<const Item*> HostThread::AnyItems(const Slot& slot) {
  std::vector<const Item*> chosen;
  const std::size_t count = Chance(0.6) ? 1 : 1 + Below(kMostNames);
  while (chosen.size() < count) {
    const Item& item = AnyItem(slot);
    const bool everything = item.uri.empty() || item.uri == "/" || item.uri.starts_with('*');
    if (everything && !slot.everything) {
      continue;
    }
    // Twice in one batch would be twice subscribed: allowed, but it is enough that separate calls do it.
    if (std::find(chosen.begin(), chosen.end(), &item) == chosen.end()) {
      chosen.push_back(&item);
    }
  }
  return chosen;
}

std::int64_t HostThread::NextWritten(const Slot& slot, int item) {
  return WrittenValue(slot.sensor->number, item, ++host.tallies.writes);
}

void HostThread::Read(Slot& slot) {
  const Item& item = AnyItem(slot);
  const std::uint64_t generation = slot.sensor != nullptr ? slot.sensor->Generation() : 0;
  const bool calm = slot.sensor != nullptr && slot.worked && slot.sensor->IsCalmFor(kRecovery);
  const int result = ReadItem(slot, item.name);
  if (calm && item.changes) {
    CheckRefusal(slot, item, result, generation);
  }
}

// A sensor that was calm before the call and is so after it had to answer.
void HostThread::CheckRefusal(Slot& slot, const Item& item, int result, std::uint64_t generation) {
  const CurrentCall& current = Listener::Current();
  if (slot.sensor->Generation() != generation) {
    return;
  }
  ++host.tallies.checkedReads;
  if (result != 0 || current.type == enumtype_invalid || current.errors != 0) {
    host.breaches.Report(
        "calm sensor refused",
        fmt::format("sensor {}: ReadItem(\"{}\") gave {}, type {}, {} error lines", slot.sensor->number,
                    item.name, result, static_cast<int>(current.type), current.errors));
  }
}

void HostThread::Write(Slot& slot) {
  const Item& item = AnyItem(slot);
  if (slot.sensor == nullptr) {
    // Within what the simulator itself makes of it.
    WriteItem(slot, fmt::format("/sim/i{}#/int", Below(3)), Integer(static_cast<std::int64_t>(Below(50))));
  } else if (item.kind != ItemKind::Set && item.kind != ItemKind::Made) {
    WriteItem(slot, item.name, Integer(1));  // read-only, or not there: refused
  } else {
    const int mine = static_cast<int>(number);
    WriteItem(slot, fmt::format("/set{}#/v", mine), Integer(NextWritten(slot, mine)));
  }
}

void HostThread::WriteAndRead(Slot& slot) {
  if (slot.sensor == nullptr) {
    return;
  }
  const int mine = static_cast<int>(number);
  const std::string name = fmt::format("/set{}#/v", mine);
  const std::int64_t value = NextWritten(slot, mine);
  const std::uint64_t generation = slot.sensor->Generation();
  const bool calm = slot.sensor->IsCalmFor(kRecovery);
  if (WriteItem(slot, name, Integer(value)) != 0 || Listener::Current().errors != 0) {
    return;
  }
  // A millisecond would do if all clocks turned at once.
  std::this_thread::sleep_for(milliseconds(5));
  const int result = ReadItem(slot, name);
  const CurrentCall& current = Listener::Current();
  if (!calm || result != 0 || current.errors != 0 || slot.sensor->Generation() != generation) {
    return;
  }
  ++host.tallies.checkedWrites;
  if (current.integer != value) {
    host.breaches.Report(
        "write lost",
        fmt::format("sensor {}: {} was written to \"{}\", which then had {} (type {})", slot.sensor->number,
                    value, name, current.integer, static_cast<int>(current.type)));
  }
}

void HostThread::Subscribe(Slot& slot) {
  constexpr long long intervals[] = {0, 100, 100, 200, 500, 1000};
  SubscribeItems(slot, AnyItems(slot), intervals[Below(std::size(intervals))]);
}

void HostThread::SubscribeItems(Slot& slot, const std::vector<const Item*>& items, long long interval) {
  std::vector<const char*> names;
  for (const Item* item : items) {
    names.push_back(item->name.c_str());
  }
  std::vector<int> codes(items.size(), kUntouched);
  const std::lock_guard inOrder(slot.subscribing);
  CurrentCall& current = Listener::Current();
  current = CurrentCall();
  int result = 0;
  {
    const CallBoard::Call call(host.board, number, CallKind::Subscribe, Alone());
    result = host.plugin.subscribeItems(interval, static_cast<int>(names.size()), names.data(), codes.data(),
                                        slot.handle);
  }
  host.tallies.refusedSubscriptions += current.refused.size();
  host.tallies.skippedSubscriptions += current.skipped.size();
  for (std::size_t i = 0; i < items.size(); ++i) {
    const bool known = codes[i] >= 0 && codes[i] < kFailedName;
    if (!known && (result == 0 || (codes[i] != kFailedName && codes[i] != kUntouched))) {
      host.breaches.Report("bad record", fmt::format("SubscribeItems gave {} and code {}", result, codes[i]));
    }
    if (known) {
      slot.worked = true;
      slot.listener->Subscribed(items[i]->name, current.IsDoubtful(items[i]->uri));
    } else if (codes[i] == kFailedName) {
      slot.listener->BecameUncertain(items[i]->name);
    }
  }
}

void HostThread::Unsubscribe(Slot& slot) {
  std::vector<const Item*> items = AnyItems(slot);
  // Now and then also what is not subscribed. Not often: see CurrentCall::skipped.
  if (!Chance(0.05)) {
    std::erase_if(items, [&slot](const Item* item) { return !slot.listener->IsSubscribed(item->name); });
  }
  if (items.empty()) {
    return;
  }
  std::vector<const char*> names;
  for (const Item* item : items) {
    names.push_back(item->name.c_str());
  }
  const std::lock_guard inOrder(slot.subscribing);
  CurrentCall& current = Listener::Current();
  current = CurrentCall();
  int result = 0;
  {
    const CallBoard::Call call(host.board, number, CallKind::Unsubscribe, Alone());
    result = host.plugin.unsubscribeItems(static_cast<int>(names.size()), names.data(), slot.handle);
  }
  for (const Item* item : items) {
    if (result == 0) {
      slot.listener->Unsubscribed(item->name);
    } else if (current.lines > 0) {  // a call that finds no connection says and does nothing
      slot.listener->BecameUncertain(item->name);
    }
  }
}

void HostThread::Method(Slot& slot) {
  switch (Below(6)) {
    case 0:
      CallMethod(slot, "Read", "/c0", "");
      break;
    case 1:
      CallMethod(slot, "Call", "/echo", R"({\"a\":[1,2]})");
      break;
    case 2:
      CallMethod(slot, "RunSensor", "", "");
      break;
    case 3:
      CallMethod(slot, "Update", "/c0", R"({\"n\":1})");  // read-only: refused
      break;
    case 4:
      CallMethod(slot, "Delete", "/nothing", "");
      break;
    default:
      CallMethod(slot, "Nonsense", "/c0", "no JSON");
      break;
  }
}

void HostThread::MakeAndDelete(Slot& slot) {
  const int mine = static_cast<int>(number);
  const std::string uri = fmt::format("/made{}", mine);
  const std::int64_t value = slot.sensor != nullptr ? NextWritten(slot, kMostThreads + mine) : 0;
  CallMethod(slot, "Create", uri, fmt::format(R"({{\"v\":{}}})", value));
  if (slot.sensor != nullptr) {
    ReadItem(slot, uri + "#/v");
  }
  if (Chance(0.7)) {
    CallMethod(slot, "Delete", uri, "");
  }
}

void HostThread::StopAndRun(Slot& slot) {
  if (slot.sensor == nullptr) {
    CallMethod(slot, "StopSensor", "", "");
    CallMethod(slot, "RunSensor", "", "");
    return;
  }
  // Seldom: a sensor that is stopped all the time is never calm, and then nothing is asked of it.
  if (!Chance(0.02)) {
    return;
  }
  const std::unique_lock alone(slot.sensor->disturbing, std::try_to_lock);
  if (!alone.owns_lock()) {
    return;
  }
  slot.sensor->Disturb();
  CallMethod(slot, "StopSensor", "", "");
  std::this_thread::sleep_for(milliseconds(Below(500)));
  CallMethod(slot, "RunSensor", "", "");
  // Whatever became of that: the link may be broken, the sensor's REST door is not.
  const ZoTest::Deadline deadline(std::chrono::seconds(20));
  while (AskRest(slot.sensor->port, "POST", "/system/start") != 200) {
    if (deadline.Expired()) {
      host.breaches.Report("sensor",
                           fmt::format("sensor {} could not be started again", slot.sensor->number));
      break;
    }
  }
  slot.sensor->Settle();
}

}  // namespace ZoSoak
