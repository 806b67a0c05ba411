// The session and the REST door over real sockets.
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "tests/zosensor/serverfixture.h"

namespace ZoSensor {
namespace {

using namespace std::chrono_literals;
using Session = ServerFixture;
using RestOverSockets = ServerFixture;

TEST_F(Session, NamesTheSubprotocolWhenItIsOffered) {
  Start();
  RawClient client(port);
  EXPECT_EQ(client.HandshakeStatus(), 101U);
  EXPECT_EQ(client.NamedProtocol(), "vyrn.v1.json");
  SessionWishes several;
  several.protocol = "other, vyrn.v1.json";
  EXPECT_EQ(RawClient(port, several).NamedProtocol(), "vyrn.v1.json");
  SessionWishes none;
  none.protocol = "";
  RawClient plain(port, none);
  EXPECT_EQ(plain.HandshakeStatus(), 101U);
  EXPECT_EQ(plain.NamedProtocol(), "");
}

TEST_F(Session, FindsTheSubprotocolOnAnyLineOfTheOffer) {
  Start();
  SessionWishes wishes;
  wishes.protocol = "other";
  wishes.moreProtocols = "another, vyrn.v1.json";
  RawClient client(port, wishes);
  EXPECT_EQ(client.HandshakeStatus(), 101U);
  EXPECT_EQ(client.NamedProtocol(), "vyrn.v1.json");
}

TEST_F(Session, DoesNotTakeUpTheOfferToCompress) {
  Start();
  SessionWishes wishes;
  wishes.compression = true;
  RawClient client(port, wishes);
  EXPECT_EQ(client.HandshakeStatus(), 101U);
  EXPECT_EQ(client.NamedExtensions(), "");
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":1,"method":"read","uri":"/res"})")), 1);
}

TEST_F(Session, StreamsAndSubscriptionsEndWithIt) {
  Start();
  {
    RawClient client(port);
    EXPECT_EQ(StatusOf(client.Ask(R"({"id":1,"method":"startStream","uri":"/wave"})")), 1);
    EXPECT_EQ(StatusOf(client.Ask(R"({"id":2,"method":"sub","uri":"/res"})")), 1);
    EXPECT_TRUE(client.Close());
  }
  RawClient next(port);
  EXPECT_EQ(next.Ask(R"({"id":1,"method":"stopStream","uri":"/wave"})").ToString(), R"({"id":1})");
  EXPECT_EQ(StatusOf(next.Ask(R"({"id":2,"method":"unsub","uri":"/res"})")), -404);
  // Neither the change nor a sample reaches the new session: what comes next is the answer.
  EXPECT_EQ(StatusOf(next.Ask(R"({"id":3,"method":"update","uri":"/res","payload":{"v":2}})")), 1);
  ASSERT_TRUE(next.Send(R"({"id":4,"method":"sub","uri":"/echo"})"));
  EXPECT_EQ(next.NextPush().ToString(), R"({"id":4,"status":1,"uri":"/echo"})");
}

TEST_F(Session, RefusesOtherTargetsAndSubprotocols) {
  Start();
  SessionWishes elsewhere;
  elsewhere.target = "/vyrn/v2";
  EXPECT_EQ(RawClient(port, elsewhere).HandshakeStatus(), 404U);
  SessionWishes foreign;
  foreign.protocol = "vyrn.v2.json";
  EXPECT_EQ(RawClient(port, foreign).HandshakeStatus(), 400U);
  EXPECT_EQ(AskHttp(port, "GET", "/vyrn/v1").status, 426U);
}

TEST_F(Session, IsOpenedByATargetThatIsAWholeUrl) {
  Start();
  SessionWishes wishes;
  wishes.target = fmt::format("http://127.0.0.1:{}/vyrn/v1", port);
  EXPECT_EQ(RawClient(port, wishes).HandshakeStatus(), 101U);
  wishes.target = "/%76yrn/v1?x";
  EXPECT_EQ(RawClient(port, wishes).HandshakeStatus(), 101U);
  wishes.target = "http://evil.example/vyrn/v1";
  EXPECT_EQ(RawClient(port, wishes).HandshakeStatus(), 403U);
  EXPECT_EQ(AskHttp(port, "GET", "http://127.0.0.1/vyrn/v1").status, 426U);
}

