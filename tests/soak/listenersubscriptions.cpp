// What a listener knows of its subscriptions.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "tests/soak/listener.h"

namespace ZoSoak {
namespace {

// A destruction that took so long may have given a thread up that sits in a callback: each join waits for a second.
constexpr std::chrono::milliseconds kGaveUp{900};
// Longer than any callback of the soak takes.
constexpr std::chrono::seconds kStraggling{2};

}  // namespace

void Listener::Subscribed(const std::string& name, bool doubtful) {
  const std::lock_guard lock(mutex);
  ItemState& state = states.at(name);
  state.doubtful = doubtful || (state.doubtful && state.users > 0);
  ++state.users;
  state.delivering = true;
  state.reported = false;
  state.subscribedAt = Clock::now();
}

void Listener::Unsubscribed(const std::string& name) {
  const std::lock_guard lock(mutex);
  ItemState& state = states.at(name);
  state.delivering = false;
  state.users = std::max(state.users - 1, 0);
}

void Listener::BecameUncertain(const std::string& name) {
  const std::lock_guard lock(mutex);
  states.at(name).uncertain = true;
}

std::vector<std::string> Listener::StandingStill() {
  std::vector<std::string> found;
  const Clock::time_point now = Clock::now();
  const Clock::time_point calm = sensor != nullptr ? sensor->CalmSince() : Clock::time_point::min();
  const std::lock_guard lock(mutex);
  for (auto& [name, state] : states) {
    const Clock::time_point since = std::max({calm, state.subscribedAt, state.movedAt});
    if (!state.IsWatched() || state.reported || destroyed || since > now || now - since < kStaleLimit) {
      continue;
    }
    state.reported = true;
    const auto seconds = [now](Clock::time_point time) {
      return std::chrono::duration<double>(now - time).count();
    };
    found.push_back(
        fmt::format("{} has not changed for {:.1f} s; subscribed {:.1f} s ago, {} users, its sensor is calm "
                    "for {:.1f} s after \"{}\"; "
                    "what its log says:\n{}",
                    Place(name), state.movedAt == Clock::time_point() ? -1 : seconds(state.movedAt),
                    seconds(state.subscribedAt), state.users, sensor != nullptr ? seconds(calm) : 0.0,
                    sensor != nullptr ? sensor->lastFault.load() : "nothing", fmt::join(remembered, "")));
  }
  return found;
}

bool Listener::AllMovedSince(Clock::time_point time) const {
  const std::lock_guard lock(mutex);
  return std::all_of(states.begin(), states.end(), [time](const auto& each) {
    return !each.second.IsWatched() || each.second.movedAt > time;
  });
}

std::size_t Listener::Watched() const {
  const std::lock_guard lock(mutex);
  return static_cast<std::size_t>(
      std::count_if(states.begin(), states.end(), [](const auto& each) { return each.second.IsWatched(); }));
}

bool Listener::IsSubscribed(const std::string& name) const {
  const std::lock_guard lock(mutex);
  return states.at(name).delivering;
}

bool Listener::Delivers(const std::string& name) const {
  const std::lock_guard lock(mutex);
  return states.at(name).Delivers();
}

bool Listener::Holds(const std::string& name, std::int64_t value) const {
  const std::lock_guard lock(mutex);
  const ItemState& state = states.at(name);
  return state.lastType == enumtype_int64 && state.last == static_cast<std::uint64_t>(value);
}

void Listener::Destroyed(Clock::duration took) {
  if (took >= kGaveUp) {
    toleratedUntil = (Clock::now() + kStraggling).time_since_epoch().count();
  }
  destroyed = true;
}

void Listener::Plant(const std::string& what) {
  const std::string name = "/c0#/n";
  if (what == "silence") {
    deaf = true;
    Subscribed(name, false);
    return;
  }
  ioDataValue value{};
  value.type = enumtype_int64;
  value.value.int64 = CounterValue(sensor->number, sensor->start, 0);
  if (what == "value") {
    value.value.int64 = CounterValue(sensor->number + 1, sensor->start, 0);
  } else if (what == "record") {
    value.status = 1;
  } else if (what == "order") {
    // Sample 1 is what every counter has had, unless it has none yet.
    ++value.value.int64;
    OnValue(name.c_str(), &value, this);
    --value.value.int64;
  } else if (what == "late") {
    Destroyed(Clock::duration::zero());
  }
  OnValue(name.c_str(), &value, this);
  if (what == "late") {
    destroyed = false;
  }
}

}  // namespace ZoSoak
