// A sensor that is there: what creation tells, what calls of methods do, and what is left when it goes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/sdk/fakesensor.h"
#include "tests/support/boundsocket.h"
#include "tests/wire/emulator.h"
#include "tests/wire/wiretest.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

class Connected : public WireTest {
 protected:
  static constexpr const char* Resources = R"({"resources": {
    "/res": {"content": {"v": 1}, "writable": true},
    "/echo": {"call": {"echo": true}}}})";

  // The document within the response of a call that must bring one.
  ZoJson DataOf(const std::string& method, const std::string& uri, const std::string& payload = "") {
    ZoJson arguments;
    arguments.Set("id", ZoJson::Of(7));
    arguments.Set("uri", ZoJson::Of(uri));
    arguments.Set("args", ZoJson::Of(payload));
    recorder.Clear();
    EXPECT_EQ(Call(handle, method, arguments.ToString(), this), 0) << method;
    const Recorder::Entries results = recorder.Results();
    EXPECT_EQ(results.size(), 1u) << method;
    if (results.empty()) {
      return {};
    }
    EXPECT_EQ(results[0].token, this);
    const ZoJson response = ZoJson::ParseString(results[0].response);
    EXPECT_EQ(response.At("id").Get<int>(), 7);
    EXPECT_EQ(response.At("errcode").Get<int>(), 0);
    return ZoJson::ParseString(response.At("data").Get<std::string>());
  }

  static std::string PayloadOf(const ZoJson& data) {
    EXPECT_EQ(data.At("status").Get<int>(), 1) << data.ToString();
    return data.At("payload").ToString();
  }

  // A denial is an answer like others: nothing is logged of it.
  void ExpectDenied(const ZoJson& data, int status) const {
    EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level >= 4; }), 0u) << data.ToString();
    EXPECT_EQ(data.At("status").Get<int>(), status) << data.ToString();
    EXPECT_TRUE(data.At("payload").IsNull());
    EXPECT_FALSE(data.At("error").Get<std::string>().empty());
  }

  std::string ResultOf(const std::string& method) {
    return DataOf(method, "").At("result").Get<std::string>();
  }

  Emulator sensor{Resources};
  void* handle = Create("127.0.0.1", sensor.Port());
};

TEST_F(Connected, CreationTellsItsStepsInOrder) {
  const std::string state = "2 ZoIO::SensorManager::UpdateSensorState: ";
  const std::string client = " ZoIO::ZoVyrnClient::ZoVyrnClient: ";
  EXPECT_THAT(
      recorder.LogLines(),
      ElementsAre("2" + client + "Creating ZoIoHandler instance.", "2" + client + "Creating sensor manager.",
                  state + "System is not connected. Connecting...", state + "System connected successfully.",
                  state + "Updating sensor status.", state + "Sensor status updated successfully",
                  state + "Recreating subscriptions.", state + "Subscriptions recreated.",
                  "2" + client + "Sensor manager created.", "3" + client + "ZoIoHandler instance created.",
                  "3" + client + "Sensor  IP address: 127.0.0.1",
                  "3" + client + "Sensor  control port: " + std::to_string(sensor.Port())));
  EXPECT_TRUE(IsConnected(handle));
}

TEST_F(Connected, DestructionTellsOfTheDisconnect) {
  recorder.Clear();
  EXPECT_EQ(Destroy(handle), 0);
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Destroying ZoIoHandler instance.",
                          "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Joining ZoVyrnClient::Monitor thread.",
                          "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoVyrnClient::Monitor thread joined.",
                          "2 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoIoHandler instance destroyed successfully.",
                          "2 ZoIO::SensorManager::~SensorManager: Disconnecting system...",
                          "2 ZoIO::SensorManager::~SensorManager: System disconnected.",
                          "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
                          "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."));
}

TEST_F(Connected, MethodsReachTheSensor) {
  EXPECT_EQ(PayloadOf(DataOf("Read", "/res")), R"({"v":1})");
  EXPECT_EQ(DataOf("Update", "/res", R"({"v":5})").At("status").Get<int>(), 1);
  EXPECT_EQ(sensor.Content("/res"), R"({"v":5})");
  EXPECT_EQ(DataOf("Create", "/mine", R"({"a":[1,"\u00e4"]})").At("status").Get<int>(), 1);
  EXPECT_EQ(PayloadOf(DataOf("Read", "/mine")), R"({"a":[1,"ä"]})");
  EXPECT_EQ(PayloadOf(DataOf("Call", "/echo", R"({"said":true})")), R"({"said":true})");
  EXPECT_EQ(DataOf("Delete", "/mine").At("status").Get<int>(), 1);
  ExpectDenied(DataOf("Read", "/mine"), -404);
}

