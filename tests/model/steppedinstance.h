// A whole instance over a scripted sensor, in stopped time: performs steps and tells what came of them in the
// words of the model.
//
// Threads: one. Everything that the instance's threads do they do while a step waits for them.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/model/hoststeps.h"
#include "tests/model/referencemodel.h"
#include "tests/model/stoppedtime.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoModel {

class SteppedInstance {
 public:
  explicit SteppedInstance(long long now);

  Outcome Perform(const Step& step);
  Outcome End();

 private:
  template <typename HostStep>
  std::string Do(const HostStep& step) {
    return ZoModel::Perform(*client, step);
  }
  std::string Do(const Call& step);
  std::string Do(const MonitorPass& step);
  std::string Do(const RetryPass& step);
  std::string Do(const Trim& step);
  std::string Do(const LookUp& step);
  std::string Do(const Recreate& step);
  std::string Do(const Push& step);
  std::string Do(const Hold& step);
  std::string Do(const Answers& step);
  std::string Do(const Connection& step);
  std::string Do(const Clock& step);

  ZoJson AnswerTo(const ZoTest::FakeSensorManager::Request& request);

  StoppedTime time;
  ZoTest::Recorder recorder;
  ScriptedSensor script;
  std::vector<std::string> events;
  std::set<std::string> pushed;  // resources
  std::shared_ptr<ZoTest::FakeSensorManager> sensor;
  std::unique_ptr<ZoIO::ZoVyrnClient> client;
};

}  // namespace ZoModel
