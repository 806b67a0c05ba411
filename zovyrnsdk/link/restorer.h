// The streams and subscriptions that come back with the session.
//
// Holds a wish for each stream and subscription that the sensor granted. When the session is lost all of them
// wait; in the next one they are asked for again, in the order in which they were granted. A refused one
// waits 3 s. One whose data ended two sessions comes last and at most once a minute. There is a wish, too, for what a
// caller asked for and nobody answered: it comes behind the granted ones, and is theirs once it
// is granted; refused, asked for thrice in vain, or blamed for the end of a session it is forgotten. Invariants: (1) a
// wish is in the waiting order exactly when it is Waiting; (2) cancelling removes it, whatever its state. A plain
// state machine: the caller brings the time. Guarded by its owner.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "zovyrnsdk/link/clock.h"

namespace ZoSdk {

class Restorer {
 public:
  enum class Kind : std::uint8_t { Stream, Subscription };
  using Key = std::pair<Kind, std::string>;
  enum class Cancelled {
    Nothing,  // there was no wish, or none that was ever granted
    Active,   // the sensor has it: it must be told
    Waiting,  // the sensor does not have it, or has not granted it again yet
    Doubtful  // likewise, but it was asked and has not answered
  };

  // A caller's own request, of this id, was granted. Answers may come in any order, so the highest id counts.
  void Granted(const Key& key, std::uint64_t id);
  // A caller's own request, of this id (not 0), was sent and will never be answered, for its session ends; or it could not
  // be sent in time.
  void Unheard(const Key& key, std::uint64_t id, Time now);
  // A caller's own request, of this id, was refused: what it was told holds, unless a later one was granted.
  void Forget(const Key& key, std::uint64_t id);
  Cancelled Cancel(const Key& key);
  void CancelAll();

  void SessionLost(Time now);
  // The wish to ask for now, if any; it is then under way until Restored, Refused or SessionLost.
  std::optional<Key> Next(Time now);
  // False when it was cancelled meanwhile.
  bool Restored(const Key& key);
  // The id of the caller's request when the wish is forgotten, because none was ever granted.
  std::optional<std::uint64_t> Refused(const Key& key, Time now);
  void Unanswered(const Key& key, Time now);

  // A message about this URI made the session unusable.
  void Blame(const std::string& uri);

  // When Next may have something; never when nothing waits.
  Time NextDue() const;
  std::size_t Size() const { return wishes.size(); }

 private:
  enum class State : std::uint8_t { Active, Waiting, Asked };
  struct Wish {
    State state = State::Active;
    std::uint64_t rank = 0;  // order of granting; higher for those never granted, and for blamed ones
    Time due{};
    Time asked = Time::min();
    std::uint64_t grantedBy = 0;  // the latest request of a caller
    std::uint64_t unheardBy = 0;  // the request of a caller that was never answered; 0 once it was granted
    unsigned askedInVain = 0;     // since then
    unsigned sessionsEnded = 0;
    bool unanswered = false;  // the sensor may have it in this session without having said so
  };
  using Place = std::tuple<Time, std::uint64_t, Key>;

  // That it was asked for brought no answer; true when it is to be forgotten.
  static bool InVain(Wish& wish);
  void TryLater(const Key& key, Wish& wish, Time now);
  void Wait(const Key& key, Wish& wish, Time due);
  void Leave(const Key& key, const Wish& wish);

  std::map<Key, Wish> wishes;
  std::set<Place> waiting;
  std::uint64_t nextRank = 1;
};

// Whether what comes of a resource may come of this stream or subscription.
bool Concerns(const Restorer::Key& key, const std::string& uri);

// Whether a resource belongs to a pattern: the URI itself, or "/res/*" for it and all below, "*" and "/*" for
// all.
bool PatternMatches(const std::string& pattern, const std::string& uri);

}  // namespace ZoSdk
