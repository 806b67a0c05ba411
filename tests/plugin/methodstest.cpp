// CallMethod on the simulator: every method, every failure, and the response texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::StartsWith;

class Methods : public PluginTest {
 protected:
  Methods() : handle(Create()) { recorder.Clear(); }

  // The one response that a call must have brought.
  std::string ResponseTo(const std::string& method, const std::string& arguments) {
    recorder.Clear();
    EXPECT_EQ(Call(handle, method, arguments), 0) << method << " " << arguments;
    const auto results = recorder.Results();
    EXPECT_EQ(results.size(), 1u) << method << " " << arguments;
    return results.empty() ? "none" : results[0].response;
  }

  void ExpectRefused(const std::string& method, const std::string& arguments) {
    recorder.Clear();
    EXPECT_EQ(Call(handle, method, arguments), 1) << method << " " << arguments;
    EXPECT_TRUE(recorder.Results().empty()) << method << " " << arguments;
    EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Call: Calling method " + method));
  }

  void* handle;
};

std::string Response(const std::string& id, const std::string& data) {
  return "{\"id\":" + id + ",\"errcode\":0,\"data\":\"" + data + "\"}";
}

TEST_F(Methods, RunAndStopTellWhetherTheyHadAnythingToDo) {
  EXPECT_EQ(ResponseTo("StopSensor", "{}"), Response("null", R"({\"result\":\"Not running\"})"));
  EXPECT_EQ(ResponseTo("RunSensor", "{}"), Response("null", R"({\"result\":\"OK\"})"));
  EXPECT_EQ(ResponseTo("RunSensor", "{}"), Response("null", R"({\"result\":\"Already running.\"})"));
  EXPECT_EQ(ResponseTo("StopSensor", "{}"), Response("null", R"({\"result\":\"OK\"})"));
  EXPECT_EQ(ResponseTo("StopSensor", "{}"), Response("null", R"({\"result\":\"Not running\"})"));
  EXPECT_EQ(ResponseTo("RunSensor", "{}"), Response("null", R"({\"result\":\"OK\"})"));
}

TEST_F(Methods, RunningIsEachInstancesOwn) {
  EXPECT_EQ(ResponseTo("RunSensor", "{}"), Response("null", R"({\"result\":\"OK\"})"));
  Recorder other;
  void* second = Create("simulator", 0, other.Param());
  EXPECT_EQ(Call(second, "StopSensor", "{}"), 0);
  ASSERT_EQ(other.Results().size(), 1u);
  EXPECT_EQ(other.Results()[0].response, Response("null", R"({\"result\":\"Not running\"})"));
  EXPECT_EQ(Destroy(second), 0);
}

TEST_F(Methods, ReadGivesTheUriAsPayload) {
  EXPECT_EQ(ResponseTo("Read", R"({"uri":"res"})"), Response("null", R"({\"payload\":\"res\"})"));
  EXPECT_EQ(ResponseTo("Read", R"({"uri":"/res/sub"})"), Response("null", R"({\"payload\":\"/res/sub\"})"));
  EXPECT_EQ(ResponseTo("Read", R"({"uri":""})"), Response("null", R"({\"payload\":\"\"})"));
}

