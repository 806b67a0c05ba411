// What docs/protocol.md promises in its tables, row by row, over real sockets.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "tests/zosensor/serverfixture.h"
#include "tools/zosensor/wire.h"

namespace ZoSensor {
namespace {

class Protocol : public ServerFixture {
 protected:
  static constexpr const char* Resources = R"({"resources": {
    "/res": {"content": {"n": 1, "t": "x", "list": [1, 2], "none": null}, "writable": true, "integers": ["/n"]},
    "/res/below": {"content": {"v": 1}},
    "/wave": {"rate_hz": 100, "content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
    "/silent": {"stream": false, "content": {"v": 1}},
    "/empty/object": {"content": {}}, "/empty/array": {"content": []}, "/empty/null": {"content": null},
    "/echo": {"call": {"echo": true}}}})";

  void SetUp() override { Start({}, Resources); }

  static std::string RequestText(int id, const std::string& method, const std::string& uri,
                                 const std::string& payload) {
    return fmt::format(R"({{"id":{},"method":"{}","uri":{}{}}})", id, method, Quote(uri),
                       payload.empty() ? "" : ",\"payload\":" + payload);
  }
  // The answer without its id, as text.
  std::string Ask(RawClient& client, const std::string& method, const std::string& uri,
                  const std::string& payload = "") {
    const std::string text = client.Ask(RequestText(++lastId, method, uri, payload)).ToString();
    const std::string id = fmt::format(R"({{"id":{})", lastId);
    EXPECT_EQ(text.rfind(id, 0), 0U) << text;
    const std::string rest = text.substr(std::min(id.size(), text.size()));
    return "{" + (rest.starts_with(',') ? rest.substr(1) : rest);
  }
  static std::string Granted(const std::string& uri, const std::string& payload = "") {
    return fmt::format(R"({{"status":1,"uri":"{}"{}}})", uri,
                       payload.empty() ? "" : ",\"payload\":" + payload);
  }

  int lastId = 0;
};

TEST_F(Protocol, MethodsHaveTheirNamesAndNumbers) {
  const std::vector<std::string> names = {"read", "create", "update",      "delete",    "call",
                                          "sub",  "unsub",  "startStream", "stopStream"};
  RawClient client(port);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto method = MethodByName(names[i]);
    ASSERT_TRUE(method) << names[i];
    EXPECT_EQ(static_cast<std::size_t>(*method), i + 1);
    EXPECT_EQ(MethodName(*method), names[i]);
    // On the wire a method goes by its name alone.
    const ZoJson byNumber =
        client.Ask(fmt::format(R"({{"id":{},"method":{},"uri":"/res","payload":1}})", i + 1, i + 1));
    EXPECT_EQ(StatusOf(byNumber), -400) << i + 1;
  }
}

TEST_F(Protocol, EveryIdComesBackAsItWas) {
  RawClient client(port);
  for (const char* id : {"0", "1", "4294967296", "9223372036854775808", "18446744073709551615"}) {
    const ZoJson answer = client.Ask(fmt::format(R"({{"id":{},"method":"read","uri":"/silent"}})", id));
    EXPECT_EQ(answer.At("id").ToString(), id);
    EXPECT_EQ(StatusOf(answer), 1) << id;
  }
  for (const char* id : {"-1", "1.5", "null", "true", R"("1")", "[1]", R"({"a":1})"}) {
    const ZoJson answer = client.Ask(fmt::format(R"({{"id":{},"method":"read","uri":"/silent"}})", id));
    EXPECT_EQ(answer.At("id").ToString(), id);
    EXPECT_EQ(StatusOf(answer), -400) << id;
  }
}

TEST_F(Protocol, EachMethodIsGrantedWithWhatItPromises) {
  RawClient client(port);
  EXPECT_EQ(Ask(client, "read", "/silent"), Granted("/silent", R"({"v":1})"));
  EXPECT_EQ(Ask(client, "create", "/new", "[1]"), Granted("/new"));
  EXPECT_EQ(Ask(client, "update", "/res", R"({"n":2})"), Granted("/res"));
  EXPECT_EQ(Ask(client, "delete", "/new"), Granted("/new"));
  EXPECT_EQ(Ask(client, "call", "/echo", "[1]"), Granted("/echo", "[1]"));
  EXPECT_EQ(Ask(client, "sub", "/silent"), Granted("/silent"));
  EXPECT_EQ(Ask(client, "unsub", "/silent"), Granted("/silent"));
  EXPECT_EQ(Ask(client, "startStream", "/res/below"), Granted("/res/below", R"({"v":1})"));
  EXPECT_EQ(Ask(client, "stopStream", "/res/below"), Granted("/res/below"));
  EXPECT_EQ(Ask(client, "stopStream", "/res/below"), "{}");
  EXPECT_EQ(Ask(client, "stopStream", "/nowhere"), "{}");
}

