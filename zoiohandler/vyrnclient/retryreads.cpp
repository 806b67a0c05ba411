#include "zoiohandler/vyrnclient/retryreads.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ZoIO {

namespace {

constexpr std::chrono::milliseconds passPatience{20};  // for all answers of a pass
constexpr std::chrono::microseconds requestLimit{3'000'000};
constexpr std::size_t window = 128;  // requests under way

}  // namespace

void RetryReads::BeginPass() {
  ++pass;
  if (!std::exchange(turnedAway, false)) {
    ++turn;  // all had theirs
  }
  passEnd = Clock::now() + passPatience;
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
}

std::optional<ZoTransaction> RetryReads::Read(const std::string& uri) {
  RaiseIfGivenUp();
  Resource& resource = resources[uri];
  resource.pass = pass;
  if (resource.outcome) {
    return resource.outcome;
  }
  Send(uri, resource);
  if (!resource.underWay || !Settle(resource)) {
    return std::nullopt;
  }
  resource.outcome = std::exchange(resource.underWay, std::nullopt);
  --sent;
  if (resource.sentIn != pass) {
    // It tells what was true a pass ago; who does not find what it looks for is to know sooner than by asking then.
    Send(uri, resource);
  }
  return resource.outcome;
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

bool RetryReads::Settle(Resource& resource) {
  const auto patience = resource.sentIn == pass ? passEnd - Clock::now() : Clock::duration::zero();
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
  if (givenUp) {
    throw std::runtime_error("The sensor manager was given up.");
  }
}

}  // namespace ZoIO
