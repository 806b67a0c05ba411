// The brake for endless retries: what keeps a caller that reads a mute resource again and again from waiting
// each time, and from ending a session each time with an answer that ends it.
//
// A read of a URI that has never answered on this link and whose last read ran out of time is answered at
// once by the link, while a probe goes out every 5 s, until anything about the URI arrives. URIs that have
// answered before are never braked. A URI two of whose answers in a row ended their session is braked as well,
// answered before or not, but for one read after 5 s and then ever more rarely, down to once a minute, until one is
// answered with something usable; of all such URIs one in 5 s. A plain state machine: the caller brings the time. Guarded by its owner. Memory:
// one entry for each URI that this side asked about, and hashes of a bounded number of URIs that the sensor pushed.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "zovyrnsdk/link/clock.h"

namespace ZoSdk {

class ReadBrake {
 public:
  enum class Ruling {
    Send,           // not braked
    Answer,         // braked: answer it here
    AnswerAndProbe  // likewise, and ask the sensor without waiting
  };

  Ruling Read(const std::string& uri, Time now);

  // A read ended without an answer.
  void ReadUnanswered(const std::string& uri, Time now);
  // It was answered by something that ended the session; or by something that did not.
  void ReadEndedTheSession(const std::string& uri, Time now);
  void ReadAnswered(const std::string& uri);
  // Whether content of it has come; whether a read's answer may still come.
  bool HasHeard(const std::string& uri) const;
  bool Expects(const std::string& uri) const;
  // Whether it is braked for what its answers did to their sessions.
  bool EndsSessions(const std::string& uri) const;

  // The sensor answered with the URI's content, or pushed it.
  void Answered(const std::string& uri);
  void Pushed(const std::string& uri);
  // It said something else about the URI, a refusal perhaps: that lifts the brake, but only until the next
  // read that nobody answers.
  void Spoken(const std::string& uri);

  // The session is back: what was braked meanwhile may be probed at once.
  void SessionOpened();

  std::size_t BrakedCount() const { return braked.size(); }

 private:
  struct Ending {
    unsigned sessions = 0;
    Time due{};  // for the next read
  };

  std::unordered_set<std::size_t> heard;           // hashes of URIs whose content came
  std::unordered_map<std::string, Time> braked;    // to the time of the last probe
  std::unordered_map<std::string, Ending> ending;  // the session, by their last answer
  Time nextSuspect{};
};

}  // namespace ZoSdk
