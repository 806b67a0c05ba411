#include "zovyrnsdk/link/readbrake.h"

#include <functional>

#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

ReadBrake::Ruling ReadBrake::Read(const std::string& uri, Time now) {
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
  if (!heard.contains(std::hash<std::string>()(uri))) {
    braked.try_emplace(uri, now);
  }
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
