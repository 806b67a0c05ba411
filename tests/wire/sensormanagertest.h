// The fixture of tests of the sensor manager over the SDK by itself: a scripted sensor at one end, and at the other an
// instance that has a manager of its own, so that what the instance is asked for shows there.
//
// Threads: the test's. Owner: the test; a manager goes before the fixture.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qapi/testing.h"
#include "tests/sdk/fakesensor.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/sensormanager.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoIO {

struct SensorManagerAccess {
  using Status = SensorManager::SensorState::Status;

  static void Stream(SensorManager& manager, const std::shared_ptr<ZoStreamResponse>& response) {
    SensorManager::StreamHandler(*manager.shared, response);
  }
  static void Notify(SensorManager& manager, const std::shared_ptr<ZoNotificationResponse>& response) {
    SensorManager::NotificationHandler(*manager.shared, response);
  }
  static void UpdateSensorState(SensorManager& manager) { manager.UpdateSensorState(); }
  static void RecreateSubscriptions(SensorManager& manager) { manager.RecreateSubscriptions(); }
  static void SetStatus(SensorManager& manager, Status status) { manager.SetStatus(status); }
  static Status PreviousStatus(const SensorManager& manager) { return manager.previousStatus; }
  // It lies where the manager's own file alone can look; but a change shows what was there before.
  static Status StatusNow(SensorManager& manager) {
    const Status previous = manager.previousStatus;
    manager.SetStatus(SensorManager::SensorState::Unknown);
    const Status status = manager.previousStatus;
    manager.SetStatus(status);
    manager.previousStatus = previous;
    return status;
  }
};

}  // namespace ZoIO

namespace ZoTest {

struct Verb {
  const char* name;
  int method;
  std::function<ZoJson(ZoIO::ISensorManager&, const std::string& uri, bool logFailure)> call;
};

inline const std::vector<Verb> verbs = {
    {"Read", 1, [](ZoIO::ISensorManager& m, const std::string& uri, bool log) { return m.Read(uri, log); }},
    {"Create", 2,
     [](ZoIO::ISensorManager& m, const std::string& uri, bool log) {
       return m.Create(uri, ZoJson::Of(1), log);
     }},
    {"Update", 3,
     [](ZoIO::ISensorManager& m, const std::string& uri, bool log) {
       return m.Update(uri, ZoJson::Of(1), log);
     }},
    {"Delete", 4,
     [](ZoIO::ISensorManager& m, const std::string& uri, bool log) { return m.Delete(uri, log); }},
    {"Call", 5,
     [](ZoIO::ISensorManager& m, const std::string& uri, bool log) {
       return m.Call(uri, ZoJson::Of(1), log);
     }},
    {"Subscribe", 6,
     [](ZoIO::ISensorManager& m, const std::string& uri, bool log) { return m.Subscribe(uri, log); }},
    {"Unsubscribe", 7,
     [](ZoIO::ISensorManager& m, const std::string& uri, bool log) { return m.Unsubscribe(uri, log); }},
    {"Stream", 8,
     [](ZoIO::ISensorManager& m, const std::string& uri, bool log) { return m.Stream(uri, log); }},
    {"StopStream", 9,
     [](ZoIO::ISensorManager& m, const std::string& uri, bool log) { return m.StopStream(uri, log); }}};

class SensorManagerTest : public testing::Test {
 protected:
  std::unique_ptr<ZoIO::SensorManager> Make(unsigned short port) {
    return std::make_unique<ZoIO::SensorManager>(client, "127.0.0.1", port, logger);
  }

  // The log lines since the last Clear, as "level function: message".
  std::vector<std::string> Lines() const { return recorder.LogLines(); }

  // Tests have an instance do what it otherwise does before its monitor is there: so the monitor gets no lock, and its
  // passes end before they begin.
  struct NoMonitor {
    NoMonitor() {
      qTest_FailOperationIn("ZoVyrnClient::Monitor::Thread", qOperation::LockEnter, 1, qStatus_System, 0);
    }
    ~NoMonitor() { qTest_Reset(); }
  };

  NoMonitor noMonitor;
  FakeSensor sensor;
  Recorder recorder;
  Recorder host;
  std::shared_ptr<ZoIO::Logger> logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  std::shared_ptr<FakeSensorManager> other = std::make_shared<FakeSensorManager>(
      std::make_shared<ZoIO::Logger>(host.Param().context, host.Param().log));
  ZoIO::ZoVyrnClient client{other, other, host.Param()};
};

}  // namespace ZoTest
