#include "zovyrnsdk/link/readbrake.h"

#include <algorithm>
#include <functional>

#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

namespace {

constexpr unsigned sessionsEnough = 2;  // one may be chance

// Until the next read of what has ended so many sessions.
Duration PauseAfter(unsigned sessions) {
  Duration pause = probeInterval;
  for (unsigned i = sessionsEnough; i < sessions && pause < blamedPause; ++i) {
    pause *= 2;
  }
  return std::min<Duration>(pause, blamedPause);
}

}  // namespace

ReadBrake::Ruling ReadBrake::Read(const std::string& uri, Time now) {
  if (EndsSessions(uri)) {
    Ending& each = ending.at(uri);
    // One at a time: behind the answer of one that ends the session those of others would be lost.
    if (now < each.due || now < nextSuspect) {
      return Ruling::Answer;
    }
    nextSuspect = now + probeInterval;
    each.due = now + probeInterval;
    return braked.contains(uri) ? Ruling::AnswerAndProbe : Ruling::Send;
  }
  if (braked.empty()) {
    return Ruling::Send;
  }
  const auto found = braked.find(uri);
  if (found == braked.end()) {
    return Ruling::Send;
  }
  if (found->second != Time::min() && now < found->second + probeInterval) {
    return Ruling::Answer;
  }
  found->second = now;
  return Ruling::AnswerAndProbe;
}

void ReadBrake::ReadUnanswered(const std::string& uri, Time now) {
  if (!HasHeard(uri)) {
    braked.try_emplace(uri, now);
  }
}

void ReadBrake::ReadEndedTheSession(const std::string& uri, Time now) {
  Ending& each = ending[uri];
  each.sessions = now < each.due + blamedPause ? each.sessions + 1 : 1;
  each.due = now + PauseAfter(each.sessions);
}

void ReadBrake::ReadAnswered(const std::string& uri) {
  if (!ending.empty()) {
    ending.erase(uri);
  }
}

bool ReadBrake::HasHeard(const std::string& uri) const {
  return heard.contains(std::hash<std::string>()(uri));
}

bool ReadBrake::Expects(const std::string& uri) const {
  return braked.contains(uri) || ending.contains(uri) || HasHeard(uri);
}

bool ReadBrake::EndsSessions(const std::string& uri) const {
  if (ending.empty()) {
    return false;
  }
  const auto found = ending.find(uri);
  return found != ending.end() && found->second.sessions >= sessionsEnough;
}

void ReadBrake::Answered(const std::string& uri) {
  heard.insert(std::hash<std::string>()(uri));
  braked.erase(uri);
}

void ReadBrake::Pushed(const std::string& uri) {
  if (heard.size() < heardLimit) {
    heard.insert(std::hash<std::string>()(uri));
  }
  if (!braked.empty()) {
    braked.erase(uri);
  }
}

void ReadBrake::Spoken(const std::string& uri) {
  if (!braked.empty()) {
    braked.erase(uri);
  }
}

void ReadBrake::SessionOpened() {
  for (auto& [uri, lastProbe] : braked) {
    lastProbe = Time::min();
  }
}

}  // namespace ZoSdk
