#include "tools/zosensor/restdoor.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/zosensor/modelfixture.h"
#include "tools/zosensor/origin.h"

namespace ZoSensor {
namespace {

class RestDoorTest : public ModelFixture {
 protected:
  RestDoorTest() {
    Start(R"({"resources": {"/res/sub": {"content": {"v": 1}, "writable": true},
                            "/a b/\u00e4": {"content": 1},
                            "/echo": {"call": {"echo": true}}}})");
    door = std::make_unique<RestDoor>(*sensor, faults, limits, log);
  }
  RestAnswer Ask(const std::string& method, const std::string& target, const std::string& body = "") {
    return door->Handle({method, "/vyrn/v1/resources" + target, body}, "tester", now);
  }

  Log log{LogLevel::Off};
  FaultController faults{FaultSettings(), 1, now};
  std::unique_ptr<RestDoor> door;
};

TEST_F(RestDoorTest, VerbsStandForMethods) {
  EXPECT_EQ(Ask("GET", "/res/sub").body, R"({"status":1,"uri":"/res/sub","payload":{"v":1}})");
  EXPECT_EQ(Ask("PUT", "/new", "[1]").body, R"({"status":1,"uri":"/new"})");
  EXPECT_EQ(Ask("PUT", "/new", "[1]").status, 409U);
  EXPECT_EQ(Ask("PATCH", "/new", R"({"0":2})").status, 200U);
  EXPECT_EQ(Content("/new").ToString(), "[2]");
  EXPECT_EQ(Ask("DELETE", "/new").body, R"({"status":1,"uri":"/new"})");
  EXPECT_EQ(Ask("DELETE", "/new").status, 404U);
  EXPECT_EQ(Ask("POST", "/echo", R"({"a":1})").body, R"({"status":1,"uri":"/echo","payload":{"a":1}})");
  EXPECT_EQ(Ask("POST", "/echo").body, R"({"status":1,"uri":"/echo","payload":null})");
}

TEST_F(RestDoorTest, StatusIsTheAbsoluteValue) {
  EXPECT_EQ(Ask("GET", "/res/sub").status, 200U);
  EXPECT_EQ(Ask("GET", "/none").status, 404U);
  EXPECT_EQ(Ask("PATCH", "/res/sub", R"({"v":"x"})").status, 422U);
  EXPECT_EQ(Ask("PATCH", "/a%20b/%c3%a4", "2").status, 405U);
  EXPECT_EQ(Ask("POST", "/res/sub").status, 405U);
  EXPECT_EQ(Ask("PATCH", "/res/sub", "{").status, 400U);
  EXPECT_EQ(Ask("PATCH", "/res/sub").status, 400U);
  EXPECT_EQ(Ask("PUT", "/x").status, 400U);
  EXPECT_EQ(Ask("TRACE", "/res/sub").status, 405U);
  EXPECT_FALSE(Ask("TRACE", "/res/sub").allow.empty());
  EXPECT_EQ(Json(Ask("G\xd0T", "/res/sub").body).At("status").ToString(), "-405");
  const ZoJson failure = Json(Ask("GET", "/none").body);
  EXPECT_EQ(failure.At("status").ToString(), "-404");
  EXPECT_TRUE(failure.At("payload").IsNull());
  EXPECT_TRUE(failure.At("error").IsString());
  EXPECT_FALSE(failure.HasKey("id"));
}

TEST_F(RestDoorTest, TargetsAreDecoded) {
  EXPECT_EQ(Ask("GET", "/a%20b/%C3%A4").status, 200U);
  EXPECT_EQ(Ask("GET", "/res%2Fsub").status, 200U);
  EXPECT_EQ(Ask("GET", "/res/sub?x=1").status, 200U);
  EXPECT_EQ(Ask("GET", "").status, 200U);
  EXPECT_EQ(Ask("GET", "/").status, 200U);
  for (const char* bad : {"/%", "/%4", "/%zz", "/%ff"}) {
    EXPECT_EQ(Ask("GET", bad).status, 400U) << bad;
  }
  EXPECT_EQ(Ask("GET", "/%00").status, 404U);
  EXPECT_EQ(RestDoor::ResourcePath("http://sensor:1/vyrn/v1/resources/res"), "/res");
  EXPECT_EQ(RestDoor::ResourcePath("/vyrn/v1/%72esources/res%2fsub?x=%"), "/res/sub");
  EXPECT_EQ(door->Handle({"GET", "/%76yrn/v1/resources%2Fres/sub", ""}, "tester", now).status, 200U);
  for (const char* outside : {"/", "/vyrn/v1", "/vyrn/v1/resourcesx", "*", "", "http://sensor", "x"}) {
    EXPECT_FALSE(RestDoor::ResourcePath(outside)) << outside;
    EXPECT_EQ(door->Handle({"GET", outside, ""}, "tester", now).status, 404U) << outside;
  }
}

