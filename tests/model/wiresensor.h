// The sensor at the far end of the wire: what it holds, what a session has asked for, and how it answers and pushes.
//
// The model asks one copy, the peer of the plug-in another; both copies are told the same. A plain value.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/model/document.h"
#include "tests/model/scriptedsensor.h"
#include "tests/model/unusable.h"

namespace ZoModel {

struct WirePush {
  bool stream = false;  // else a notification
  std::string uri;
  Document payload;

  // The message.
  std::string Text() const;
  static std::string UnusableText(bool stream, const std::string& uri, Unusable how);
  // "stream /r {...}"
  std::string Summary() const;
};

// The number of a method, as logs show it.
int NumberOf(const std::string& method);

// Events with the requests behind all others, for a step in which their order among each other is a matter of luck.
std::vector<std::string> RequestsLast(std::vector<std::string> events);

// Whether a resource belongs to a pattern: "/r/*" to "/r" and all below it, "*" and "/*" to all.
bool IsBelow(const std::string& pattern, const std::string& uri);

// An answer that can be lost.
enum class Loss { Any, StreamStart, SubscriptionStart };

// How a session ends: by a message, or without one.
struct Ending {
  std::optional<Unusable> message;
};

// In place of which answers of a step the session may end, once.
enum class MayEnd { AtNothing, AtAnything, AtStarts };

// Whether the method starts a stream or a subscription.
bool IsStart(const std::string& method);

class WireSensor {
 public:
  // mostBreaks: so often a session may break in one history. Each time the link takes longer to come back.
  explicit WireSensor(int mostBreaks) : mostBreaks(mostBreaks) {}

  // method: as the wire spells it. The answer without its id; no members for a bare acknowledgement.
  Answer Ask(const std::string& method, const std::string& uri);

  // A resource changes, or goes: what the session is told of it.
  void Change(const std::string& uri, const std::optional<Document>& payload);
  // verb: as the sensor manager spells it.
  void SetMood(const std::string& verb, Mood mood) { moodOf[verb] = mood; }

  bool MayBreak() const { return breaks < mostBreaks; }
  void EndSession();
  void Forget() { resources.clear(); }

  // The next answer of this kind is lost, where one may be: the session ends instead.
  void Lose(Loss loss) { losses.insert(loss); }
  bool IsToLose(Loss loss) const { return MayBreak() && losses.contains(loss); }
  // What is said of a resource ends the session, where it may; no way: it does so no more.
  void Spoil(const std::string& uri, std::optional<Unusable> how);
  bool IsSpoilt(const std::string& uri) const { return MayBreak() && spoilt.contains(uri); }
  // How the session ends in place of this answer; nothing: it does not.
  std::optional<Ending> Ends(MayEnd mayEnd, const std::string& method, const std::string& uri);

  // The pushes that wait to be sent, in their order.
  std::vector<WirePush> TakePushes();

  // What this session has, as lines.
  std::vector<std::string> State() const;

 private:
  Answer Obey(const std::string& method, const std::string& uri);
  Answer Content(const std::string& uri) const;
  void Start(const std::string& method, const std::string& uri);
  void End(const std::string& method, const std::string& uri);

  std::map<std::string, Document> resources;
  std::map<std::string, Mood> moodOf;
  std::set<std::string> streams;
  std::set<std::string> patterns;
  std::vector<WirePush> pushes;
  std::set<Loss> losses;
  std::map<std::string, Unusable> spoilt;
  bool running = false;
  const int mostBreaks;
  int breaks = 0;
};

}  // namespace ZoModel
