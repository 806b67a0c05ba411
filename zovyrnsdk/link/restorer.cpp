#include "zovyrnsdk/link/restorer.h"

#include <algorithm>

#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

namespace {

constexpr std::uint64_t blamedRank = std::uint64_t{1} << 63;

}  // namespace

void Restorer::Granted(const Key& key, std::uint64_t id) {
  Wish& wish = wishes[key];
  if (wish.rank == 0) {
    wish.rank = nextRank++;
  }
  Leave(key, wish);
  wish.state = State::Active;
  wish.grantedBy = std::max(wish.grantedBy, id);
}

void Restorer::Forget(const Key& key, std::uint64_t id) {
  const auto found = wishes.find(key);
  if (found != wishes.end() && found->second.grantedBy < id) {
    Cancel(key);
  }
}

Restorer::Cancelled Restorer::Cancel(const Key& key) {
  const auto found = wishes.find(key);
  if (found == wishes.end()) {
    return Cancelled::Nothing;
  }
  Leave(key, found->second);
  const bool active = found->second.state == State::Active;
  const bool unanswered = found->second.unanswered;
  wishes.erase(found);
  return active ? Cancelled::Active : unanswered ? Cancelled::Doubtful : Cancelled::Waiting;
}

void Restorer::CancelAll() {
  wishes.clear();
  waiting.clear();
}

void Restorer::SessionLost(Time now) {
  for (auto& [key, wish] : wishes) {
    Leave(key, wish);
    wish.unanswered = false;
    const bool blamed = wish.sessionsEnded >= 2;
    const bool askedBefore = wish.asked != Time::min();
    Wait(key, wish, blamed && askedBefore ? std::max(now, wish.asked + blamedPause) : now);
  }
}

std::optional<Restorer::Key> Restorer::Next(Time now) {
  if (waiting.empty() || std::get<Time>(*waiting.begin()) > now) {
    return std::nullopt;
  }
  Key key = std::get<Key>(*waiting.begin());
  waiting.erase(waiting.begin());
  Wish& wish = wishes.at(key);
  wish.state = State::Asked;
  wish.asked = now;
  return key;
}

bool Restorer::Restored(const Key& key) {
  const auto found = wishes.find(key);
  if (found == wishes.end()) {
    return false;
  }
  Leave(key, found->second);
  found->second.state = State::Active;
  return true;
}

void Restorer::Refused(const Key& key, Time now) {
  const auto found = wishes.find(key);
  if (found != wishes.end() && found->second.state == State::Asked) {
    const bool blamed = found->second.sessionsEnded >= 2;
    Wait(key, found->second, blamed ? now + blamedPause : now + refusedPause);
  }
}

void Restorer::Unanswered(const Key& key, Time now) {
  Refused(key, now);
  if (const auto found = wishes.find(key); found != wishes.end()) {
    found->second.unanswered = true;
  }
}

void Restorer::Blame(const std::string& uri) {
  for (auto& [key, wish] : wishes) {
    const bool concerned = key.first == Kind::Stream ? key.second == uri : PatternMatches(key.second, uri);
    if (concerned && wish.state != State::Waiting && ++wish.sessionsEnded == 2) {
      wish.rank |= blamedRank;
    }
  }
}

Time Restorer::NextDue() const {
  return waiting.empty() ? never : std::get<Time>(*waiting.begin());
}

void Restorer::Wait(const Key& key, Wish& wish, Time due) {
  wish.state = State::Waiting;
  wish.due = due;
  waiting.emplace(due, wish.rank, key);
}

void Restorer::Leave(const Key& key, const Wish& wish) {
  if (wish.state == State::Waiting) {
    waiting.erase(Place(wish.due, wish.rank, key));
  }
}

bool PatternMatches(const std::string& pattern, const std::string& uri) {
  if (pattern == "*" || pattern == "/*" || pattern == "//*") {
    return true;
  }
  if (!pattern.ends_with("/*")) {
    return pattern == uri;
  }
  const std::string_view stem(pattern.data(), pattern.size() - 2);
  return uri.starts_with(stem) && (uri.size() == stem.size() || uri[stem.size()] == '/');
}

}  // namespace ZoSdk
