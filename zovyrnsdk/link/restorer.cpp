#include "zovyrnsdk/link/restorer.h"

#include <algorithm>
#include <iterator>

#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

namespace {

constexpr std::uint64_t blamedRank = std::uint64_t{1} << 63;
constexpr std::uint64_t unheardRank = std::uint64_t{1} << 62;
constexpr unsigned triesUnheard = 3;

}  // namespace

void Restorer::Granted(const Key& key, std::uint64_t id) {
  Wish& wish = wishes[key];
  Leave(key, wish);
  if (wish.rank == 0 || wish.unheardBy != 0) {
    wish.rank = nextRank++;
  }
  wish.unheardBy = 0;
  wish.state = State::Active;
  wish.grantedBy = std::max(wish.grantedBy, id);
}

void Restorer::Unheard(const Key& key, std::uint64_t id, Time now) {
  Wish& wish = wishes[key];
  if (wish.rank == 0) {
    wish.rank = unheardRank | id;  // in the order of asking
    wish.unheardBy = id;
    try {
      Wait(key, wish, now);
    } catch (...) {  // one that is in no order would never be asked for
      wishes.erase(key);
      throw;
    }
  } else if (wish.unheardBy != 0) {
    wish.unheardBy = std::max(wish.unheardBy, id);
  }
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
  const bool granted = found->second.unheardBy == 0;
  wishes.erase(found);
  if (!granted) {
    return Cancelled::Nothing;
  }
  return active ? Cancelled::Active : unanswered ? Cancelled::Doubtful : Cancelled::Waiting;
}

void Restorer::CancelAll() {
  wishes.clear();
  waiting.clear();
}

void Restorer::SessionLost(Time now) {
  for (auto it = wishes.begin(); it != wishes.end();) {
    const bool wasAsked = it->second.state == State::Asked;
    if (wasAsked) {
      it->second.state =
          State::Waiting;  // counted, should there be no memory for the rest and all be done again
    }
    it = wasAsked && InVain(it->second) ? wishes.erase(it) : std::next(it);
  }
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
  if (std::exchange(found->second.unheardBy, 0) != 0) {
    found->second.rank = nextRank++;
  }
  return true;
}

std::optional<std::uint64_t> Restorer::Refused(const Key& key, Time now) {
  const auto found = wishes.find(key);
  if (found == wishes.end() || found->second.state != State::Asked) {
    return std::nullopt;
  }
  if (const std::uint64_t id = found->second.unheardBy; id != 0) {
    wishes.erase(found);
    return id;
  }
  TryLater(key, found->second, now);
  return std::nullopt;
}

void Restorer::Unanswered(const Key& key, Time now) {
  const auto found = wishes.find(key);
  if (found == wishes.end() || found->second.state != State::Asked) {
    return;
  }
  if (InVain(found->second)) {
    wishes.erase(found);
    return;
  }
  TryLater(key, found->second, now);
  found->second.unanswered = true;
}

bool Restorer::InVain(Wish& wish) {
  return wish.unheardBy != 0 && ++wish.askedInVain == triesUnheard;
}

void Restorer::TryLater(const Key& key, Wish& wish, Time now) {
  Wait(key, wish, now + (wish.sessionsEnded >= 2 ? blamedPause : refusedPause));
}

void Restorer::Blame(const std::string& uri) {
  for (auto it = wishes.begin(); it != wishes.end();) {
    auto& [key, wish] = *it;
    const bool blamed = Concerns(key, uri) && wish.state != State::Waiting;
    if (blamed && wish.unheardBy != 0) {
      it = wishes.erase(it);
      continue;
    }
    if (blamed && ++wish.sessionsEnded == 2) {
      wish.rank |= blamedRank;
    }
    ++it;
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

bool Concerns(const Restorer::Key& key, const std::string& uri) {
  return key.first == Restorer::Kind::Stream ? key.second == uri : PatternMatches(key.second, uri);
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
