#include "tools/zohost/tags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/json.hpp>

namespace zohost {
namespace {

using testing::HasSubstr;

std::string Response(const std::string& data) {
  return boost::json::serialize(boost::json::object{{"id", 1}, {"errcode", 0}, {"data", data}});
}

ResourceAnswer Payload(const std::string& uri, const std::string& payload) {
  return TakeApart(uri, Response(R"({"status": 1, "payload": )" + payload + "}"));
}

std::vector<std::string> Lines(const ResourceAnswer& answer) {
  std::vector<std::string> lines;
  for (const Tag& tag : answer.tags) {
    lines.push_back(tag.item + " " + std::string(KindName(tag.value.Kind())) + " " + tag.value.ForPeople() +
                    (tag.nameable ? "" : " !"));
  }
  return lines;
}

TEST(Tags, EveryPrimitiveLeafIsATag) {
  const auto answer = Payload("/r", R"({"a": {"b": [1, {"c": true}, []], "d": {}}, "e": "x", "f": null})");
  EXPECT_EQ(answer.status, 1);
  EXPECT_THAT(Lines(answer), testing::ElementsAre("/r#/a/b/0 int 1", "/r#/a/b/1/c bool true",
                                                  "/r#/e string x", "/r#/f invalid INVALID"));
}

TEST(Tags, ABarePayloadIsTheWholeResource) {
  EXPECT_THAT(Lines(Payload("/r/s", "5")), testing::ElementsAre("/r/s# int 5"));
}

TEST(Tags, SegmentsAreEscaped) {
  EXPECT_THAT(Lines(Payload("/r", R"({"a/b~c d": 1, "": 2, "ä#": 3})")),
              testing::ElementsAre("/r#/a~1b~0c%20d int 1", "/r#/ int 2", "/r#/ä# int 3"));
}

TEST(Tags, PlacesThatNoNameReachesAreMarked) {
  EXPECT_THAT(Lines(Payload("/r", R"({"a%20b": {"c": 1}, "d": 2})")),
              testing::ElementsAre("/r#/a%20b/c int 1 !", "/r#/d int 2"));
  EXPECT_THAT(Lines(Payload("/r#s", "1")), testing::ElementsAre("/r#s# int 1 !"));
}

TEST(Tags, NumbersAreShownAsThePluginDeliversThem) {
  EXPECT_THAT(Lines(Payload("/r", "[18446744073709551615, -9223372036854775808, 0.1, 3.0, 0.123456789]")),
              testing::ElementsAre("/r#/0 uint 18446744073709551615", "/r#/1 int -9223372036854775808",
                                   "/r#/2 double 0.1", "/r#/3 double 3.0", "/r#/4 double 0.12345679"));
}

TEST(Tags, AListOfResourcesIsFound) {
  EXPECT_THAT(Payload("/", R"({"resources": ["/a", "/b/c", 5]})").resources,
              testing::ElementsAre("/a", "/b/c"));
  EXPECT_TRUE(Payload("/", "\"/\"").resources.empty());
}

TEST(Tags, AnErrorKeepsItsSentenceAndHasNoTags) {
  const auto answer = TakeApart("/r", Response(R"({"status": -404, "payload": null, "error": "Not here."})"));
  EXPECT_EQ(answer.status, -404);
  EXPECT_EQ(answer.error, "Not here.");
  EXPECT_TRUE(answer.tags.empty());
}

TEST(Tags, OddResponsesAreErrors) {
  for (const std::string& response :
       {std::string(), std::string("{"), std::string("[]"), std::string("{\"data\": 5}"), Response(""),
        Response("{}"), Response("null"), Response("5"), Response(R"({"status": "x"})"),
        Response(std::string(300, '['))}) {
    const auto answer = TakeApart("/r", response);
    EXPECT_NE(answer.error, "") << response;
    EXPECT_NE(answer.status, 1) << response;
    EXPECT_TRUE(answer.tags.empty()) << response;
  }
  EXPECT_EQ(TakeApart("/r", Response("\"The link is down.\"")).error, "The link is down.");
}

TEST(Tags, DeepDocumentsAreWalked) {
  std::string deep;
  for (int level = 0; level < 200; ++level) {
    deep += "{\"a\":";
  }
  deep += "1" + std::string(200, '}');
  const auto answer = Payload("/r", deep);
  ASSERT_EQ(answer.tags.size(), 1u) << answer.error;
  EXPECT_EQ(answer.tags[0].item.size(), 3 + 400u);
}

TEST(Tags, ArgumentsAreJson) {
  const auto arguments = boost::json::parse(ReadArguments("/a\"b")).as_object();
  EXPECT_EQ(arguments.at("uri").as_string(), "/a\"b");
}

}  // namespace
}  // namespace zohost
