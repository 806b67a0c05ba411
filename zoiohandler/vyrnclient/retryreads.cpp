#include "zoiohandler/vyrnclient/retryreads.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ZoIO {

namespace {

constexpr std::chrono::milliseconds passPatience{20};  // for all answers of a pass
constexpr std::chrono::microseconds requestLimit{3'000'000};

}  // namespace

void RetryReads::BeginPass() {
  ++pass;
  passEnd = Clock::now() + passPatience;
  for (auto each = underWay.begin(); each != underWay.end();) {
    if (each->second.pass + 1 < pass) {
      Cancel(each->second.transaction);
      each = underWay.erase(each);
    } else {
      ++each;
    }
  }
}

std::optional<ZoTransaction> RetryReads::Read(const std::string& uri) {
  RaiseIfGivenUp();
  auto found = underWay.find(uri);
  if (found == underWay.end()) {
    found = underWay.emplace(uri, Request{ask(uri), Clock::now(), pass}).first;
  }
  Request& request = found->second;
  request.pass = pass;
  if (!Wait(request.transaction)) {
    if (Clock::now() < request.since + requestLimit) {
      return std::nullopt;
    }
    request.transaction.EndUnanswered(requestLimit.count());
  }
  ZoTransaction settled = std::move(request.transaction);
  underWay.erase(found);
  return settled;
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
bool RetryReads::Wait(ZoTransaction& transaction) {
  {
    Zo::MutexLock held(mutex);
    waiting = transaction;
  }
  const auto patience = std::max(passEnd - Clock::now(), Clock::duration::zero());
  const bool settled = transaction.Wait(
      static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(patience).count()));
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