TEST_F(Methods, OtherResourceMethodsGiveAnEmptyDocument) {
  for (const char* method : {"Create", "Update", "Delete", "Call"}) {
    EXPECT_EQ(ResponseTo(method, R"({"uri":"res","args":"{\"a\":1}"})"), Response("null", "null")) << method;
  }
}

TEST_F(Methods, ArgumentsThatAreNotNeededAreNotLookedAt) {
  EXPECT_EQ(ResponseTo("Read", R"({"uri":"res","args":5,"more":[]})"),
            Response("null", R"({\"payload\":\"res\"})"));
  EXPECT_EQ(ResponseTo("Delete", R"({"uri":"res","args":"no json"})"), Response("null", "null"));
  EXPECT_EQ(ResponseTo("RunSensor", R"({"uri":5,"args":5})"), Response("null", R"({\"result\":\"OK\"})"));
}

TEST_F(Methods, PrimitiveIdsAreEchoed) {
  for (const char* id :
       {"0", "5", "-1", "9223372036854775807", "-9223372036854775808", "18446744073709551615", "1.5", "1.0",
        "0.1", "true", "false", "null", "\"\"", "\"abc\"", "\"a\\\"b\""}) {
    EXPECT_EQ(ResponseTo("RunSensor", std::string("{\"id\":") + id + "}").substr(0, 6 + std::strlen(id) + 1),
              std::string("{\"id\":") + id + ",");
  }
}

TEST_F(Methods, OtherIdsAreNull) {
  for (const char* id : {"{}", "[]", "{\"a\":1}", "[1]"}) {
    EXPECT_EQ(ResponseTo("Create", std::string("{\"uri\":\"r\",\"args\":\"1\",\"id\":") + id + "}"),
              Response("null", "null"));
  }
  EXPECT_EQ(ResponseTo("Delete", R"({"uri":"r","ID":5})"), Response("null", "null"));
}

TEST_F(Methods, TheLastOfTwoIdsCounts) {
  EXPECT_EQ(ResponseTo("Delete", R"({"id":1,"uri":"r","id":2})"), Response("2", "null"));
}

TEST_F(Methods, UnknownNamesAreRefused) {
  for (const char* method :
       {"", "call", "CALL", "Call ", " Call", "SensorCall", "runsensor", "Subscribe", "Stream"}) {
    ExpectRefused(method, R"({"uri":"res","args":"{}"})");
  }
}

TEST_F(Methods, ArgumentsThatAreNoObjectAreRefused) {
  for (const char* arguments : {"", " ", "[]", "5", "null", "true", "\"text\"", "{", "{}}", "{'a':1}",
                                "{\"a\":}", "{\"a\":1,}", "\xff", "{\"a\":\"\xff\"}", "{\"uri\":\"res\"} x",
                                "{\"id\":1e999}", "{\"id\":01}", "\xef\xbb\xbf{}"}) {
    ExpectRefused("RunSensor", arguments);
  }
  // None of them started it.
  EXPECT_EQ(ResponseTo("StopSensor", "{}"), Response("null", R"({\"result\":\"Not running\"})"));
}

TEST_F(Methods, DeepArgumentsAreRefusedOrAnsweredButDoNoHarm) {
  std::string deep = "{\"uri\":\"r\",\"args\":\"1\",\"id\":";
  deep += std::string(100'000, '[') + std::string(100'000, ']') + "}";
  ExpectRefused("Create", deep);
  EXPECT_EQ(ResponseTo("Create", R"({"uri":"r","args":"1"})"), Response("null", "null"));
}

// A fault inside a handler is told in "data", as a JSON string; everything else looks like success.
class FaultyArguments : public Methods,
                        public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(FaultyArguments, AreToldInTheData) {
  const auto& [method, arguments] = GetParam();
  const std::string response = ResponseTo(method, arguments);
  EXPECT_THAT(response, StartsWith("{\"id\":7,\"errcode\":0,\"data\":\"\\\""));
  EXPECT_THAT(response, EndsWith("\\\"\"}"));
  EXPECT_GT(response.size(), Response("7", "\\\"\\\"").size()) << "the text of the error is empty";
  // "Call" alone logs it too.
  const auto logs = recorder.Logs();
  const bool isCall = std::string(method) == "Call";
  ASSERT_EQ(logs.size(), isCall ? 2u : 1u);
  if (isCall) {
    EXPECT_EQ(logs[1].level, 5);
    EXPECT_EQ(logs[1].function, "ZoIO::Method::SensorCall");
    EXPECT_FALSE(logs[1].message.empty());
    if (logs[1].message.find_first_of("\"\\") == std::string::npos) {
      EXPECT_EQ(response, Response("7", "\\\"" + logs[1].message + "\\\""));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, FaultyArguments,
    ::testing::Values(
        std::pair{"Read", R"({"id":7})"}, std::pair{"Read", R"({"id":7,"uri":5})"},
        std::pair{"Read", R"({"id":7,"uri":null})"}, std::pair{"Read", R"({"id":7,"uri":["a"]})"},
        std::pair{"Delete", R"({"id":7})"}, std::pair{"Delete", R"({"id":7,"uri":{}})"},
        std::pair{"Create", R"({"id":7,"uri":"r"})"}, std::pair{"Create", R"({"id":7,"args":"1"})"},
        std::pair{"Create", R"({"id":7,"uri":"r","args":"no json"})"},
        std::pair{"Create", R"({"id":7,"uri":"r","args":""})"},
        std::pair{"Create", R"({"id":7,"uri":"r","args":{"nested":1}})"},
        std::pair{"Update", R"({"id":7,"uri":"r","args":"{"})"},
        std::pair{"Update", R"({"id":7,"uri":"r","args":5})"}, std::pair{"Update", R"({"id":7})"},
        std::pair{"Call", R"({"id":7})"}, std::pair{"Call", R"({"id":7,"uri":"r","args":"["})"},
        std::pair{"Call", R"({"id":7,"uri":5,"args":"1"})"}));

TEST_F(Methods, TokenIsHandedBackUntouchedOnTheCallersThread) {
  const char guarded = 'x';
  for (const void* token :
       {static_cast<const void*>(&guarded), reinterpret_cast<const void*>(std::uintptr_t{1}),
        reinterpret_cast<const void*>(~std::uintptr_t{0}), static_cast<const void*>(nullptr)}) {
    recorder.Clear();
    EXPECT_EQ(plugin.callMethod(token, &guarded, "RunSensor", "{}", handle), 0);
    const auto results = recorder.Results();
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].token, token);
    EXPECT_EQ(results[0].thread, static_cast<std::uint64_t>(::syscall(SYS_gettid)));
  }
}

TEST_F(Methods, TheResponseComesAfterTheLogLine) {
  EXPECT_EQ(Call(handle, "RunSensor", "{}"), 0);
  const auto all = recorder.All();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].kind, Entry::Kind::Log);
  EXPECT_EQ(all[1].kind, Entry::Kind::Result);
}

TEST_F(Methods, AFaultBesideTheUriTouchesNoResource) {
  Subscribe(handle, {"res#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 2)));
  recorder.Clear();
  EXPECT_EQ(Call(handle, "Update", R"({"uri":"res","args":"{"})"), 0);
  EXPECT_EQ(Call(handle, "Create", R"({"uri":"res","args":"{"})"), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 4)));
  EXPECT_EQ(recorder.Count(IsInteger("res#/int", 0)), 0u);
}

TEST_F(Methods, LongArgumentsAndResponsesPass) {
  const std::string uri(256 * 1024, 'u');
  EXPECT_EQ(ResponseTo("Read", "{\"uri\":\"" + uri + "\"}"),
            Response("null", R"({\"payload\":\")" + uri + R"(\"})"));
}

}  // namespace
}  // namespace ZoTest