TEST_F(Session, OfItsOwnPageIsServedWhereItListensForBothFamilies) {
  options.address = "::";
  Start();
  SessionWishes wishes;
  wishes.origin = fmt::format("http://127.0.0.1:{}", port);
  EXPECT_EQ(RawClient(port, wishes).HandshakeStatus(), 101U);
  wishes.origin = fmt::format("http://10.0.0.7:{}", port);
  EXPECT_EQ(RawClient(port, wishes).HandshakeStatus(), 403U);
}

TEST_F(Session, ServesAllNineMethods) {
  Start();
  RawClient client(port);
  EXPECT_EQ(client.Ask(R"({"id":1,"method":"read","uri":"/res"})").ToString(),
            R"({"id":1,"status":1,"uri":"/res","payload":{"v":1}})");
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":2,"method":"create","uri":"new","payload":[1]})")), 1);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":3,"method":"create","uri":"/new","payload":[1]})")), -409);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":4,"method":"update","uri":"/res","payload":{"v":2}})")), 1);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":5,"method":"update","uri":"/res","payload":{"v":"x"}})")), -422);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":6,"method":"update","uri":"/wave","payload":{"n":1}})")), -405);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":7,"method":"delete","uri":"/new"})")), 1);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":8,"method":"delete","uri":"/new"})")), -404);
  EXPECT_EQ(client.Ask(R"({"id":9,"method":"call","uri":"/echo","payload":"x"})").At("payload").ToString(),
            R"("x")");
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":10,"method":"sub","uri":"/res"})")), 1);
  EXPECT_EQ(client.NextPush().ToString(), R"({"event":"notification","uri":"/res","payload":{"v":2}})");
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":11,"method":"unsub","uri":"/res"})")), 1);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":12,"method":"startStream","uri":"/silent"})")), -405);
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":13,"method":"startStream","uri":"wave"})")), 1);
  const ZoJson push = client.NextPush();
  EXPECT_EQ(push.At("event").ToString(), R"("stream")");
  EXPECT_EQ(push.At("uri").ToString(), R"("wave")");
  EXPECT_EQ(client.Ask(R"({"id":14,"method":"stopStream","uri":"/wave"})").ToString(), R"({"id":14})");
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":15,"method":"stopStream","uri":"wave"})")), 1);
}

TEST_F(Session, StreamsRiseAtTheirRate) {
  Start();
  RawClient client(port);
  client.Ask(R"({"id":1,"method":"startStream","uri":"/wave"})");
  int last = -1;
  for (int i = 0; i < 50; ++i) {
    const int value = client.NextPush().At("payload/n").Get<int>();
    EXPECT_GT(value, last);
    last = value;
  }
  // 100 a second: fifty pushes take at least half a second's worth of samples.
  EXPECT_GE(last, 49);
}

