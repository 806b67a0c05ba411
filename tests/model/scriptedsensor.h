// The sensor that the plug-in and its model face alike: what it holds, and how it answers.
//
// The model asks one copy, the plug-in another; both copies are told the same. A plain value.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "tests/model/document.h"

namespace ZoModel {

// How a verb is answered.
enum class Mood {
  Obeys,         // as a healthy sensor does
  Acknowledges,  // a good status and nothing else
  Refuses,       // a negative status and a null payload
  Silent,        // no answer
  Mumbles,       // a status that is no number, with a payload
  Payloads,      // a payload without a status
  Raises,        // no sensor manager should, but memory may run out anywhere
};
inline constexpr int moods = 7;

const char* Name(Mood mood);

// An answer document; empty for none.
struct Answer {
  std::string Text() const { return document.Text(); }
  const Document* Part(const std::string& name) const { return document.Find({name}); }

  Document document;
};

class ScriptedSensor {
 public:
  // Raises std::runtime_error where the mood says so. A patient asker repeats a read that has no payload for
  // ever, so after a few of those the read raises.
  Answer Ask(const std::string& verb, const std::string& uri, bool patient);

  void Hold(const std::string& uri, const Document& document) { resources[uri] = document; }
  void Drop(const std::string& uri) { resources.erase(uri); }
  void SetMood(const std::string& verb, Mood mood) { moodOf[verb] = mood; }
  void SetConnected(bool value) { connected = value; }
  bool IsConnected() const { return connected; }

 private:
  Answer Obey(const std::string& verb, const std::string& uri) const;
  Answer InMood(const std::string& verb, const std::string& uri) const;

  std::map<std::string, Document> resources;
  std::map<std::string, Mood> moodOf;
  bool connected = true;
  int unanswered = 0;  // reads of a patient asker, in a row
};

}  // namespace ZoModel
