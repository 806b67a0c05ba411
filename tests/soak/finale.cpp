#include "tests/soak/finale.h"

#include <fmt/format.h>

#include <random>
#include <set>
#include <thread>

#include "tests/soak/rest.h"

namespace ZoSoak {
namespace {

constexpr int kRounds = 10;  // for each item and sensor
constexpr int kHttpOk = 200;

// Two items: one that is streamed, one that tells its changes.
constexpr int kItems = 2;

class Finale {
 public:
  Finale(Host& host, HostThread& thread, std::uint64_t seed) : host(host), thread(thread), random(seed) {}

  void Play(Slot& slot) {
    for (const Item& item : SensorItems()) {
      if (item.kind != ItemKind::Set || item.number >= kItems) {
        continue;
      }
      thread.SubscribeItems(slot, {&item}, 100);  // often, whatever other intervals it is in
      for (int round = 0; round < kRounds && slot.listener->Delivers(item.name); ++round) {
        if (!Change(slot, item)) {
          return;
        }
      }
    }
  }

 private:
  // Whether the change arrived.
  bool Change(Slot& slot, const Item& item) {
    const std::int64_t value = WrittenValue(slot.sensor->number, item.number, ++host.tallies.writes);
    const auto pause = std::chrono::microseconds(random() % 1000);
    int status = 0;
    std::thread writer([&] {
      std::this_thread::sleep_for(pause);
      status = AskRest(slot.sensor->port, "PATCH", item.uri, fmt::format(R"({{"v":{}}})", value));
    });
    thread.ReadItem(slot, item.name);  // once: another one would bring a lost change
    writer.join();
    if (status != kHttpOk) {
      host.breaches.Report("sensor", fmt::format("a change over REST was answered with {}", status));
      return false;
    }
    ++host.tallies.checkedChanges;
    const ZoTest::Deadline deadline(kStaleLimit);
    while (!slot.listener->Holds(item.name, value)) {
      if (deadline.Expired()) {
        host.breaches.Report("last change lost",
                             fmt::format("sensor {}: \"{}\" became {}, and that has not arrived",
                                         slot.sensor->number, item.name, value));
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }

  Host& host;
  HostThread& thread;
  std::mt19937_64 random;
};

}  // namespace

void ExpectLastChanges(Host& host, HostThread& thread, std::uint64_t seed) {
  Finale finale(host, thread, seed);
  std::set<const SensorFacts*> done;
  for (Slot& slot : host.slots.all) {
    const std::lock_guard alone(slot.guard);
    // An instance whose sensor was away when it was made reaches it never.
    if (slot.sensor != nullptr && slot.filled && slot.worked && done.insert(slot.sensor).second) {
      finale.Play(slot);
    }
  }
}

}  // namespace ZoSoak