TEST_F(Session, ChangesByOthersAreNotified) {
  Start();
  RawClient watcher(port);
  RawClient writer(port);
  watcher.Ask(R"({"id":1,"method":"sub","uri":"res/*"})");
  watcher.NextPush();
  writer.Ask(R"({"id":1,"method":"update","uri":"/res","payload":{"v":7}})");
  EXPECT_EQ(watcher.NextPush().ToString(), R"({"event":"notification","uri":"res","payload":{"v":7}})");
  EXPECT_EQ(Rest("PATCH", "/res", R"({"v":8})").status, 200U);
  EXPECT_EQ(watcher.NextPush().At("payload/v").ToString(), "8");
  EXPECT_EQ(Rest("DELETE", "/res").status, 200U);
  EXPECT_TRUE(watcher.NextPush().At("payload").IsNull());
}

TEST_F(Session, PipelinedRequestsAreAllAnswered) {
  Start();
  RawClient client(port);
  constexpr int Count = 1000;
  for (int i = 1; i <= Count; ++i) {
    ASSERT_TRUE(client.Send(fmt::format(R"({{"id":{},"method":"read","uri":"/res"}})", i)));
  }
  std::set<int> ids;
  while (ids.size() < Count) {
    const auto text = client.Receive();
    ASSERT_TRUE(text);
    ids.insert(ZoJson::ParseString(*text).At("id").Get<int>());
  }
}

TEST_F(Session, AnswersPings) {
  Start();
  RawClient client(port);
  ASSERT_TRUE(client.Ping());
  client.Ask(R"({"id":1,"method":"read","uri":"/res"})");  // the pong comes before
  EXPECT_TRUE(client.PongSeen());
}

TEST_F(Session, AnswersPingsWhileALargeAnswerIsUnderWay) {
  Start({}, R"({"resources": {"/big": {"content": "", "writable": true}}})");
  const std::string text(std::size_t{30} << 20, 'x');  // more than the buffers of two sockets hold
  ASSERT_EQ(Rest("PATCH", "/big", "\"" + text + "\"").status, 200U);
  SessionWishes wishes;
  wishes.receiveBuffer = 4096;
  RawClient client(port, wishes);
  ASSERT_TRUE(client.Send(R"({"id":1,"method":"read","uri":"/big"})"));
  ASSERT_TRUE(client.Ping());
  const auto answer = client.Receive();  // looks at nothing behind the message
  ASSERT_TRUE(answer);
  EXPECT_GT(answer->size(), text.size());
  EXPECT_TRUE(client.PongSeen());
}

TEST_F(Session, SlowCallIsDoneWhenItsAnswerIsThere) {
  Start({}, R"({"resources": {"/res": {"content": {"v": 0}, "writable": true},
                              "/set": {"call": {"merge_into": "/res", "delay_ms": 5}}}})");
  RawClient client(port);
  for (int i = 1; i <= 50; ++i) {
    EXPECT_EQ(StatusOf(client.Ask(
                  fmt::format(R"({{"id":{},"method":"call","uri":"/set","payload":{{"v":{}}}}})", 2 * i, i))),
              1);
    const ZoJson content =
        client.Ask(fmt::format(R"({{"id":{},"method":"read","uri":"/res"}})", 2 * i + 1)).At("payload");
    EXPECT_EQ(content.At("v").Get<int>(), i);
  }
  EXPECT_EQ(Rest("POST", "/set", R"({"v":100})").status, 200U);
  EXPECT_EQ(Rest("GET", "/res").body, R"({"status":1,"uri":"/res","payload":{"v":100}})");
}

TEST_F(Session, ClosesOnWhatIsNoJsonObject) {
  Start();
  for (const char* message : {"no json", "[1]", "{\"id\":1,}", "{\"id\":1,\"uri\":\"\xc3\x28\"}"}) {
    RawClient client(port);
    ASSERT_TRUE(client.Send(message)) << message;
    EXPECT_FALSE(client.Receive()) << message;
    EXPECT_EQ(client.CloseCode(), 1007U) << message;
  }
  RawClient binary(port);
  ASSERT_TRUE(binary.Send(R"({"id":1,"method":"read","uri":"/res"})", true));
  EXPECT_FALSE(binary.Receive());
  EXPECT_EQ(binary.CloseCode(), 1007U);
}

TEST_F(Session, ClosesOnWhatIsTooLargeOrTooDeep) {
  options.limits.maxMessage = 1000;
  options.limits.maxDepth = 10;
  Start();
  RawClient large(port);
  large.Send(fmt::format(R"({{"id":1,"method":"read","uri":"{}"}})", std::string(1000, 'x')));
  EXPECT_FALSE(large.Receive());
  EXPECT_EQ(large.CloseCode(), 1009U);
  RawClient deep(port);
  deep.Send(R"({"id":1,"method":"call","uri":"/echo","payload":[[[[[[[[[[]]]]]]]]]]})");
  EXPECT_FALSE(deep.Receive());
  EXPECT_EQ(deep.CloseCode(), 1007U);
}

TEST_F(Session, CloseCodeReachesAClientThatIsStillSending) {
  options.limits.maxMessage = 1000;
  Start();
  const std::string much(std::size_t{ZoTest::kSanitized ? 8 : 40} << 20, 'x');
  RawClient large(port);
  EXPECT_TRUE(large.Send(much));
  EXPECT_FALSE(large.Receive());
  EXPECT_EQ(large.CloseCode(), 1009U);
  RawClient wrong(port);
  EXPECT_TRUE(wrong.Send("no JSON"));
  EXPECT_TRUE(wrong.Send(much));
  EXPECT_FALSE(wrong.Receive());
  EXPECT_EQ(wrong.CloseCode(), 1007U);
  RawClient noText(port);
  EXPECT_TRUE(noText.Send("\xff\xff"));
  EXPECT_TRUE(noText.Send(much));
  EXPECT_FALSE(noText.Receive());
  EXPECT_EQ(noText.CloseCode(), 1007U);
}

TEST_F(Session, CloseCodeDoesNotWaitBehindLargePushes) {
  Start({}, R"({"resources": {"/big": {"content": "", "writable": true}}})");
  const std::string text(std::size_t{20} << 20, 'x');
  ASSERT_EQ(Rest("PATCH", "/big", "\"" + text + "\"").status, 200U);
  SessionWishes wishes;
  wishes.receiveBuffer = 4096;
  RawClient client(port, wishes);
  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(client.Send(fmt::format(R"({{"id":{},"method":"read","uri":"/big"}})", i)));
  }
  ASSERT_TRUE(client.Send("no JSON"));
  EXPECT_TRUE(client.Send(text));  // and reads only now
  EXPECT_FALSE(client.Receive());  // not even the answer that was under way
  EXPECT_FALSE(client.TimedOut());
  EXPECT_EQ(client.CloseCode(), 1007U);
}

TEST_F(Session, TakesMessagesOf64MiBAndNoLargerOnes) {
  Start();
  const std::string head = R"({"id":1,"method":"read","uri":"/res","padding":")";
  const std::string padding((std::size_t{64} << 20) - head.size() - 2, 'x');
  RawClient client(port);
  EXPECT_EQ(StatusOf(client.Ask(head + padding + "\"}")), 1);
  client.Send(head + padding + "x\"}");
  EXPECT_FALSE(client.Receive());
  EXPECT_EQ(client.CloseCode(), 1009U);
}

TEST_F(Session, LargeContentsAreWrittenNotifiedAndReadBack) {
  Start({}, R"({"resources": {"/big": {"content": "", "writable": true}}})");
  RawClient client(port);
  client.Ask(R"({"id":1,"method":"sub","uri":"/big"})");
  client.NextPush();
  const std::string text(std::size_t{30} << 20, 'x');
  EXPECT_EQ(StatusOf(client.Ask(R"({"id":2,"method":"update","uri":"/big","payload":")" + text + "\"}")), 1);
  // Together with the notification this is more than may wait for a client by a smaller limit.
  ASSERT_TRUE(client.Send(R"({"id":3,"method":"read","uri":"/big"})"));
  ASSERT_TRUE(client.Send(R"({"id":4,"method":"read","uri":"/big"})"));
  EXPECT_EQ(client.NextPush().At("payload").Get<std::string>().size(), text.size());
  EXPECT_EQ(client.NextPush().At("id").ToString(), "3");
  EXPECT_EQ(client.NextPush().At("id").ToString(), "4");
}

TEST_F(Session, BrokenFramesEndItAndNothingElse) {
  Start();
  RawClient broken(port);
  RawClient healthy(port);
  ASSERT_TRUE(broken.SendRaw(std::string(64, '\xff')));
  EXPECT_FALSE(broken.Receive());
  EXPECT_FALSE(broken.TimedOut());
  EXPECT_EQ(StatusOf(healthy.Ask(R"({"id":1,"method":"read","uri":"/res"})")), 1);
}

TEST_F(Session, AreLimitedInNumber) {
  options.limits.maxClients = 2;
  Start();
  auto first = std::make_unique<RawClient>(port);
  RawClient second(port);
  EXPECT_EQ(RawClient(port).HandshakeStatus(), 503U);
  EXPECT_EQ(Rest("GET", "/res").status, 200U);
  EXPECT_TRUE(first->Close());
  // The place is free once the server has seen the end.
  const ZoTest::Deadline deadline;
  unsigned status = 0;
  while (status != 101 && !deadline.Expired()) {
    status = RawClient(port).HandshakeStatus();
  }
  EXPECT_EQ(status, 101U);
}

TEST_F(Session, HundredsAreServedByDefault) {
  Start();
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 256; ++i) {
    clients.push_back(std::make_unique<RawClient>(port));
    ASSERT_EQ(clients.back()->HandshakeStatus(), 101U) << i;
  }
  EXPECT_EQ(RawClient(port).HandshakeStatus(), 503U);
  for (const auto& client : clients) {
    EXPECT_EQ(StatusOf(client->Ask(R"({"id":1,"method":"read","uri":"/res"})")), 1);
  }
}

TEST_F(Session, OfForeignPagesAreRefused) {
  options.limits.allowedOrigins = {"http://hmi.example"};
  Start();
  SessionWishes wishes;
  wishes.origin = "http://evil.example";
  EXPECT_EQ(RawClient(port, wishes).HandshakeStatus(), 403U);
  wishes.origin = "http://hmi.example";
  EXPECT_EQ(RawClient(port, wishes).HandshakeStatus(), 101U);
  wishes.origin = fmt::format("http://127.0.0.1:{}", port);
  EXPECT_EQ(RawClient(port, wishes).HandshakeStatus(), 101U);
}

TEST_F(Session, SlowClientIsGivenUpOthersGoOn) {
  options.limits.maxQueue = 200000;
  Start({}, R"({"resources": {"/big": {"content": {"v": "", "n": 0}, "writable": true},
                              "/res": {"content": {"v": 1}}}})");
  SessionWishes wishes;
  wishes.receiveBuffer = 4096;
  RawClient slow(port, wishes);
  RawClient writer(port);
  slow.Ask(R"({"id":1,"method":"sub","uri":"/big"})");
  // Notifications may not be dropped: they pile up beyond the limit once the kernel's buffers are full.
  const std::string text(100000, 'x');
  for (int i = 1; i <= 200; ++i) {
    const ZoJson answer = writer.Ask(fmt::format(
        R"({{"id":{},"method":"update","uri":"/big","payload":{{"v":"{}","n":{}}}}})", i, text, i));
    ASSERT_EQ(StatusOf(answer), 1);
  }
  int received = 0;
  while (slow.Receive()) {
    ++received;
  }
  EXPECT_FALSE(slow.TimedOut());
  EXPECT_LT(received, 200);
  EXPECT_EQ(StatusOf(writer.Ask(R"({"id":1000,"method":"read","uri":"/res"})")), 1);
}

TEST_F(Session, ClientThatDoesNotFetchItsAnswersIsLeftWaitingAndThenServed) {
  options.limits.maxQueue = 1000000;
  Start({}, fmt::format(R"({{"resources": {{"/big": {{"content": "{}"}}}}}})", std::string(100000, 'x')));
  SessionWishes wishes;
  wishes.receiveBuffer = 4096;
  RawClient client(port, wishes);
  constexpr int Count = 300;  // 30 MB of answers against a queue of 1 MB
  for (int i = 1; i <= Count; ++i) {
    ASSERT_TRUE(client.Send(fmt::format(R"({{"id":{},"method":"read","uri":"/big"}})", i)));
  }
  for (int i = 1; i <= Count; ++i) {
    ASSERT_TRUE(client.Receive()) << i;
  }
}

TEST_F(Session, DozensOfClientsAndThousandsOfResources) {
  Start({}, R"({"resources": {"/r{0001..2000}": {"content": {"v": 1}, "writable": true}}})");
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 30; ++i) {
    clients.push_back(std::make_unique<RawClient>(port));
    ASSERT_TRUE(clients.back()->Send(R"({"id":1,"method":"sub","uri":"*"})"));
  }
  for (const auto& client : clients) {
    for (int i = 0; i < 2004; ++i) {  // the answer, the resources, "/", "/system" and "/faults"
      ASSERT_TRUE(client->Receive()) << i;
    }
  }
  EXPECT_EQ(Rest("PATCH", "/r1234", R"({"v":5})").status, 200U);
  for (const auto& client : clients) {
    EXPECT_EQ(client->NextPush().ToString(), R"({"event":"notification","uri":"/r1234","payload":{"v":5}})");
  }
}

TEST_F(Session, LogNamesTheFirstReasonOfTheEnd) {
  std::string lines;
  log = Log(LogLevel::Info, [&](std::string_view line) { lines += std::string(line) + "\n"; });
  Start();
  RawClient cut(port);
  ASSERT_EQ(cut.HandshakeStatus(), 101U);
  ASSERT_EQ(Rest("POST", "/faults/cut").status, 200U);
  EXPECT_FALSE(cut.Receive());
  RawClient wrong(port);
  ASSERT_TRUE(wrong.Send("no JSON"));
  EXPECT_FALSE(wrong.Receive());
  Stop();
  EXPECT_NE(lines.find("ends its session: on purpose"), std::string::npos) << lines;
  EXPECT_NE(lines.find("ends its session: not a JSON object"), std::string::npos) << lines;
}

TEST_F(Session, EndsWithGoingAwayWhenTheSensorStops) {
  Start();
  RawClient client(port);
  client.Ask(R"({"id":1,"method":"startStream","uri":"/wave"})");
  server->Stop();
  while (client.Receive()) {
  }
  EXPECT_FALSE(client.TimedOut());
  EXPECT_EQ(client.CloseCode(), 1001U);
  thread.join();
}

TEST_F(Session, HangingClientDoesNotKeepTheSensorFromStopping) {
  Start();
  RawClient client(port);  // never reads, so never answers the closing frame
  client.Send(R"({"id":1,"method":"startStream","uri":"/wave"})");
  const ZoTest::Stopwatch watch;
  Stop();
  EXPECT_LT(watch.Elapsed(), 20s);
}

TEST_F(RestOverSockets, AnswersDocumentsWithTheirStatus) {
  Start();
  const HttpAnswer answer = Rest("GET", "/res");
  EXPECT_EQ(answer.status, 200U);
  EXPECT_EQ(answer.body, R"({"status":1,"uri":"/res","payload":{"v":1}})");
  EXPECT_EQ(answer.headers.at("content-type"), "application/json");
  EXPECT_EQ(Rest("GET", "/a%20b/%C3%A4").body,
            "{\"status\":1,\"uri\":\"/a b/\xc3\xa4\",\"payload\":{\"odd\":true}}");
  EXPECT_EQ(Rest("GET", "/%zz").status, 400U);
  EXPECT_EQ(Rest("PUT", "/new", "1").status, 200U);
  EXPECT_EQ(Rest("PUT", "/new", "1").status, 409U);
  EXPECT_EQ(Rest("PATCH", "/new", R"("x")").status, 422U);
  EXPECT_EQ(Rest("POST", "/echo", "[1]").body, R"({"status":1,"uri":"/echo","payload":[1]})");
  EXPECT_EQ(Rest("DELETE", "/new").status, 200U);
  EXPECT_EQ(Rest("GET", "/new").status, 404U);
  EXPECT_EQ(Rest("GET", "/new").headers.at("content-type"), "application/json");
  EXPECT_EQ(AskHttp(port, "GET", "/").status, 404U);
  EXPECT_TRUE(Rest("FLY", "/res").headers.contains("allow"));
}

TEST_F(RestOverSockets, HeadHasNoBody) {
  Start();
  const HttpAnswer answer = Rest("HEAD", "/res");
  EXPECT_EQ(answer.status, 200U);
  EXPECT_EQ(answer.headers.at("content-length"), "43");
  EXPECT_EQ(answer.body, "");
}

TEST_F(RestOverSockets, KeepsTheConnectionAndServesPipelinedRequests) {
  Start();
  const std::string request = "GET /vyrn/v1/resources/res HTTP/1.1\r\nHost: localhost\r\n";
  const std::string received = Exchange(port, request + "\r\n" + request + "Connection: close\r\n\r\n");
  std::size_t count = 0;
  for (auto at = received.find("HTTP/1.1 200 OK"); at != std::string::npos;
       at = received.find("HTTP/1.1 200", at + 1)) {
    ++count;
  }
  EXPECT_EQ(count, 2U) << received;
}

TEST_F(RestOverSockets, RefusalDoesNotTakeAfterTheRequestBefore) {
  options.limits.allowedOrigins = {"http://hmi.example"};
  Start();
  const std::string received = Exchange(port,
                                        "HEAD /vyrn/v1/resources/res HTTP/1.1\r\nHost: localhost\r\n"
                                        "Origin: http://hmi.example\r\n\r\nwhat is this\r\n\r\n");
  const auto second = received.find("HTTP/1.1 400");
  ASSERT_NE(second, std::string::npos) << received;
  const std::string refusal = received.substr(second);
  EXPECT_NE(received.substr(0, second).find("Access-Control-Allow-Origin"), std::string::npos) << received;
  EXPECT_EQ(refusal.find("Access-Control-Allow-Origin"), std::string::npos) << refusal;
  EXPECT_NE(refusal.find("\"status\":-400"), std::string::npos) << refusal;
}

TEST_F(RestOverSockets, InvitesABodyThatWaits) {
  Start();
  const std::string received =
      Exchange(port,
               "PATCH /vyrn/v1/resources/res HTTP/1.1\r\nHost: localhost\r\nExpect: 100-continue\r\n"
               "Content-Length: 7\r\nConnection: close\r\n\r\n{\"v\":3}");
  EXPECT_EQ(received.rfind("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK", 0), 0U) << received;
}

TEST_F(RestOverSockets, InvitesNoBodyOfAnOlderClient) {
  Start();
  const std::string received =
      Exchange(port,
               "PATCH /vyrn/v1/resources/res HTTP/1.0\r\nHost: localhost\r\nExpect: 100-continue\r\n"
               "Content-Length: 7\r\n\r\n{\"v\":3}");
  EXPECT_EQ(received.rfind("HTTP/1.0 200 OK", 0), 0U) << received;
}

TEST_F(RestOverSockets, ClientThatSaysNothingIsNotWaitedForLikeOneThatWasServed) {
  options.limits.firstRequestTime = 1s;
  Start();
  const ZoTest::Stopwatch watch;
  EXPECT_EQ(Exchange(port, ""), "");
  EXPECT_LT(watch.Elapsed(), options.limits.idleTime / 2);
  // Who was served has the longer time: the pause is no end.
  const std::string request = "GET /vyrn/v1/resources/res HTTP/1.1\r\nHost: localhost\r\n";
  const std::string received = ExchangeParts(port, {request + "\r\n", request + "Connection: close\r\n\r\n"},
                                             [&] { EXPECT_EQ(Exchange(port, ""), ""); });
  EXPECT_NE(received.find("HTTP/1.1 200 OK", 1), std::string::npos) << received;
}

TEST_F(RestOverSockets, TooManyConnectionsAreToldSo) {
  options.limits.maxClients = 1;
  options.limits.spareConnections = 2;
  options.limits.idleTime = 2s;  // until the two in the way are closed
  std::string lines;
  log = Log(LogLevel::Warning, [&](std::string_view line) { lines += line; });
  Start();
  std::vector<std::unique_ptr<RawClient>> clients;
  clients.push_back(std::make_unique<RawClient>(port));
  ASSERT_EQ(clients[0]->HandshakeStatus(), 101U);
  const std::string request = "GET /vyrn/v1/resources/res HTTP/1.1\r\nHost: localhost\r\n\r\n";
  std::string refusal;
  ExchangeParts(port, {request}, [&] {
    ExchangeParts(port, {request}, [&] {
      refusal = Exchange(port, request);
      EXPECT_EQ(RawClient(port).HandshakeStatus(), 503U);
    });
  });
  EXPECT_EQ(refusal.rfind("HTTP/1.1 503 ", 0), 0U) << refusal;
  Stop();
  EXPECT_NE(lines.find("a connection is refused: 3 are open already"), std::string::npos) << lines;
}

TEST_F(RestOverSockets, LogTellsWhatIsRefusedBeforeItIsARequest) {
  options.limits.maxMessage = 1000;
  std::string lines;
  log = Log(LogLevel::Debug, [&](std::string_view line) { lines += line; });
  Start();
  Rest("PUT", "/x", std::string(1001, '1'));
  Rest("GET", "/res", "", {{"X-Long", std::string(20000, 'x')}});
  Exchange(port, "what is this\r\n\r\n");
  Exchange(port, "GET /vyrn/v1/resources/res HTTP/1.1\r\n\r\n");
  Rest("OPTIONS", "/res");
  AskHttp(port, "GET", "/vyrn/v1");
  SessionWishes wishes;
  wishes.target = "/vyrn/v2";
  RawClient elsewhere(port, wishes);
  wishes = {};
  wishes.protocol = "vyrn.v2.json";
  RawClient foreign(port, wishes);
  Stop();
  for (const char* told :
       {"-> 413: a body holds", "-> 431: the header", "-> 400: this is no HTTP",
        "-> 400: a request has one Host", "OPTIONS /vyrn/v1/resources/res -> 204", "GET /vyrn/v1 -> 426",
        "-> 404: sessions are opened at", "-> 400: the subprotocol here is"}) {
    EXPECT_NE(lines.find(told), std::string::npos) << told << "\n" << lines;
  }
}

TEST_F(RestOverSockets, SlowAnswerIsNoIdleTime) {
  options.limits.idleTime = 1s;
  Start({}, R"({"resources": {"/slow": {"call": {"result": "done", "delay_ms": 2500}}}})");
  EXPECT_EQ(Rest("POST", "/slow").body, R"({"status":1,"uri":"/slow","payload":"done"})");
}

TEST_F(RestOverSockets, IdleClientAndStalledBodyEndTheConnection) {
  options.limits.idleTime = 100ms;
  Start();
  EXPECT_EQ(Exchange(port, ""), "");
  const ZoTest::Stopwatch watch;
  EXPECT_EQ(
      Exchange(port,
               "PATCH /vyrn/v1/resources/res HTTP/1.1\r\nHost: localhost\r\nContent-Length: 7\r\n\r\n{"),
      "");
  EXPECT_LT(watch.Elapsed(), ZoTest::kLimit);
}

TEST_F(RestOverSockets, SlowBodyIsTakenWhileItMoves) {
  options.limits.idleTime = 1s;
  Start({}, R"({"resources": {"/res": {"content": {"v": 1}, "writable": true},
                              "/pause": {"call": {"delay_ms": 400}}}})");
  const std::string received =
      ExchangeParts(port,
                    {"PATCH /vyrn/v1/resources/res HTTP/1.1\r\nHost: localhost\r\nContent-Length: 7\r\n"
                     "Connection: close\r\n\r\n",
                     "{", "\"v", "\":", "8", "}"},
                    [&] { EXPECT_EQ(Rest("POST", "/pause").status, 200U); });
  EXPECT_EQ(received.rfind("HTTP/1.1 200 OK", 0), 0U) << received;
  EXPECT_EQ(Rest("GET", "/res").body, R"({"status":1,"uri":"/res","payload":{"v":8}})");
}

TEST_F(RestOverSockets, RefusesWhatIsTooLargeOrNoHttp) {
  options.limits.maxMessage = 1000;
  Start();
  EXPECT_EQ(Rest("PUT", "/x", std::string(1001, '1')).status, 413U);
  EXPECT_EQ(Rest("GET", "/res", "", {{"X-Long", std::string(20000, 'x')}}).status, 431U);
  const std::string received = Exchange(port, "what is this\r\n\r\n");
  EXPECT_EQ(received.rfind("HTTP/1.1 400", 0), 0U) << received;
}

TEST_F(RestOverSockets, PagesThatHideTheirOriginAreRefused) {
  options.limits.allowedOrigins = {"http://hmi.example"};
  Start();
  for (const char* site : {"cross-site", "same-site"}) {
    const HttpAnswer answer = Rest("GET", "/res", "", {{"Sec-Fetch-Site", site}});
    EXPECT_EQ(answer.status, 403U) << site;
    EXPECT_EQ(StatusOf(ZoJson::ParseString(answer.body)), -403) << site;
    EXPECT_EQ(Rest("GET", "/res", "", {{"Sec-Fetch-Site", site}, {"Origin", "http://hmi.example"}}).status,
              200U);
  }
  for (const char* site : {"same-origin", "none"}) {
    EXPECT_EQ(Rest("GET", "/res", "", {{"Sec-Fetch-Site", site}}).status, 200U) << site;
  }
  Stop();
  options.limits.allowedOrigins = {"*"};
  Start();
  EXPECT_EQ(Rest("GET", "/res", "", {{"Sec-Fetch-Site", "cross-site"}}).status, 200U);
}

TEST_F(RestOverSockets, AnotherVersionOfWebSocketIsRefusedWithADocument) {
  Start();
  const HttpAnswer answer = AskHttp(port, "GET", "/vyrn/v1", "",
                                    {{"Connection", "Upgrade"},
                                     {"Upgrade", "websocket"},
                                     {"Sec-WebSocket-Key", "dGhlIHNhbXBsZSBub25jZQ=="},
                                     {"Sec-WebSocket-Version", "12"}});
  EXPECT_EQ(answer.status, 426U);
  EXPECT_EQ(answer.headers.at("sec-websocket-version"), "13");
  EXPECT_EQ(answer.headers.at("content-type"), "application/json");
  EXPECT_EQ(StatusOf(ZoJson::ParseString(answer.body)), -426);
}

TEST_F(RestOverSockets, ForeignPagesAreRefusedOthersGetTheirHeaders) {
  options.limits.allowedOrigins = {"http://hmi.example"};
  Start();
  EXPECT_EQ(Rest("GET", "/res", "", {{"Origin", "http://evil.example"}}).status, 403U);
  EXPECT_EQ(Rest("PATCH", "/res", R"({"v":9})", {{"Origin", "http://evil.example"}}).status, 403U);
  EXPECT_EQ(Rest("OPTIONS", "/res", "", {{"Origin", "http://evil.example"}}).status, 403U);
  const HttpAnswer allowed = Rest("GET", "/res", "", {{"Origin", "http://hmi.example"}});
  EXPECT_EQ(allowed.status, 200U);
  EXPECT_EQ(allowed.body, R"({"status":1,"uri":"/res","payload":{"v":1}})");
  EXPECT_EQ(allowed.headers.at("access-control-allow-origin"), "http://hmi.example");
  EXPECT_EQ(Rest("OPTIONS", "/res", "", {{"Origin", "http://hmi.example"}})
                .headers.count("access-control-allow-methods"),
            1U);
  EXPECT_EQ(Rest("GET", "/res", "", {{"Origin", fmt::format("http://127.0.0.1:{}", port)}}).status, 200U);
}

}  // namespace
}  // namespace ZoSensor
