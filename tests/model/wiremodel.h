// The model of an instance with its sensor at the other end of a wire: what the host must see, what the sensor must see,
// and what the link must remember between them.
//
// Adds to the model of an instance: the answers' way through the link and the sensor manager, what was asked for and so
// comes back with the next session, what ended sessions and so does not or is read more rarely, which pushes get through,
// and how the registry's worker asks.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/model/referencemodel.h"
#include "tests/model/wiresensor.h"
#include "tests/model/wiresteps.h"

namespace ZoModel {

class WireModel : public ReferenceModel {
 public:
  // now: µs since the epoch. address and port: of the sensor. mostBreaks: as for the sensor.
  WireModel(long long now, const std::string& address, unsigned port, int mostBreaks);

  // The instance is created.
  Outcome Begin();
  Outcome Perform(const WireStep& step);

  // Of the last step.
  Expected Expects() const;

 protected:
  bool IsConnected() const override { return connected; }
  Answer Ask(const std::string& verb, const std::string& uri, const std::string& body, bool patient) override;
  bool IsRunning() override;
  void StartSensor() override { Command("/system/start", "Start"); }
  void StopSensor() override { Command("/system/stop", "Stop"); }
  void EndSensor() override;
  void Retry() override;

 private:
  // A stream, or a subscription of a pattern.
  using Wish = std::pair<bool, std::string>;
  // To come back with the next session.
  struct Wanted {
    Wish wish;
    bool active = false;    // the session has it
    bool granted = false;   // some session had it
    int sessionsEnded = 0;  // by what came of it
  };
  struct Exchange {
    Answer answer;
    std::string failure;      // instead of an answer
    bool unanswered = false;  // though it may come late
    bool known = false;       // to somebody in this pass
    bool broken = false;      // the session ended before the answer came
    bool unusable = false;    // by it
  };
  // A resource of which answers to reads have ended their sessions.
  struct Suspect {
    int sessions = 0;   // in a row
    long long due = 0;  // the next read, µs
  };
  struct Late {
    std::string method;
    std::string uri;
    Answer answer;
  };

  using ReferenceModel::Do;
  std::string Do(const Subscribe& step);
  std::string Do(const Unsubscribe& step);
  std::string Do(const Read& step);
  std::string Do(const Write& step);
  std::string Do(const Call& step);
  std::string Do(const Hold& step);
  std::string Do(const Answers& step);
  std::string Do(const Connection& step);
  std::string Do(const StrayPush& step);
  std::string Do(const Cut& step);
  std::string Do(const Restart& step);
  std::string Do(const LoseAnswer& step);
  std::string Do(const LoseStart& step);
  std::string Do(const Spoil& step);
  std::string Do(const UnusablePush& step);
  std::string Do(const LeaveUnanswered& step);

  // A call of the host.
  template <typename HostStep>
  std::string Hosted(const HostStep& step, MayEnd at = MayEnd::AtNothing);
  MayEnd MayEndAt(const Subscribe& step);
  MayEnd MayEndAt(const std::string& uri) const;

  static Answer Done(const std::string& uri);
  std::optional<Exchange> Brake(const std::string& uri);
  Exchange Send(const std::string& method, const std::string& uri, const std::string& body);
  Exchange LeaveSilent(const std::string& method, const std::string& uri, const Answer& answer);
  void Receive(const std::string& method, const std::string& uri, const Answer& answer);
  void ReceiveLate();
  void NoteStart(const Wish& wish, const Answer& answer);
  void NoteLostStart(const Wish& wish);
  std::vector<Wanted>::iterator Find(const Wish& wish);
  void LogFailure(const std::string& method, const std::string& uri, const std::string& failure);
  void Command(const std::string& uri, const std::string& function);
  static std::string FailureOf(const Exchange& exchange);

  Exchange EndSession(const Ending& by, const std::string& method, const std::string& uri);
  void NoteUnusableRead(const std::string& uri);
  void Blame(const std::string& uri);
  void LoseSession();
  void Restore();
  bool IsAskedFor(const std::string& uri) const;
  void HandOn(const WirePush& push);
  void HandOnAll();

  const std::string address;
  const unsigned port;
  WireSensor sensor;
  bool connected = true;
  MayEnd mayEnd = MayEnd::AtNothing;       // of the session, in the last step
  MayEnd ending = MayEnd::AtNothing;       // likewise, as long as it has not ended
  bool lost = false;                       // the session, in this step
  std::optional<LeaveUnanswered> silence;  // when there is a request
  bool silencing = false;                  // the next request
  std::vector<Late> late;                  // answers, in this step
  bool apart = false;                      // requests from all else, in this step
  int unanswered = 0;                      // requests in a row
  std::set<std::string> heard;             // resources whose content has come
  std::set<std::string> braked;            // resources that are not read
  std::map<std::string, Suspect> suspects;
  long long nextSuspect = 0;  // when one of them may be read, µs
  std::set<Wish> interest;
  std::vector<Wanted> wanted;       // in the order in which it comes back
  std::vector<std::string> sought;  // resources, by the last pass of the registry's worker
  std::vector<std::string> handedOn;
};

}  // namespace ZoModel