struct Refused {
  int status;
  const char* method;
  const char* uri;
  const char* payload;
};
constexpr Refused Refusals[] = {{-404, "read", "/none", ""},
                                {-409, "create", "/res", "1"},
                                {-400, "create", "/a/*", "1"},
                                {-400, "create", "/new", ""},
                                {-404, "update", "/none", "1"},
                                {-404, "update", "/res", R"({"none such":1})"},
                                {-404, "update", "/res", R"({"list":{"2":1}})"},
                                {-405, "update", "/silent", R"({"v":2})"},
                                {-405, "update", "/wave", R"({"n":2})"},
                                {-422, "update", "/res", R"({"t":1})"},
                                {-422, "update", "/res", R"({"n":1.5})"},
                                {-400, "update", "/res", ""},
                                {-404, "delete", "/none", ""},
                                {-405, "delete", "/system", ""},
                                {-404, "call", "/none", "1"},
                                {-405, "call", "/res", "1"},
                                {-400, "sub", "/a*", ""},
                                {-400, "sub", "/*/a", ""},
                                {-404, "unsub", "/res", ""},
                                {-404, "startStream", "/none", ""},
                                {-405, "startStream", "/silent", ""},
                                {-405, "startStream", "/echo", ""},
                                {-405, "startStream", "/empty/object", ""},
                                {-405, "startStream", "/empty/array", ""},
                                {-405, "startStream", "/empty/null", ""},
                                {-404, "read", "/system/start", ""},
                                {-404, "read", "/system/stop", ""},
                                {-405, "call", "/", ""},
                                {-405, "call", "/system", ""}};

TEST_F(Protocol, EachRefusalHasItsStatusANullPayloadAndASentence) {
  RawClient client(port);
  for (const Refused& refused : Refusals) {
    const std::string text = Ask(client, refused.method, refused.uri, refused.payload);
    const std::string head =
        fmt::format(R"({{"status":{},"uri":"{}","payload":null,"error":")", refused.status, refused.uri);
    EXPECT_EQ(text.rfind(head, 0), 0U) << refused.method << " " << refused.payload << ": " << text;
    EXPECT_GT(text.size(), head.size() + 10) << text;
  }
}

TEST_F(Protocol, BothDoorsGiveTheSameDocuments) {
  const std::map<std::string, std::string> verbs = {
      {"read", "GET"}, {"create", "PUT"}, {"update", "PATCH"}, {"delete", "DELETE"}, {"call", "POST"}};
  RawClient client(port);
  for (const Refused& refused : Refusals) {
    const auto verb = verbs.find(refused.method);
    if (verb == verbs.end() || refused.status == -400) {
      continue;  // a session's own methods; and each door has its own words for what is malformed
    }
    const HttpAnswer answer = Rest(verb->second, refused.uri, refused.payload);
    EXPECT_EQ(static_cast<int>(answer.status), -refused.status) << refused.method << " " << refused.uri;
    EXPECT_EQ(answer.body, Ask(client, refused.method, refused.uri, refused.payload));
    EXPECT_EQ(answer.headers.at("content-type"), "application/json");
  }
  EXPECT_EQ(Rest("PUT", "/new", "{}").body, Granted("/new"));
  EXPECT_EQ(Rest("PATCH", "/res", R"({"n":3})").body, Granted("/res"));
  EXPECT_EQ(Rest("GET", "/silent").body, Ask(client, "read", "/silent"));
  EXPECT_EQ(Rest("POST", "/echo", R"({"a":[1]})").body, Granted("/echo", R"({"a":[1]})"));
  EXPECT_EQ(Rest("POST", "/echo").body, Granted("/echo", "null"));
  EXPECT_EQ(Rest("DELETE", "/new").body, Granted("/new"));
}