TEST_F(Connected, WhatTheSensorDeniesArrivesAsItsErrorDocument) {
  ExpectDenied(DataOf("Read", "/none"), -404);
  ExpectDenied(DataOf("Create", "/res", "1"), -409);
  ExpectDenied(DataOf("Update", "/none", "1"), -404);
  ExpectDenied(DataOf("Update", "/res", R"({"v":"text"})"), -422);
  ExpectDenied(DataOf("Update", "/system", R"({"name":"mine"})"), -405);
  ExpectDenied(DataOf("Delete", "/none"), -404);
  ExpectDenied(DataOf("Call", "/res", "null"), -405);
}

TEST_F(Connected, ArgumentsThatAreNoJsonAreNotSent) {
  EXPECT_TRUE(DataOf("Create", "/mine", "{").IsString());
  ExpectDenied(DataOf("Read", "/mine"), -404);
}

TEST_F(Connected, RunAndStopTellWhatTheSensorWas) {
  EXPECT_EQ(ResultOf("RunSensor"), "Already running.");
  EXPECT_EQ(ResultOf("StopSensor"), "OK");
  EXPECT_EQ(ZoJson::ParseString(sensor.Content("/system")).At("state").Get<int>(), 0);
  EXPECT_EQ(ResultOf("StopSensor"), "Not running");
  EXPECT_EQ(ResultOf("RunSensor"), "OK");
  EXPECT_EQ(ZoJson::ParseString(sensor.Content("/system")).At("state").Get<int>(), 1);
  EXPECT_EQ(ResultOf("RunSensor"), "Already running.");
}

TEST_F(Connected, AStartThatTheSensorDeniesIsLoggedAndAnsweredAllTheSame) {
  EXPECT_EQ(ResultOf("StopSensor"), "OK");
  sensor.Patch("/faults", R"({"refuse_start":true})");
  EXPECT_EQ(ResultOf("RunSensor"), "OK");
  EXPECT_EQ(recorder.Count([](const Entry& entry) {
    return entry.level == 5 && entry.function == "ZoIO::SensorManager::Start";
  }),
            1u);
  EXPECT_EQ(ResultOf("StopSensor"), "Not running");
}

TEST_F(Connected, ASensorThatGoesLeavesEverythingRefused) {
  EXPECT_EQ(ValueOf(handle, "/res#/v"), "2:1");
  sensor.Stop();
  ASSERT_TRUE(WaitConnected(handle, false));
  recorder.Clear();
  const Stopwatch watch;
  std::vector<int> codes;
  EXPECT_EQ(Read(handle, "/res#/v"), 1);
  EXPECT_EQ(Write(handle, "/res#/v", IntegerValue(2)), 1);
  EXPECT_EQ(Subscribe(handle, {"/res#/v"}, 100, &codes), 1);
  EXPECT_THAT(codes, ElementsAre(-1));
  EXPECT_EQ(Unsubscribe(handle, {"/res#/v"}), 1);
  for (const char* method : {"RunSensor", "StopSensor", "Read", "Create", "Update", "Delete", "Call"}) {
    EXPECT_EQ(Call(handle, method, R"({"uri":"/res","args":"1"})"), 1) << method;
  }
  EXPECT_EQ(recorder.Size(), 0u);
  EXPECT_LT(watch.Milliseconds().count(), kSanitized ? 5000 : 1000);
}

using ConnectedOverIpv6 = WireTest;

TEST_F(ConnectedOverIpv6, AnInstanceReadsWritesAndSubscribes) {
  if (!HasLoopback(AF_INET6)) {
    GTEST_SKIP() << "this machine has no ::1";
  }
  FakeSensor sensor(AF_INET6);
  void* const handle = Create("::1", sensor.Port());
  ASSERT_TRUE(IsConnected(handle));
  EXPECT_THAT(
      recorder.LogLines(),
      testing::IsSupersetOf({"2 ZoIO::SensorManager::UpdateSensorState: System connected successfully.",
                             "3 ZoIO::ZoVyrnClient::ZoVyrnClient: Sensor  IP address: ::1"}));
  EXPECT_EQ(ValueOf(handle, "/res#/value"), "2:1");
  EXPECT_EQ(Write(handle, "/res#/value", IntegerValue(2)), 0);
  EXPECT_EQ(sensor.CountRequests("update", "/res"), 1u);
  EXPECT_EQ(Subscribe(handle, {"/res#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("startStream", "/res"), 1u);
  EXPECT_TRUE(sensor.Push(R"({"event":"stream","uri":"/res","payload":{"value":3}})"));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/res#/value", 3)));
}

TEST_F(ConnectedOverIpv6, ALinkThatIsLostIsRestored) {
  if (!HasLoopback(AF_INET6)) {
    GTEST_SKIP() << "this machine has no ::1";
  }
  FakeSensor sensor(AF_INET6);
  void* const handle = Create("::1", sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/res#/value"}), 0);
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    peer.Send(FakeSensor::Answer(request, R"("status":1,"uri":"/res","payload":{"value":4})"));
  });
  sensor.DropAll();
  EXPECT_TRUE(sensor.WaitForRequest("startStream", "/res", 2));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/res#/value", 4)));
}

}  // namespace
}  // namespace ZoTest
