// A whole instance, its real sensor manager and its real link to a peer on 127.0.0.1, in stopped time: performs steps
// and tells what came of them in the words of the model.
//
// The clock of the system stands; the link's own does not. What the link does at its leisure (it asks for streams anew,
// it hands pushes on) each step waits for before it tells.
//
// Threads: one. The instance's own work while a step waits for them; the link's and the peer's whenever they like.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/model/hoststeps.h"
#include "tests/model/linkwatch.h"
#include "tests/model/referencemodel.h"
#include "tests/model/stoppedtime.h"
#include "tests/model/wirepeer.h"
#include "tests/model/wiresteps.h"
#include "tests/support/recorder.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoModel {

class WireInstance {
 public:
  // patience: for what must come. mostBreaks: as for the sensor.
  WireInstance(long long now, ZoTest::Clock::duration patience, int mostBreaks);

  std::uint16_t Port() const { return peer.Port(); }

  // What its creation told.
  Outcome Begin();
  // It is waited for as many requests as are expected; that there are no others shows in the outcomes, that of the end at
  // the latest.
  Outcome Perform(const WireStep& step, const Expected& expected);
  Outcome End();

 private:
  std::string Do(const Subscribe& step);
  std::string Do(const Unsubscribe& step);
  std::string Do(const Read& step);
  std::string Do(const Write& step);
  std::string Do(const Call& step);
  std::string Do(const MonitorPass& step);
  std::string Do(const RetryPass& step);
  std::string Do(const Trim& step);
  std::string Do(const LookUp& step);
  std::string Do(const Hold& step);
  std::string Do(const Answers& step);
  std::string Do(const Connection& step);
  std::string Do(const Clock& step);
  std::string Do(const StrayPush& step);
  std::string Do(const Cut& step);
  std::string Do(const Restart& step);
  std::string Do(const LoseAnswer& step);
  std::string Do(const LoseStart& step);
  std::string Do(const Spoil& step);
  std::string Do(const UnusablePush& step);
  std::string Do(const LeaveUnanswered& step);

  std::string Hosted(const std::function<std::string()>& call);
  void LoseSession();
  // Waits for all that a step has set going. Tells what did not come.
  std::string Settle(std::size_t requests);
  bool HandOn(const std::string& message);

  void Note(std::string event);
  std::vector<std::string> TakeEvents();
  std::vector<std::string> State();

  const ZoTest::Clock::duration patience;
  StoppedTime time;
  LinkWatch watch;
  std::mutex mutex;
  std::vector<std::string> events;  // guarded by mutex
  ZoTest::Recorder recorder;
  std::set<std::string> pushed;  // resources
  bool connected = true;
  MayEnd mayEnd = MayEnd::AtNothing;       // of the session, in this step
  bool lost = false;                       // the session, in this step
  std::optional<LeaveUnanswered> silence;  // when there is a request
  bool unanswered = false;                 // a request of this step
  bool apart = false;                      // the requests of this step from all else
  // The peer's threads use what stands above, and the client uses the peer.
  WirePeer peer;
  std::unique_ptr<ZoIO::ZoVyrnClient> client;
};

}  // namespace ZoModel
