#include "tests/model/scriptedsensor.h"

#include <stdexcept>
#include <utility>

namespace ZoModel {

namespace {

constexpr int patience = 3;

Answer Status(long long status) {
  return {Document(Document::Members{{"status", Document(status)}})};
}

Answer Payload(long long status, Document payload) {
  return {Document(Document::Members{{"status", Document(status)}, {"payload", std::move(payload)}})};
}

}  // namespace

const char* Name(Mood mood) {
  switch (mood) {
    case Mood::Obeys:
      return "obeys";
    case Mood::Acknowledges:
      return "acknowledges";
    case Mood::Refuses:
      return "refuses";
    case Mood::Silent:
      return "is silent";
    case Mood::Mumbles:
      return "mumbles";
    case Mood::Payloads:
      return "answers without a status";
    case Mood::Raises:
      return "raises";
  }
  return "?";
}

Answer ScriptedSensor::Ask(const std::string& verb, const std::string& uri, bool patient) {
  if (patient && !connected) {
    throw std::runtime_error("The link is down.");
  }
  Answer answer = connected ? InMood(verb, uri) : Answer();
  unanswered = patient && answer.Part("payload") == nullptr ? unanswered + 1 : 0;
  if (unanswered > patience) {
    unanswered = 0;
    throw std::runtime_error("Asked often enough.");
  }
  return answer;
}

Answer ScriptedSensor::InMood(const std::string& verb, const std::string& uri) const {
  const auto known = moodOf.find(verb);
  switch (known == moodOf.end() ? Mood::Obeys : known->second) {
    case Mood::Acknowledges:
      return Status(1);
    case Mood::Refuses:
      return Payload(-404, {});
    case Mood::Mumbles:
      return {Document(Document::Members{{"status", Document(std::string("x"))},
                                         {"payload", Nest({"a"}, Document(7LL))}})};
    case Mood::Payloads:
      return {Nest({"payload", "b"}, Document(8LL))};
    case Mood::Raises:
      throw std::runtime_error("Broken.");
    case Mood::Silent:
      return {};
    case Mood::Obeys:
      break;
  }
  return Obey(verb, uri);
}

Answer ScriptedSensor::Obey(const std::string& verb, const std::string& uri) const {
  if (verb != "Read" && verb != "Stream") {
    return Status(1);
  }
  const auto known = resources.find(uri);
  return known == resources.end() ? Payload(-404, {}) : Payload(1, known->second);
}

}  // namespace ZoModel
