#include "tests/soak/keeper.h"

#include <fmt/format.h>
#include <signal.h>

#include <exception>
#include <stdexcept>

#include "tests/soak/rest.h"

namespace ZoSoak {
namespace {

constexpr int kOk = 200;
constexpr double kFaultShortest = 0.5;
constexpr double kFaultLongest = 6;
// Most pauses are short, so that faults meet what the one before has left; some are long enough for the watch of
// values that stand still.
constexpr double kLongPauseShare = 0.25;

}  // namespace

Keeper::Keeper(SensorFacts& facts, const std::filesystem::path& folder, std::uint64_t seed, Tallies& tallies,
               Breaches& breaches)
    : facts(facts),
      tallies(tallies),
      breaches(breaches),
      process(folder, facts),
      random(seed + static_cast<std::uint64_t>(facts.number) + 1) {
  thread = std::thread([this] { Run(); });
  std::unique_lock lock(mutex);
  changed.wait(lock, [this] { return state != State::Starting; });
  if (state == State::Failed) {
    lock.unlock();
    thread.join();
    throw std::runtime_error(failure);
  }
}

Keeper::~Keeper() {
  End();
}

void Keeper::Calm() {
  std::unique_lock lock(mutex);
  calmWanted = true;
  changed.notify_all();
  changed.wait(lock, [this] { return state == State::Calm; });
}

void Keeper::End() {
  {
    const std::lock_guard lock(mutex);
    calmWanted = true;
    endWanted = true;
    changed.notify_all();
  }
  if (thread.joinable()) {
    thread.join();
  }
}

void Keeper::Enter(State next) {
  const std::lock_guard lock(mutex);
  state = next;
  changed.notify_all();
}

bool Keeper::WaitFor(double seconds) {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return calmWanted; });
}

void Keeper::Run() {
  try {
    process.Start();
    facts.Disturb();
    facts.Settle();
  } catch (const std::exception& error) {
    failure = error.what();
    Enter(State::Failed);
    return;
  }
  Enter(State::Troubling);
  try {
    TroubleUntilCalm();
  } catch (const std::exception& error) {
    breaches.Report("sensor", error.what());
  }
  Enter(State::Calm);
  std::unique_lock lock(mutex);
  changed.wait(lock, [this] { return endWanted; });
  lock.unlock();
  process.End(SIGKILL);
}

void Keeper::TroubleUntilCalm() {
  const double longPause = std::chrono::duration<double>(kStaleLimit).count() + 5;
  while (!WaitFor(Between(0, 1) < kLongPauseShare ? longPause : Between(0.5, 4))) {
    const std::lock_guard alone(facts.disturbing);
    if (!process.IsAlive()) {
      breaches.Report("sensor", fmt::format("sensor {} has ended by itself", facts.number));
    }
    Trouble(std::uniform_int_distribution<std::size_t>(0, kFaults.size() - 1)(random));
  }
}

void Keeper::Trouble(std::size_t which) {
  const Fault& fault = kFaults[which];
  ++done[which];
  facts.Disturb();
  facts.lastFault = fault.name;
  if (fault.disorders) {
    facts.ExcuseOrder();
  }
  Do(fault);
  Heal();
  if (fault.disorders) {
    // What was delayed before the end comes when it was due, 1.5 s later at most.
    facts.ExcuseOrderUntil(Clock::now() + std::chrono::seconds(3));
  }
  facts.Settle();
}

void Keeper::Do(const Fault& fault) {
  const std::string_view name = fault.name;
  const double number = Between(fault.least, fault.most);
  if (fault.settings != nullptr) {
    AskRest(facts.port, "PATCH", "/faults", fmt::format(fmt::runtime(fault.settings), number));
  } else if (name == "cut") {
    AskRest(facts.port, "POST", "/faults/cut");
  } else if (name == "stall") {
    AskRest(facts.port, "POST", "/faults/stall", fmt::format(R"({{"seconds": {:.1f}}})", number));
  } else if (name == "freeze") {
    process.Signal(SIGSTOP);
  } else {
    Restart(name == "kill" ? SIGKILL : SIGTERM);
    return;
  }
  WaitFor(Between(kFaultShortest, kFaultLongest));
  process.Signal(SIGCONT);
}

void Keeper::Restart(int signal) {
  process.End(signal);
  WaitFor(Between(0, kFaultLongest));
  process.Start();
  ++tallies.restarts;
}

void Keeper::Heal() {
  // A stall lasts for six seconds and begins once more at most while it is asked to end.
  const ZoTest::Deadline deadline(std::chrono::seconds(30));
  while (AskRest(facts.port, "POST", "/faults/reset") != kOk ||
         AskRest(facts.port, "POST", "/system/start") != kOk) {
    if (deadline.Expired()) {
      breaches.Report("sensor", fmt::format("sensor {} could not be healed", facts.number));
      process.End(SIGKILL);
      process.Start();
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

}  // namespace ZoSoak
