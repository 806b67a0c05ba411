#include "tests/soak/soak.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <malloc.h>
#include <unistd.h>

#include <deque>
#include <iostream>
#include <memory>
#include <thread>

#include "tests/soak/duration.h"
#include "tests/soak/finale.h"
#include "tests/soak/hostthread.h"
#include "tests/soak/keeper.h"
#include "tests/soak/summary.h"
#include "tests/soak/watch.h"
#include "tests/support/temporaryfolder.h"

namespace ZoSoak {
namespace {

// What an instance may have at most. Threads: Monitor, cache, registry and link, or the simulator's; files: a socket and
// what its event loop waits with (epoll, event, timer), each twice while a connection takes the place of another.
constexpr std::int64_t kThreadsEach = 4;
constexpr std::int64_t kFilesEach = 10;
// Of instances that a slow callback made the library give up, for a moment.
constexpr std::int64_t kStragglers = 16;
// Requests at the REST doors, resource files, the listing of descriptors.
constexpr std::int64_t kOwnFiles = 24;

// What the end may have more than the beginning. In use: what the runtime keeps for the process (locales, streams).
// Resident: the allocator keeps what many threads' arenas held, the more the more of them worked at a time.
constexpr std::int64_t kHeapLeft = 1LL << 20U;
constexpr std::int64_t kMemoryLeft = (ZoTest::kSanitized ? 192LL : 32LL) << 20U;

class Soak {
 public:
  Soak(const Options& options, std::ostream& out)
      : options(options), out(out), breaches(options.seed, std::cerr), board(Seats(), breaches) {}

  int Run();

 private:
  std::size_t Seats() const { return static_cast<std::size_t>(options.threads) + 1; }  // one for this thread

  void StartSensors();
  void MakeSlots();
  void Work();
  void Plant(HostThread& first);
  // Every sensor is healthy from now on: everything that is subscribed has to move.
  void ExpectAllToMove();
  void DestroyAll(Host& host);
  bool JoinAll(std::deque<std::thread>& threads);
  void JudgeEnd();
  // When a call never returns nothing more can be done but say so.
  [[noreturn]] void GiveUp();

