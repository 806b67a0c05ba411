#include "zoiohandler/vyrnclient/retryreads.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ZoIO {

namespace {

constexpr std::chrono::milliseconds preparation{
    200};  // before a pass, for answers to what it is known to look for
constexpr std::chrono::milliseconds passPatience{20};  // within a pass, for all other answers
constexpr std::chrono::microseconds requestLimit{3'000'000};
constexpr std::size_t window = 128;  // requests under way

}  // namespace

void RetryReads::BeginPass(bool online) {
  ++pass;
  if (!std::exchange(turnedAway, false)) {
    ++turn;  // all had theirs
  }
  for (auto each = resources.begin(); each != resources.end();) {
    Resource& resource = each->second;
    resource.outcome.reset();
    if (resource.pass + 1 >= pass) {
      ++each;
      continue;
    }
    if (resource.underWay) {
      Cancel(*resource.underWay);
      --sent;
    }
    each = resources.erase(each);
  }
  std::vector<Entry*> wanted = std::exchange(asked, {});
  if (online) {
    std::erase_if(wanted, [this](const Entry* entry) { return !isMissing(entry->first); });
    for (auto* const entry : wanted) {
      Resource& resource = entry->second;
      if (resource.underWay && Wait(*resource.underWay, {})) {
        Take(resource);  // for want of a newer one it will do
      }
      Send(entry->first, resource);
    }
    const Clock::time_point limit = Clock::now() + preparation;
    for (auto* const entry : wanted) {
      if (entry->second.underWay && entry->second.sentIn == pass) {
        Wait(*entry->second.underWay, limit - Clock::now());
      }
    }
  }
  passEnd = Clock::now() + passPatience;
}

std::optional<RetryReads::Outcome> RetryReads::Read(const std::string& uri) {
  RaiseIfGivenUp();
  Entry& entry = *resources.try_emplace(uri).first;
  Resource& resource = entry.second;
  if (resource.pass != pass) {
    asked.push_back(&entry);
    resource.pass = pass;
  }
  const bool known = resource.givenIn == pass;
  if (!known) {
    Send(uri, resource);
    if (resource.underWay && Settle(resource)) {
      Take(resource);
    }
    if (!resource.outcome) {
      return std::nullopt;
    }
    resource.givenIn = pass;
  }
  return Outcome{*resource.outcome, known};
}

void RetryReads::Send(const std::string& uri, Resource& resource) {
  if (resource.underWay || resource.turn == turn) {
    return;
  }
  if (sent >= window) {
    turnedAway = true;
    return;
  }
  resource.underWay = ask(uri);
  resource.since = Clock::now();
  resource.sentIn = pass;
  resource.turn = turn;
  ++sent;
}

void RetryReads::Take(Resource& resource) {
  resource.outcome = std::exchange(resource.underWay, std::nullopt);
  --sent;
}

bool RetryReads::Settle(Resource& resource) {
  const bool pressing = resource.sentIn == pass && !resource.outcome;
  const auto patience = pressing ? passEnd - Clock::now() : Clock::duration::zero();
  if (Wait(*resource.underWay, patience)) {
    return true;
  }
  if (Clock::now() < resource.since + requestLimit) {
    return false;
  }
  resource.underWay->EndUnanswered(requestLimit.count());
  return true;
}

void RetryReads::GiveUp() noexcept {
  std::optional<ZoTransaction> last;
  {
    Zo::MutexLock held(mutex);
    givenUp = true;
    last.swap(waiting);
  }
  if (last) {
    Cancel(*last);
  }
}

void RetryReads::Cancel(ZoTransaction& transaction) noexcept {
  try {
    transaction.Cancel();
  } catch (const std::exception&) {
    // Without the memory to cancel it, the request ends with the session.
  }
}

// Cancelling enters the link, whose locks come before this one: never with the mutex held.
bool RetryReads::Wait(ZoTransaction& transaction, Clock::duration patience) {
  {
    Zo::MutexLock held(mutex);
    Check();
    waiting = transaction;
  }
  const auto limit =
      std::chrono::duration_cast<std::chrono::microseconds>(std::max(patience, Clock::duration::zero()));
  const bool settled = transaction.Wait(static_cast<std::uint64_t>(limit.count()));
  std::optional<ZoTransaction> last;
  {
    Zo::MutexLock held(mutex);
    last.swap(waiting);
  }
  RaiseIfGivenUp();
  return settled;
}

void RetryReads::RaiseIfGivenUp() {
  Zo::MutexLock held(mutex);
  Check();
}

void RetryReads::Check() const {
  if (givenUp) {
    throw std::runtime_error("The sensor manager was given up.");
  }
}

}  // namespace ZoIO