TEST_F(RestDoorTest, WhatIsReadBackNestsNoDeeperThanAMessageMay) {
  const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  EXPECT_EQ(Ask("PUT", "/deep", nested(255)).status, 200U);
  EXPECT_NO_THROW(Json(Ask("GET", "/deep").body));
  EXPECT_EQ(Ask("PUT", "/deeper", nested(256)).status, 413U);
  EXPECT_EQ(Ask("PUT", "/deeper", nested(100000)).status, 413U);
}

TEST_F(RestDoorTest, BodyOfTooManyValuesIsTooLarge) {
  limits.maxValues = 20;
  std::string list = "[1";
  for (int i = 1; i < 19; ++i) {
    list += ",1";
  }
  EXPECT_EQ(Ask("PUT", "/list", list + "]").status, 200U);
  for (const char* verb : {"PUT", "PATCH", "POST"}) {
    EXPECT_EQ(Ask(verb, "/list", list + ",1]").status, 413U) << verb;
  }
}

TEST_F(RestDoorTest, LogTellsAnUnknownVerb) {
  std::string lines;
  log = Log(LogLevel::Debug, [&](std::string_view line) { lines += line; });
  Ask("FLY", "/res/sub");
  EXPECT_NE(lines.find("tester FLY /res/sub -> 405"), std::string::npos) << lines;
}

TEST(Origin, ProgramsAndOwnPagesAreWelcomeOthersAreNot) {
  EXPECT_TRUE(IsOriginAllowed("", "127.0.0.1", 3600, {}));
  EXPECT_TRUE(IsOriginAllowed("http://127.0.0.1:3600", "127.0.0.1", 3600, {}));
  EXPECT_TRUE(IsOriginAllowed("http://localhost:3600", "127.0.0.1", 3600, {}));
  EXPECT_TRUE(IsOriginAllowed("http://[::1]:3600", "::1", 3600, {}));
  EXPECT_TRUE(IsOriginAllowed("http://10.0.0.7:3600", "10.0.0.7", 3600, {}));
  EXPECT_TRUE(IsOriginAllowed("http://127.0.0.1", "127.0.0.1", 80, {}));
  for (const char* foreign : {"http://127.0.0.1:3601", "http://127.0.0.1", "https://127.0.0.1:3600", "null",
                              "http://evil.example", "http://127.0.0.1:3600.evil.example"}) {
    EXPECT_FALSE(IsOriginAllowed(foreign, "127.0.0.1", 3600, {})) << foreign;
  }
  EXPECT_FALSE(IsOriginAllowed("http://localhost:3600", "10.0.0.7", 3600, {}));
  EXPECT_TRUE(IsOriginAllowed("http://hmi.example", "127.0.0.1", 3600, {"http://hmi.example"}));
  EXPECT_TRUE(IsOriginAllowed("http://hmi.example:8080", "127.0.0.1", 3600, {"HTTP://HMI.Example:8080"}));
  EXPECT_TRUE(IsOriginAllowed("http://LocalHost:3600", "127.0.0.1", 3600, {}));
  EXPECT_FALSE(IsOriginAllowed("https://hmi.example", "127.0.0.1", 3600, {"HTTP://HMI.Example"}));
  EXPECT_TRUE(IsOriginAllowed("http://any.example", "127.0.0.1", 3600, {"*"}));
}

}  // namespace
}  // namespace ZoSensor
