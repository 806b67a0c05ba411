// Requests that mean another host: a page whose name was made to point here must not be served.
#include "tools/zosensor/host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include <fmt/format.h>

#include "tests/zosensor/serverfixture.h"

namespace ZoSensor {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class HostOfRequest : public ServerFixture {
 protected:
  unsigned Upgrade(const std::string& host) const {
    SessionWishes wishes;
    wishes.host = host;
    return RawClient(port, wishes).HandshakeStatus();
  }
  HttpAnswer Get(const std::string& host) const { return Rest("GET", "/res", "", {{"Host", host}}); }
  void ExpectServed(const std::string& host) const {
    EXPECT_EQ(Upgrade(host), 101U) << host;
    EXPECT_EQ(Get(host).status, 200U) << host;
  }
  void ExpectRefused(const std::string& host) const {
    EXPECT_EQ(Upgrade(host), 403U) << host;
    const HttpAnswer answer = Get(host);
    EXPECT_EQ(answer.status, 403U) << host;
    const ZoJson document = ZoJson::ParseString(answer.body.empty() ? "{}" : answer.body);
    ASSERT_TRUE(document.HasKey("error")) << answer.body;
    EXPECT_EQ(StatusOf(document), -403);
    EXPECT_TRUE(document.At("payload").IsNull());
    EXPECT_THAT(document.At("error").Get<std::string>(), HasSubstr("--allow-origin"));
  }
  std::string Raw(const std::string& head) const { return Exchange(port, head + "\r\n"); }
};

TEST_F(HostOfRequest, NamesAndAddressesOfTheLoopbackAreServed) {
  Start();
  for (const char* host : {"127.0.0.1", "localhost", "LocalHost", "[::1]", "127.8.9.10", "[0:0:0:0:0:0:0:1]",
                           "[::ffff:127.0.0.1]"}) {
    ExpectServed(host);
    ExpectServed(fmt::format("{}:{}", host, port));
  }
}

TEST_F(HostOfRequest, OthersAreRefusedOnTheLoopback) {
  Start();
  for (const char* host :
       {"evil.example", "evil.example:3600", "127.0.0.1.evil.example", "localhost.evil.example", "10.0.0.7",
        "0.0.0.0", "[fe80::1]:3600", "127.1", "2130706433", "localhost.", "xlocalhost"}) {
    ExpectRefused(host);
  }
}

TEST_F(HostOfRequest, NoMethodIsServedForAForeignHostAndNothingIsDone) {
  Start();
  for (const char* method : {"PUT", "PATCH", "DELETE", "POST", "OPTIONS"}) {
    EXPECT_EQ(Rest(method, "/res", R"({"v":7})", {{"Host", "evil.example"}}).status, 403U) << method;
  }
  const HttpAnswer head = Rest("HEAD", "/res", "", {{"Host", "evil.example"}});
  EXPECT_EQ(head.status, 403U);
  EXPECT_EQ(head.body, "");
  EXPECT_EQ(Rest("GET", "/res").body, R"({"status":1,"uri":"/res","payload":{"v":1}})");
  EXPECT_EQ(AskHttp(port, "GET", "/", "", {{"Host", "evil.example"}}).status, 403U);
}

TEST_F(HostOfRequest, RefusalEndsTheConnectionBeforeABodyIsInvited) {
  Start();
  const std::string received =
      Raw("PATCH /vyrn/v1/resources/res HTTP/1.1\r\nHost: evil.example\r\nExpect: 100-continue\r\n"
          "Content-Length: 7\r\n");
  EXPECT_THAT(received, StartsWith("HTTP/1.1 403 "));
  EXPECT_THAT(received, HasSubstr("Connection: close"));
}

TEST_F(HostOfRequest, EachRequestOfAConnectionIsJudged) {
  Start();
  const std::string request = "GET /vyrn/v1/resources/res HTTP/1.1\r\nHost: ";
  const std::string received = Raw(request + "localhost\r\n\r\n" + request + "evil.example\r\n");
  EXPECT_THAT(received, StartsWith("HTTP/1.1 200 OK"));
  EXPECT_THAT(received, HasSubstr("HTTP/1.1 403 "));
}

TEST_F(HostOfRequest, HostsOfAllowedOriginsAreServedAtAnyPort) {
  options.limits.allowedOrigins = {"http://HMI.example:8080", "https://plant.example"};
  Start();
  ExpectServed("hmi.example");
  ExpectServed("Hmi.Example:3600");
  ExpectServed("plant.example");
  ExpectServed("127.0.0.1");
  ExpectRefused("sub.hmi.example");
  ExpectRefused("evil.example");
}

TEST_F(HostOfRequest, AllOriginsAllowedAllowAllHosts) {
  options.limits.allowedOrigins = {"*"};
  Start();
  ExpectServed("any.example:1");
  ExpectServed("10.0.0.7");
}

TEST_F(HostOfRequest, AddressesAreServedElsewhereNamesWhenTheyAreAllowed) {
  options.address = "0.0.0.0";
  options.limits.allowedOrigins = {"http://plc.example"};
  Start();
  for (const char* host : {"127.0.0.1", "localhost", "10.0.0.7:3600", "[fe80::1]", "plc.example"}) {
    ExpectServed(host);
  }
  ExpectRefused("evil.example");
  ExpectRefused("10.0.0.7.evil.example");
}

TEST_F(HostOfRequest, IsNeededOnceFromHttp11On) {
  Start();
  const std::string line = "GET /vyrn/v1/resources/res HTTP/1.";
  EXPECT_THAT(Raw(line + "0\r\n"), StartsWith("HTTP/1.0 200 "));
  EXPECT_THAT(Raw(line + "0\r\nHost: evil.example\r\n"), StartsWith("HTTP/1.0 403 "));
  EXPECT_THAT(Raw(line + "1\r\n"), StartsWith("HTTP/1.1 400 "));
  EXPECT_THAT(Raw(line + "1\r\nHost: localhost\r\nHost: evil.example\r\n"), StartsWith("HTTP/1.1 400 "));
  EXPECT_THAT(Raw(line + "1\r\nHost: localhost\r\nHost: localhost\r\n"), StartsWith("HTTP/1.1 400 "));
}

TEST_F(HostOfRequest, WhatIsNoHostIsMalformed) {
  Start();
  for (const char* host : {"", ":3600", "local host", "localhost:x", "[::1", "[localhost]", "[127.0.0.1]",
                           "[::1]x", "::1", "user@localhost", "localhost/x"}) {
    EXPECT_THAT(Raw(fmt::format("GET /vyrn/v1/resources/res HTTP/1.1\r\nHost: {}\r\n", host)),
                StartsWith("HTTP/1.1 400 "))
        << host;
  }
}

TEST_F(HostOfRequest, InTheTargetCountsLikeTheHeader) {
  Start();
  const std::string end = "/vyrn/v1/resources/res HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n";
  EXPECT_THAT(Raw("GET http://127.0.0.1:3600" + end), StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(Raw("GET http://evil.example" + end), StartsWith("HTTP/1.1 403 "));
}

TEST(Loopback, MappedAddressIsTheOneThatItStandsFor) {
  EXPECT_EQ(Unmapped(boost::asio::ip::make_address("::ffff:10.0.0.7")).to_string(), "10.0.0.7");
  EXPECT_EQ(Unmapped(boost::asio::ip::make_address("fe80::1")).to_string(), "fe80::1");
}

TEST(Loopback, IsKnownInAllItsForms) {
  for (const char* text : {"127.0.0.1", "127.255.255.254", "::1", "::ffff:127.0.0.1"}) {
    EXPECT_TRUE(IsLoopback(boost::asio::ip::make_address(text))) << text;
  }
  for (const char* text : {"0.0.0.0", "::", "128.0.0.1", "::2", "::ffff:10.0.0.1"}) {
    EXPECT_FALSE(IsLoopback(boost::asio::ip::make_address(text))) << text;
  }
}

}  // namespace
}  // namespace ZoSensor