  const Options options;
  std::ostream& out;
  Breaches breaches;
  Tallies tallies;
  CallBoard board;
  ZoTest::TemporaryFolder folder;
  std::deque<SensorFacts> facts;
  std::deque<Keeper> keepers;
  Slots slots;
  std::unique_ptr<Watch> watch;
  std::atomic<std::size_t> running = 0;
  Ends ends;
};

void Soak::StartSensors() {
  for (int i = 0; i < options.sensors; ++i) {
    const std::filesystem::path place = folder / fmt::format("sensor{}", i);
    std::filesystem::create_directory(place);
    keepers.emplace_back(facts.emplace_back(i), place, options.seed, tallies, breaches);
  }
}

void Soak::MakeSlots() {
  for (int i = 0; i < options.instances; ++i) {
    slots.all.emplace_back().sensor = &facts[static_cast<std::size_t>(i % options.sensors)];
  }
  slots.all.back().everything = options.instances > 1;
  for (int i = 0; i < options.simulators; ++i) {
    slots.all.emplace_back();
  }
}

int Soak::Run() {
  fmt::print(out, "seed {}, {}: {} sensors, {} instances, {} simulators, {} host threads\n", options.seed,
             DurationText(options.duration), options.sensors, options.instances, options.simulators,
             options.threads);
  out.flush();
  std::thread([] {}).join();  // a sanitizer has a thread of its own from here on
  ends.start = TakeFigures();
  StartSensors();
  MakeSlots();
  const auto instances = static_cast<std::int64_t>(slots.all.size());
  const std::int64_t own = ends.start.threads + 1 + options.sensors + options.threads;
  const Allowed allowed{own + instances * kThreadsEach + kStragglers,
                        ends.start.files + instances * kFilesEach + kOwnFiles};
  watch = std::make_unique<Watch>(slots, board, breaches, allowed,
                                  static_cast<std::size_t>(options.duration.count()));
  Work();
  watch->End();
  watch->JudgeGrowth(breaches);
  for (Keeper& keeper : keepers) {
    keeper.End();
  }
  JudgeEnd();
  PrintSummary(out, board, tallies, keepers, *watch, ends, breaches);
  return breaches.Count() == 0 ? 0 : 1;
}

void Soak::Work() {
  ZoTest::PluginLibrary plugin;
  Host host{plugin, slots, board, tallies, breaches};
  HostThread first(host, Seats() - 1, options.seed);
  for (Slot& slot : slots.all) {
    const std::lock_guard alone(slot.guard);
    first.Create(slot);
  }
  std::atomic<bool> end = false;
  std::deque<HostThread> hosts;
  std::deque<std::thread> threads;
  running = static_cast<std::size_t>(options.threads);
  for (std::size_t i = 0; i + 1 < Seats(); ++i) {
    HostThread& each = hosts.emplace_back(host, i, options.seed);
    threads.emplace_back([this, &each, &end] {
      each.Run(end);
      --running;
    });
  }
  if (options.plant != "silence") {
    Plant(first);
  }
  std::this_thread::sleep_for(options.duration);
  end = true;
  if (!JoinAll(threads)) {
    GiveUp();
  }
  for (Keeper& keeper : keepers) {
    keeper.Calm();
  }
  if (options.plant == "silence") {
    Plant(first);  // now that nobody unsubscribes what it takes away
  }
  ExpectAllToMove();
  if (options.plant.empty()) {
    ExpectLastChanges(host, first, options.seed);
  }
  DestroyAll(host);
  plugin.Unload();
  if (plugin.IsMapped()) {
    breaches.Report("unloading", "the plug-in is still in the process");
  }
  slots.ForgetBuried();
}

void Soak::Plant(HostThread& first) {
  if (options.plant.empty()) {
    return;
  }
  if (options.plant == "stuck") {
    board.Plant(Seats() - 1, LongestLimit() * static_cast<int>(Seats() + 2));
  } else if (options.plant == "growth") {
    watch->PlantGrowth(64LL << 20U);
  } else {
    Slot& slot = slots.all.front();
    const std::lock_guard alone(slot.guard);
    if (!slot.filled) {
      first.Create(slot);
    }
    slot.listener->Plant(options.plant);
  }
}

bool Soak::JoinAll(std::deque<std::thread>& threads) {
  // Each has one call under way, or a few that belong together; the watch has the exact limits.
  const ZoTest::Deadline deadline(LongestLimit() * static_cast<int>(Seats()) + std::chrono::seconds(60));
  while (running > 0 && !deadline.Expired()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (running > 0) {
    return false;
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  return true;
}

void Soak::ExpectAllToMove() {
  const Clock::time_point calm = Clock::now();
  // The watch reports what stands still, a second after the limit at the latest.
  const ZoTest::Deadline deadline(kStaleLimit + std::chrono::seconds(3));
  std::size_t watched = 0;
  bool moved = false;
  while (!moved && !deadline.Expired()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    moved = true;
    watched = 0;
    for (const auto& listener : slots.Listeners()) {
      moved = listener->AllMovedSince(calm) && moved;
      watched += listener->Watched();
    }
  }
  fmt::print(out, "at the end {} subscriptions had to deliver; {} after {:.1f} s\n", watched,
             moved ? "all did" : "not all did", std::chrono::duration<double>(Clock::now() - calm).count());
}

void Soak::DestroyAll(Host& host) {
  HostThread last(host, Seats() - 1, options.seed + 1);
  for (Slot& slot : slots.all) {
    const std::lock_guard alone(slot.guard);
    if (slot.handle != nullptr) {
      last.Destroy(slot);
    }
  }
}

void Soak::JudgeEnd() {
  ::malloc_trim(0);
  // A joined thread may stay in the system's list for a moment.
  const ZoTest::Deadline deadline(std::chrono::seconds(10));
  do {
    ends.end = TakeFigures();
  } while (ends.end.threads > ends.start.threads && !deadline.Expired());
  const auto judge = [this](const char* kind, std::int64_t start, std::int64_t end, std::int64_t margin) {
    if (end > start + margin) {
      breaches.Report("left over", fmt::format("{}: {} at the end, {} at the start, {} more are allowed",
                                               kind, end, start, margin));
    }
  };
  judge("threads", ends.start.threads, ends.end.threads, 0);
  judge("descriptors", ends.start.files, ends.end.files, 0);
  judge("heap", ends.start.heap, ends.end.heap, kHeapLeft);
  judge("memory", ends.start.memory, ends.end.memory, kMemoryLeft);
}

void Soak::GiveUp() {
  breaches.Report("stuck call", "a host thread does not come to its end");
  if (!watch->HasSeenStuck()) {
    PrintStacks();
  }
  watch->End();
  PrintSummary(out, board, tallies, keepers, *watch, ends, breaches);
  std::_Exit(1);
}

}  // namespace

int RunSoak(const Options& options, std::ostream& out) {
  return Soak(options, out).Run();
}

}  // namespace ZoSoak