TEST_F(Protocol, ContentsOfEveryKindAreCreatedCalledWithAndReadBack) {
  RawClient client(port);
  for (const char* content :
       {"null", "true", "0", "-9223372036854775808", "18446744073709551615", "0.1", R"("")",
        R"("\u0000\u20ac")", "[]", "{}", R"([null,[{"a":[1]}]])", R"({"":{"a/b":1,"~":2}})"}) {
    const std::string printed = ZoJson::ParseString(content).ToString();
    EXPECT_EQ(Ask(client, "create", "/kind", content), Granted("/kind"));
    EXPECT_EQ(Ask(client, "read", "/kind"), Granted("/kind", printed));
    EXPECT_EQ(Ask(client, "call", "/echo", content), Granted("/echo", printed));
    EXPECT_EQ(Ask(client, "delete", "/kind"), Granted("/kind"));
  }
}

TEST_F(Protocol, UpdateIsAllOrNothingAndOnlyWhatIsDoneIsNotified) {
  RawClient client(port);
  Ask(client, "sub", "/res");
  client.NextPush();
  EXPECT_EQ(Ask(client, "update", "/res", R"({"n":5,"t":"y","list":{"0":9,"7":9}})").find(R"("status":-404)"),
            1U);
  EXPECT_EQ(Ask(client, "read", "/res"), Granted("/res", R"({"n":1,"t":"x","list":[1,2],"none":null})"));
  EXPECT_EQ(Ask(client, "update", "/res", R"({"n":5,"t":"y","list":{"0":9},"none":[]})"), Granted("/res"));
  // Had the refused one been notified, that would come first.
  EXPECT_EQ(client.NextPush().ToString(),
            R"({"event":"notification","uri":"/res","payload":{"n":5,"t":"y","list":[9,2],"none":[]}})");
}

TEST_F(Protocol, SystemTellsItsStateAndFollowsItsMethods) {
  RawClient client(port);
  RawClient watcher(port);
  Ask(watcher, "sub", "/system");
  EXPECT_EQ(watcher.NextPush().At("payload/state").ToString(), "1");
  EXPECT_EQ(Ask(client, "call", "/system/stop"), Granted("/system/stop", R"({"state":0})"));
  EXPECT_EQ(watcher.NextPush().At("payload/state").ToString(), "0");
  const ZoJson system = ZoJson::ParseString(Ask(client, "read", "/system")).At("payload");
  EXPECT_EQ(system.At("state").ToString(), "0");
  EXPECT_TRUE(system.At("name").IsString() && system.At("version").IsString());
  EXPECT_TRUE(system.At("uptime_ms").IsUnsigned());
  EXPECT_EQ(system.Size(), 4U);
  EXPECT_EQ(Ask(client, "call", "/system/start"), Granted("/system/start", R"({"state":1})"));
  EXPECT_EQ(watcher.NextPush().At("payload/state").ToString(), "1");
  EXPECT_EQ(Ask(watcher, "startStream", "/system").find(R"("status":1)"), 1U);
  const ZoJson push = watcher.NextPush();
  EXPECT_EQ(push.At("event").ToString() + push.At("uri").ToString(), R"("stream""/system")");
}

TEST_F(Protocol, RootListsAllUrisSorted) {
  RawClient client(port);
  Ask(client, "create", "/a", "1");
  EXPECT_EQ(
      Ask(client, "read", "/"),
      Granted("/", R"({"resources":["/","/a","/echo","/empty/array","/empty/null","/empty/object","/faults",)"
                   R"("/faults/cut","/faults/reset","/faults/stall","/res","/res/below","/silent","/system",)"
                   R"("/system/start","/system/stop","/wave"]})"));
}

TEST_F(Protocol, GoodByeIsAnsweredInKind) {
  RawClient client(port);
  EXPECT_TRUE(client.Close());
  EXPECT_EQ(client.CloseCode(), 1000U);
}

TEST_F(Protocol, MessageMayComeInSeveralFramesWithAPingBetween) {
  RawClient client(port);
  // Masked with zeros, so that the texts stay legible.
  const auto frame = [](char first, const std::string& text) {
    return std::string{first, static_cast<char>(0x80 | text.size()), 0, 0, 0, 0} + text;
  };
  ASSERT_TRUE(client.SendRaw(frame('\x01', R"({"id":1,"method":)") + frame('\x89', "there?") +
                             frame('\x00', R"("read",)") + frame('\x80', R"("uri":"/silent"})")));
  const auto text = client.Receive();
  ASSERT_TRUE(text);
  EXPECT_EQ(*text, R"({"id":1,"status":1,"uri":"/silent","payload":{"v":1}})");
  EXPECT_TRUE(client.PongSeen());
}

}  // namespace
}  // namespace ZoSensor
