#include "tests/soak/callboard.h"

#include <fmt/format.h>

#include <algorithm>

namespace ZoSoak {
namespace {

using std::chrono::milliseconds;

// What the guarantees say of one request, and of one join at the end of an instance.
constexpr milliseconds kRequest{3000};
constexpr milliseconds kJoin{1000};
// A call may find its instance in one of the soak's own slow callbacks, and the registry in a request of its own.
constexpr milliseconds kHeldUp = milliseconds(1500) + kRequest;
// Machines are busy; sanitizers make them slower.
constexpr milliseconds kSlack{ZoTest::kSanitized ? 10'000 : 2000};

double Seconds(Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

const char* Text(CallKind kind) {
  constexpr const char* texts[kCallKinds] = {"CreateIoInstance", "DestroyIoInstance", "ReadItem",
                                             "WriteItem",        "SubscribeItems",    "UnsubscribeItems",
                                             "CallMethod",       "GetIoInfo"};
  return texts[static_cast<std::size_t>(kind)];
}

milliseconds LimitOf(CallKind kind) {
  const auto names = static_cast<int>(kMostNames);
  switch (kind) {
    case CallKind::Create:
      return kRequest + kSlack;
    case CallKind::Destroy:  // Monitor, the cache's thread, the registry's and the simulator's
      return 4 * kJoin + kSlack;
    case CallKind::Read:
    case CallKind::Write:
    case CallKind::Method:
      return 2 * kRequest + kHeldUp + kSlack;
    case CallKind::Subscribe:
      return names * 3 * kRequest + kHeldUp + kSlack;
    case CallKind::Unsubscribe:
      return names * 2 * kRequest + kHeldUp + kSlack;
    case CallKind::Info:
      break;
  }
  return kSlack;
}

milliseconds LongestLimit() {
  return LimitOf(CallKind::Subscribe);
}

CallBoard::CallBoard(std::size_t seats, Breaches& breaches) : breaches(breaches), seats(seats) {}

CallBoard::Call::Call(CallBoard& board, std::size_t seat, CallKind kind, bool alone)
    : board(board), seat(seat), kind(kind), alone(alone) {
  board.Enter(alone);
  begin = Clock::now();
  Seat& mine = board.seats[seat];
  mine.reported = false;
  mine.since = begin.time_since_epoch().count();
  mine.kind = static_cast<int>(kind);
}

CallBoard::Call::~Call() {
  const Clock::time_point end = Clock::now();
  board.seats[seat].kind = -1;
  board.lastEnd = end.time_since_epoch().count();
  board.histograms[static_cast<std::size_t>(kind)].Add(end - begin);
  board.Leave(alone);
  if (!alone) {
    return;
  }
  ++board.aloneCount;
  if (end - begin > LimitOf(kind)) {
    board.breaches.Report("slow call",
                          fmt::format("{} took {:.3f} s with no other call beside it; the limit is {:.1f} s",
                                      Text(kind), Seconds(end - begin), Seconds(LimitOf(kind))));
  }
}

void CallBoard::Enter(bool alone) {
  std::unique_lock lock(mutex);
  if (alone) {
    ++aloneWanted;
    changed.wait(lock, [this] { return inside == 0; });
    --aloneWanted;
    isAlone = true;
  } else {
    changed.wait(lock, [this] { return !isAlone && aloneWanted == 0; });
  }
  ++inside;
}

void CallBoard::Leave(bool alone) {
  const std::lock_guard lock(mutex);
  --inside;
  isAlone = isAlone && !alone;
  changed.notify_all();
}

std::vector<std::string> CallBoard::Stuck(Clock::time_point now) {
  std::vector<std::string> found;
  const auto longest = std::chrono::duration_cast<Clock::duration>(LongestLimit());
  const Clock::time_point ended{Clock::duration(lastEnd.load())};
  for (Seat& seat : seats) {
    const int kind = seat.kind;
    const Clock::time_point since{Clock::duration(seat.since.load())};
    if (kind < 0 || seat.reported || now < since) {
      continue;
    }
    // One call runs at a time. So one of them ends within the longest time of one, and each behind all the
    // others, unless one is overtaken now and then on its way to the queue.
    const bool noneEnds = now - std::max(since, ended) > longest;
    if (noneEnds || now - since > longest * static_cast<int>(seats.size() + 1)) {
      seat.reported = true;
      found.push_back(fmt::format("{} has not returned for {:.1f} s, the last call to do so did {:.1f} s ago",
                                  Text(static_cast<CallKind>(kind)), Seconds(now - since),
                                  Seconds(now - ended)));
    }
  }
  return found;
}

void CallBoard::Plant(std::size_t seat, Clock::duration ago) {
  const Clock::rep then = (Clock::now() - ago).time_since_epoch().count();
  lastEnd = then;
  seats[seat].since = then;
  seats[seat].kind = static_cast<int>(CallKind::Read);
}

}  // namespace ZoSoak
