// The named methods.
#include "zoiohandler/vyrnclient/method.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/vyrnclient/feedtest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Methods : public FeedTest {
 protected:
  // The response to a call that must succeed.
  ZoJson Response(const std::string& name, const std::string& arguments) {
    recorder.Clear();
    EXPECT_TRUE(method.Call(&token, name, arguments));
    const Recorder::Entries results = recorder.Results();
    EXPECT_EQ(results.size(), 1u);
    return results.empty() ? ZoJson() : ZoJson::ParseString(results[0].response);
  }

  // What its "data" holds, parsed.
  ZoJson Data(const std::string& name, const std::string& arguments) {
    return ZoJson::ParseString(Response(name, arguments).At("/data").Get<std::string>());
  }

  void ExpectNoResponse(const std::string& name, const std::string& arguments) {
    recorder.Clear();
    sensor->ClearCalls();
    EXPECT_FALSE(method.Call(&token, name, arguments)) << name << " " << arguments;
    EXPECT_EQ(recorder.Size(), 0u) << name << " " << arguments;
    EXPECT_THAT(sensor->CallTexts(), IsEmpty()) << name << " " << arguments;
  }

  const int token = 0;
  ZoIO::Method method{parameters, sensor};
};

TEST_F(Methods, ResponseIsIdErrcodeAndDataInThisOrder) {
  sensor->SetResource("/r", R"({"a":1})");
  ASSERT_TRUE(method.Call(&token, "Read", R"({"id":7,"uri":"/r"})"));
  const Recorder::Entries results = recorder.Results();
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].response, R"({"id":7,"errcode":0,"data":"{\"status\":1,\"payload\":{\"a\":1}}"})");
}

TEST_F(Methods, TokenIsHandedBackUntouched) {
  method.Call(&token, "RunSensor", "{}");
  method.Call(nullptr, "RunSensor", "{}");
  const Recorder::Entries results = recorder.Results();
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results[0].token, &token);
  EXPECT_EQ(results[1].token, nullptr);
}

TEST_F(Methods, PrimitiveIdIsEchoed) {
  for (const char* id : {"7", "-7", "0.5", "\"text\"", "true", "false", "null", "18446744073709551615"}) {
    EXPECT_EQ(Response("RunSensor", "{\"id\":" + std::string(id) + "}").At("/id"), ZoJson(id)) << id;
  }
}

TEST_F(Methods, AbsentIdIsNull) {
  const ZoJson response = Response("RunSensor", "{}");
  ASSERT_TRUE(response.HasKey("/id"));
  EXPECT_TRUE(response.At("/id").IsNull());
}

TEST_F(Methods, ObjectOrArrayAsIdIsNull) {
  for (const char* id : {"{}", "[]", R"({"a":1})", "[1]"}) {
    EXPECT_TRUE(Response("RunSensor", "{\"id\":" + std::string(id) + "}").At("/id").IsNull()) << id;
  }
}

TEST_F(Methods, RunSensorStartsAnIdleSensor) {
  EXPECT_EQ(Data("RunSensor", "{}"), ZoJson(R"({"result":"OK"})"));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Start "));
}

