#include "tests/soak/listener.h"

#include <fmt/format.h>

#include <algorithm>
#include <thread>

namespace ZoSoak {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kSlowEvery = 2500;
constexpr std::uint64_t kVerySlowEvery = 20000;

std::uint64_t Mixed(std::uint64_t value) {
  value ^= value >> 33U;
  value *= 0xff51afd7ed558ccdU;
  value ^= value >> 33U;
  return value * 0xc4ceb9fe1a85ec53U >> 20U;
}

}  // namespace

// The length of one callback.
class Listener::Visit {
 public:
  Visit(Listener& listener, const char* what) : listener(listener) {
    ++listener.inCallback;
    if (!listener.destroyed) {
      return;
    }
    if (Clock::now().time_since_epoch().count() < listener.toleratedUntil) {
      ++listener.tallies.stragglers;
    } else {
      listener.breaches.Report("callback after destruction", listener.Place(what));
    }
  }
  ~Visit() { --listener.inCallback; }
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;

 private:
  Listener& listener;
};

Listener::Listener(const SensorFacts* sensor, std::uint64_t seed, Tallies& tallies, Breaches& breaches)
    : sensor(sensor), tallies(tallies), breaches(breaches), seed(seed) {
  for (const Item& item : Catalogue()) {
    states[item.name].item = &item;
  }
}

ioHandlerParam Listener::Param() {
  ioHandlerParam param{};
  param.context = this;
  param.itemValue = &Listener::OnValue;
  param.methodResult = &Listener::OnResult;
  param.log = &Listener::OnLog;
  return param;
}

CurrentCall& Listener::Current() {
  thread_local CurrentCall current;
  return current;
}

std::string Listener::Place(std::string_view name) const {
  return sensor != nullptr ? fmt::format("sensor {}, \"{}\"", sensor->number, name)
                           : fmt::format("simulator, \"{}\"", name);
}

Knowledge Listener::Known() const {
  Knowledge known;
  known.soakSeconds = tallies.Seconds();
  known.writes = tallies.writes;
  if (sensor != nullptr) {
    known.sensor = sensor->number;
    known.start = sensor->start;
    const Clock::time_point started{Clock::duration(sensor->startedAt.load())};
    known.startSeconds = std::chrono::duration<double>(Clock::now() - started).count();
  }
  return known;
}

void Listener::OnValue(const char* itemName, const ioDataValue* value, void* context) {
  Listener& self = *static_cast<Listener*>(context);
  const Visit visit(self, itemName != nullptr ? itemName : "no name");
  ++self.tallies.values;
  const std::string fault = itemName == nullptr ? "there is no name" : Malformed(value);
  if (!fault.empty()) {
    self.breaches.Report("bad record", self.Place(itemName != nullptr ? itemName : "") + ": " + fault);
    return;
  }
  self.Take(itemName, *value);
  self.DawdleAtTimes();
}

void Listener::Take(std::string_view name, const ioDataValue& value) {
  CurrentCall& current = Current();
  if (current.item.data() != nullptr && current.item == name) {
    ++current.values;
    current.type = static_cast<enumtype>(value.type);
    current.integer = value.type == enumtype_int64 ? value.value.int64 : 0;
  }
  tallies.invalids += value.type == enumtype_invalid ? 1 : 0;
  const std::lock_guard lock(mutex);
  const auto found = states.find(name);
  if (found == states.end()) {
    breaches.Report("bad record", Place(name) + " was never asked for");
    return;
  }
  ItemState& state = found->second;
  const std::string why = Implausible(*state.item, value, Known());
  if (!why.empty()) {
    breaches.Report("impossible value", fmt::format("{} = {}: {}", Place(name), ValueText(value), why));
    return;
  }
  CheckOrder(state, value);
}

void Listener::CheckOrder(ItemState& state, const ioDataValue& value) {
  const std::uint64_t print = Fingerprint(value);
  if ((print != state.last || value.type != state.lastType) && !deaf) {
    state.movedAt = Clock::now();
    state.reported = false;
  }
  state.last = print;
  state.lastType = value.type;
  const bool counts = state.item->kind == ItemKind::Counter || state.item->kind == ItemKind::BigCounter;
  if (!counts || value.type == enumtype_invalid || state.order.Accept(print)) {
    return;
  }
  if (sensor->IsOrderExcused()) {
    ++tallies.excusedFalls;
    return;
  }
  breaches.Report("value out of order",
                  fmt::format("{} = {} after {}{}", Place(state.item->name), print, state.order.Before(),
                              Current().item == state.item->name ? ", in a read" : ""));
}

void Listener::DawdleAtTimes() {
  const std::uint64_t roll = Mixed(seed + ++calls);
  if (roll % kSlowEvery == 0) {
    ++tallies.slowCallbacks;
    // Beyond the second that a destruction waits for a thread, now and then.
    std::this_thread::sleep_for(roll % kVerySlowEvery == 0 ? milliseconds(1500)
                                                           : milliseconds(50 + roll / kSlowEvery % 400));
  }
}

void Listener::OnResult(const void* callToken, const char* response, void* context) {
  Listener& self = *static_cast<Listener*>(context);
  const Visit visit(self, "a result");
  ++self.tallies.results;
  CurrentCall& current = Current();
  ++current.results;
  if (callToken == nullptr || callToken != current.token || response == nullptr) {
    self.breaches.Report("bad record", self.Place("a result") + " with another token, or without a response");
    return;
  }
  current.response = response;
}

void Listener::OnLog(void* context, std::int32_t level, const char* text) {
  Listener& self = *static_cast<Listener*>(context);
  const Visit visit(self, "a log line");
  const std::string_view line = text != nullptr ? text : "";
  if (level < 2 || level > 6 || !line.starts_with('[') || !line.ends_with('\n')) {
    self.breaches.Report("bad record", self.Place("a log line") + fmt::format(": level {}: {}", level, line));
    return;
  }
  ++self.tallies.logLines[level];
  self.Note(line, level);
}

// What a subscription has come to stands in the log alone.
void Listener::Note(std::string_view line, std::int32_t level) {
  constexpr std::string_view starting = ")Starting stream ";
  CurrentCall& current = Current();
  ++current.lines;
  current.errors += level >= 5 ? 1 : 0;
  if (const std::size_t at = line.find(starting); at != std::string_view::npos) {
    current.streamed = line.substr(at + starting.size());
    current.streamed.pop_back();
  } else if (line.ends_with(")Could not subscribe resource.\n")) {
    current.refused.insert(current.streamed);
  } else if (line.ends_with(")Resource already subscribed.Skipping.\n")) {
    current.skipped.insert(current.streamed);
  }
  Remember(line);
}

void Listener::Remember(std::string_view line) {
  constexpr std::size_t lines = 40;
  if (line.find("ubscribe") == std::string_view::npos && line.find("tream") == std::string_view::npos &&
      line.find("error") == std::string_view::npos) {
    return;
  }
  const std::lock_guard lock(mutex);
  remembered.push_back(fmt::format("    {:.3f} s ", tallies.Seconds()) + std::string(line));
  if (remembered.size() > lines) {
    remembered.pop_front();
  }
}

}  // namespace ZoSoak