TEST_F(Methods, RunSensorLeavesARunningSensor) {
  Data("RunSensor", "{}");
  sensor->ClearCalls();
  EXPECT_EQ(Data("RunSensor", "{}"), ZoJson(R"({"result":"Already running."})"));
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(Methods, StopSensorStopsARunningSensor) {
  sensor->SetRunning(true);
  EXPECT_EQ(Data("StopSensor", "{}"), ZoJson(R"({"result":"OK"})"));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Stop "));
}

TEST_F(Methods, StopSensorLeavesAnIdleSensor) {
  EXPECT_EQ(Data("StopSensor", "{}"), ZoJson(R"({"result":"Not running"})"));
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(Methods, ReadAndDeleteTakeTheUri) {
  sensor->SetResource("/r", "5");
  EXPECT_EQ(Data("Read", R"({"uri":"/r"})"), ZoJson(R"({"status":1,"payload":5})"));
  EXPECT_EQ(Data("Delete", R"({"uri":"/r"})"), ZoJson(R"({"status":1})"));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Read /r", "Delete /r"));
  EXPECT_TRUE(sensor->Calls()[0].logFailure);
  EXPECT_TRUE(sensor->Calls()[1].logFailure);
}

TEST_F(Methods, CreateUpdateAndCallTakeTheUriAndThePayloadAsText) {
  for (const char* name : {"Create", "Update", "Call"}) {
    SCOPED_TRACE(name);
    sensor->ClearCalls();
    EXPECT_EQ(Data(name, R"({"uri":"/r","args":"{\"a\":[1,2]}"})"), ZoJson(R"({"status":1})"));
    const auto calls = sensor->Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].Text(), name + std::string(" /r"));
    EXPECT_EQ(calls[0].payload, ZoJson(R"({"a":[1,2]})"));
    EXPECT_TRUE(calls[0].logFailure);
  }
}

TEST_F(Methods, SensorsRefusalIsHandedOnWithErrcode0) {
  const ZoJson response = Response("Read", R"({"uri":"/unknown"})");
  EXPECT_EQ(response.At("/errcode"), ZoJson::Of(0));
  EXPECT_EQ(response.At("/data").Get<std::string>(), R"({"status":-404,"payload":null})");
}

TEST_F(Methods, EmptyResponseIsHandedOnAsNull) {
  sensor->SetScript("Read", [](const auto&) { return ZoJson(); });
  const ZoJson response = Response("Read", R"({"uri":"/r"})");
  EXPECT_EQ(response.At("/data"), ZoJson::Of("null"));
  EXPECT_EQ(response.At("/errcode"), ZoJson::Of(0));
}

TEST_F(Methods, UnknownNameGetsNoResponse) {
  for (const char* name : {"", "call", "CALL", "Call ", "read", "SensorCall", "Run"}) {
    ExpectNoResponse(name, R"({"uri":"/r","args":"1"})");
  }
}

TEST_F(Methods, ArgumentsThatAreNoObjectGetNoResponse) {
  for (const char* arguments : {"[]", "5", "null", "\"{}\"", "true", "[{}]"}) {
    ExpectNoResponse("RunSensor", arguments);
  }
}

TEST_F(Methods, ArgumentsThatAreNoJsonGetNoResponse) {
  for (const char* arguments : {"", " ", "{", "{\"uri\":}", "{} {}", "{'uri':'/r'}"}) {
    ExpectNoResponse("Read", arguments);
  }
}

// Each fault inside a handler: the text of the exception, as a JSON string, and errcode 0.
void ExpectFault(const ZoJson& response) {
  EXPECT_EQ(response.At("/errcode"), ZoJson::Of(0));
  const ZoJson data = ZoJson::ParseString(response.At("/data").Get<std::string>());
  EXPECT_TRUE(data.IsString());
  EXPECT_NE(data.Get<std::string>(), "");
}

TEST_F(Methods, MissingUriIsAFaultInsideTheHandler) {
  for (const char* name : {"Read", "Delete"}) {
    ExpectFault(Response(name, "{}"));
    EXPECT_THAT(recorder.LogLines(), IsEmpty()) << name;
  }
  for (const char* name : {"Create", "Update", "Call"}) {
    ExpectFault(Response(name, R"({"args":"1"})"));
  }
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(Methods, UriThatIsNoTextIsAFaultInsideTheHandler) {
  for (const char* name : {"Read", "Delete", "Create", "Update", "Call"}) {
    ExpectFault(Response(name, R"({"uri":["/r"],"args":"1"})"));
  }
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(Methods, MissingBadOrNestedArgsAreAFaultAndNothingIsSent) {
  for (const char* name : {"Create", "Update", "Call"}) {
    for (const char* arguments : {R"({"uri":"/r"})", R"({"uri":"/r","args":"{bad"})",
                                  R"({"uri":"/r","args":{"a":1}})", R"({"uri":"/r","args":""})"}) {
      SCOPED_TRACE(std::string(name) + " " + arguments);
      ExpectFault(Response(name, arguments));
    }
  }
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

// The text of the error that body raises.
template <typename Body>
std::string TextOf(const Body& body) {
  try {
    body();
  } catch (const ZoJsonError& error) {
    return error.what();
  }
  return "no error";
}

TEST_F(Methods, ParsersTextIsWhatTheHostSees) {
  const std::string expected = TextOf([] { ZoJson::ParseString("{bad"); });
  EXPECT_EQ(Data("Create", R"({"uri":"/r","args":"{bad"})"), ZoJson::Of(expected));
}

TEST_F(Methods, ArgsAreReadBeforeTheUri) {
  struct Example {
    const char* arguments;
    std::string fault;  // the one of "/args"; the uri is at fault each time, too
  };
  const Example examples[] = {
      {"{}", TextOf([] { ZoJson("{}").At("/args"); })},
      {R"({"uri":["/r"]})", TextOf([] { ZoJson("{}").At("/args"); })},
      {R"({"args":[1]})", TextOf([] { ZoJson("[1]").Get<std::string>(); })},
      {R"({"args":"{bad"})", TextOf([] { ZoJson::ParseString("{bad"); })},
      {R"({"uri":["/r"],"args":"{bad"})", TextOf([] { ZoJson::ParseString("{bad"); })}};
  for (const char* name : {"Create", "Update", "Call"}) {
    for (const Example& example : examples) {
      SCOPED_TRACE(std::string(name) + " " + example.arguments);
      EXPECT_EQ(Data(name, example.arguments), ZoJson::Of(example.fault));
    }
  }
  EXPECT_EQ(Data("Create", R"({"args":"1"})"), ZoJson::Of(TextOf([] { ZoJson("{}").At("/uri"); })));
  EXPECT_THAT(sensor->CallTexts(), IsEmpty());
}

TEST_F(Methods, FaultOfCallAloneIsLogged) {
  for (const char* verb : {"Call", "Create", "Update", "Read", "Delete"}) {
    sensor->SetScript(verb, [](const auto&) -> ZoJson { throw std::runtime_error("broken \"thing\""); });
  }
  for (const char* name : {"Create", "Update", "Read", "Delete"}) {
    EXPECT_EQ(Data(name, R"({"uri":"/r","args":"1"})"), ZoJson::Of("broken \"thing\"")) << name;
    EXPECT_THAT(recorder.LogLines(), IsEmpty()) << name;
  }
  EXPECT_EQ(Data("Call", R"({"uri":"/r","args":"1"})"), ZoJson::Of("broken \"thing\""));
  EXPECT_THAT(recorder.LogLines(), ElementsAre("5 ZoIO::Method::SensorCall: broken \"thing\""));
}

TEST_F(Methods, SuccessTellsNothing) {
  for (const char* name : {"RunSensor", "StopSensor", "Read", "Delete", "Create", "Update", "Call"}) {
    Response(name, R"({"uri":"/r","args":"1"})");
    EXPECT_THAT(recorder.LogLines(), IsEmpty()) << name;
  }
}

TEST_F(Methods, ExceptionOfTheHostsCallbackIsSwallowed) {
  recorder.OnResult([](const Entry&) { throw std::runtime_error("broken"); });
  EXPECT_FALSE(method.Call(&token, "RunSensor", "{}"));
}

TEST_F(Methods, WhateverTheHostsCallbackThrowsIsSwallowed) {
  recorder.OnResult([](const Entry&) { throw 7; });
  EXPECT_FALSE(method.Call(&token, "RunSensor", "{}"));
  EXPECT_EQ(recorder.Results().size(), 1u);
}

TEST_F(Methods, SensorThatCannotBeStartedOrStoppedGetsNoResponse) {
  for (const char* verb : {"Start", "Stop"}) {
    sensor->SetScript(verb, [](const auto&) -> ZoJson { throw std::runtime_error("broken"); });
  }
  EXPECT_FALSE(method.Call(&token, "RunSensor", "{}"));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Start "));
  sensor->SetRunning(true);
  EXPECT_FALSE(method.Call(&token, "StopSensor", "{}"));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Start ", "Stop "));
  EXPECT_EQ(recorder.Size(), 0u);
}

// A sensor that cannot say whether it runs.
class UnknownSensor : public FakeSensorManager {
 public:
  using FakeSensorManager::FakeSensorManager;
  bool IsRunning() override { throw std::runtime_error("broken"); }
};

TEST_F(Methods, SensorThatCannotSayWhetherItRunsGetsNoResponse) {
  const auto unknown = std::make_shared<UnknownSensor>(logger);
  ZoIO::Method other(parameters, unknown);
  EXPECT_FALSE(other.Call(&token, "RunSensor", "{}"));
  EXPECT_FALSE(other.Call(&token, "StopSensor", "{}"));
  EXPECT_THAT(unknown->CallTexts(), IsEmpty());
  EXPECT_EQ(recorder.Size(), 0u);
}

// A sensor that is offline: it takes both calls and does nothing.
class OfflineSensor : public FakeSensorManager {
 public:
  using FakeSensorManager::FakeSensorManager;
  void Start() override { ++starts; }
  void Stop() override { ++stops; }

  int starts = 0;
  int stops = 0;
};

TEST_F(Methods, OkDoesNotProveThatTheSensorObeyed) {
  const auto offline = std::make_shared<OfflineSensor>(logger);
  ZoIO::Method other(parameters, offline);
  for (const bool running : {false, true}) {
    const char* const name = running ? "StopSensor" : "RunSensor";
    offline->SetRunning(running);
    for (int i = 0; i < 2; ++i) {
      recorder.Clear();
      EXPECT_TRUE(other.Call(&token, name, "{}"));
      ASSERT_EQ(recorder.Results().size(), 1u);
      EXPECT_EQ(recorder.Results()[0].response, R"({"id":null,"errcode":0,"data":"{\"result\":\"OK\"}"})");
      EXPECT_EQ(offline->IsRunning(), running);
    }
  }
  EXPECT_EQ(offline->starts, 2);
  EXPECT_EQ(offline->stops, 2);
}

TEST_F(Methods, HostWithoutCallbackGetsNoResponseButTheMethodRuns) {
  auto silent = std::make_shared<ioHandlerParam>(*parameters);
  silent->methodResult = nullptr;
  ZoIO::Method other(silent, sensor);
  EXPECT_TRUE(other.Call(&token, "RunSensor", "{}"));
  EXPECT_THAT(sensor->CallTexts(), ElementsAre("Start "));
  EXPECT_EQ(recorder.Size(), 0u);
}

}  // namespace
}  // namespace ZoTest
