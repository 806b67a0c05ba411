#include "tools/zosensor/resourcefile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>

#include "tests/support/temporaryfolder.h"
#include "tools/zosensor/demo.h"
#include "tools/zosensor/jsonlocator.h"

namespace ZoSensor {
namespace {

std::string ErrorOf(std::string_view text) {
  try {
    ParseResources(text, "plant.json");
  } catch (const ResourceFileError& error) {
    return error.what();
  }
  return "no error";
}

TEST(JsonLocator, FindsLineAndColumnOfAnyValue) {
  const std::string_view text =
      "{\n  \"a\\u0062\": [1, {\"x\": \"}]\", \"y\" : 2}],\n  \"\xc3\xa4\": 3, \"z\": true\n}";
  const auto at = [&](std::string_view pointer) {
    const TextPosition position = LocateValue(text, ZoJsonPointer(pointer));
    return std::to_string(position.line) + ":" + std::to_string(position.column);
  };
  EXPECT_EQ(at(""), "1:1");
  EXPECT_EQ(at("/ab"), "2:14");
  EXPECT_EQ(at("/ab/0"), "2:15");
  EXPECT_EQ(at("/ab/1/x"), "2:24");
  EXPECT_EQ(at("/ab/1/y"), "2:36");
  EXPECT_EQ(at("/\xc3\xa4"), "3:8");
  EXPECT_EQ(at("/z"), "3:16");
  EXPECT_EQ(at("/ab/7"), "2:14");  // not there: the container
  EXPECT_EQ(at("/z/deeper"), "3:16");
}

TEST(JsonLocator, OfDuplicateNamesTheLastCounts) {
  EXPECT_EQ(LocateValue(R"({"a": 1, "a": 2})", ZoJsonPointer("/a")).column, 15U);
}

TEST(ResourceFile, SyntaxErrorNamesFileLineColumnAndReason) {
  const std::string error = ErrorOf("{\n  \"resources\": {,}\n}");
  EXPECT_EQ(error.rfind("plant.json:2:17: ", 0), 0U) << error;
  EXPECT_GT(error.size(), std::string("plant.json:2:17: ").size() + 3) << error;
}

TEST(ResourceFile, EveryMistakeNamesItsPlace) {
  struct {
    const char* text;
    const char* error;
  } const cases[] = {
      {"[]", "plant.json:1:1: a resource file must be an object"},
      {"{}", "plant.json:1:1: \"resources\" is missing"},
      {"{\"resources\": 5}", "plant.json:1:15: \"resources\" must be an object of URIs and their resources"},
      {"{\"resources\": {}, \"nmae\": 1}", "plant.json:1:27: unknown member \"nmae\""},
      {"{\"resources\": {}, \"running\": 1}", "plant.json:1:30: \"running\" must be true or false"},
      {"{\"resources\": {\n \"/a\": 5}}", "plant.json:2:8: a resource must be an object"},
      {"{\"resources\": {\n \"/a\": {}}}", "plant.json:2:8: a resource needs a \"content\" or a \"call\""},
      {"{\"resources\": {\n \"/a\": {\"content\": 1, \"rate_hz\": 1001}}}",
       "plant.json:2:34: \"rate_hz\" must lie between 0.001 and 1000"},
      {"{\"resources\": {\n \"/a\": {\"content\": {}, \"writable\": [\"/x\"]}}}",
       "plant.json:2:37: the content has nothing at \"/x\""},
      {"{\"resources\": {\n \"/a\": {\"content\": {}, \"writable\": 5}}}",
       "plant.json:2:36: \"writable\" must be an array of pointers, such as [\"/value\"]"},
      {"{\"resources\": {\n \"/a\": {\"content\": {}, \"integers\": [5]}}}",
       "plant.json:2:37: a pointer must be a text"},
      {"{\"resources\": {\n \"/a\": {\"content\": {\"v\":1}, \"waves\": {\n  \"/v\": {\"wave\": "
       "\"sinus\"}}}}}",
       "plant.json:3:18: there is no waveform \"sinus\"; there are sine, ramp, triangle, square, walk, "
       "noise, cycle, "
       "counter, follow"},
      {"{\"resources\": {\n \"/a\": {\"content\": {}, \"waves\": {\"/v\": {\"wave\": \"sine\"}}}}}",
       "plant.json:2:40: the content has nothing at \"/v\""},
      {"{\"resources\": {\n \"/a\": {\"content\": {\"v\":[0]}, \"waves\": {\"/v\": {\"wave\": \"sine\"}, "
       "\"/v/0\": "
       "{\"wave\": \"sine\"}}}}}",
       "plant.json:2:40: a waveform drives \"/v\", another one what lies in it"},
      {"{\"resources\": {\"/a*\": {\"content\": 1}}}", "plant.json:1:23: the URI of a resource holds no *"},
      {"{\"resources\": {\"/system/x\": {\"content\": 1}}}",
       "plant.json:1:29: /system/x belongs to every sensor"},
      {"{\"resources\": {\"/faults\": {\"content\": 1}}}",
       "plant.json:1:27: /faults belongs to every sensor"},
      {"{\"resources\": {\"/a\": {\"content\": 1}, \"a\": {\"content\": 1}}}",
       "plant.json:1:43: /a is there already"},
      {"{\"resources\": {\"/a{3..1}\": {\"content\": 1}}}",
       "plant.json:1:28: a range is {first..last}, at most 100000 numbers"},
      {"{\"resources\": {\"/a{1..2}{3..4}\": {\"content\": 1}}}",
       "plant.json:1:34: a URI holds one range at most"},
      {"{\"resources\": {\"/a{1..2\": {\"content\": 1}}}",
       "plant.json:1:27: a { in a URI begins a range, and there is no } to end it"},
      {"{\"resources\": {\"/a{b}\": {\"content\": 1}}}",
       "plant.json:1:25: a range is {first..last}, at most 100000 numbers"},
      {"{\"resources\": {\n \"/a\": {\"content\": {\"v\":1}, \"waves\": {\n  \"/v\": {\"wave\": \"follow\", "
       "\"source\": \"/b\"}}}}}",
       "plant.json:3:38: there is no resource /b"},
      {"{\"resources\": {\n \"/a\": {\"call\": {\"merge_into\": \"b\"}}}}",
       "plant.json:2:32: there is no resource /b"},
      {"{\"resources\": {\n \"/a\": {\"call\": {\"set\": {\"/a/b\": 1}}}}}",
       "plant.json:2:34: there is no resource /a/b"},
      {"{\"resources\": {\n \"/a\": {\"call\": {\"set\": {\"/system\": {\"state\": 1}}}}}}",
       "plant.json:2:37: there is no resource /system"},
      {"{\"resources\": {\n \"/a\": {\"call\": {\"merge_into\": \"/b\"}}, \"/b\": {\"call\": {}}}}",
       "plant.json:2:32: /b is a method and has no content"},
      {"{\"resources\": {\n \"/a\": {\"call\": {\"set\": {\"/a\": 1}}}}}",
       "plant.json:2:32: /a is a method and has no content"},
      {"{\"resources\": {\"/a\": {\"content\": 1, \"appears_after_s\": 5, \"vanishes_after_s\": 5}}}",
       "plant.json:1:79: a resource cannot vanish before it appears"},
      {R"({"resources": {"/a": {"content": {"t": "x"}, "integers": ["/t"]}}})",
       "plant.json:1:59: what is at \"/t\" is no integer, or holds a number that is none"},
      {R"({"resources": {"/a": {"content": {"l": [1, {"f": 1.5}]}, "integers": ["/l"]}}})",
       "plant.json:1:71: what is at \"/l\" is no integer, or holds a number that is none"},
      {R"({"resources": {"/a": {"content": {"v": 1}, "waves": {"/v": {"wave": "sine"}, "v": {"wave": "sine"}}}}})",
       "plant.json:1:83: \"/v\" has a waveform already"},
      {"{\"resources\": {\"/a\": {\"content\": 1},\n  \"\\u002fa\": {\"content\": 2}}}",
       "plant.json:2:3: this name is there already"},
      {R"({"resources": {"/s": {"content": {"v": 1}}, "/a": {"content": {"v": 1}, "waves": {"/v":
       {"wave": "follow", "source": "/s", "at": "/w"}}}}})",
       "plant.json:2:49: /s has no number at \"/w\" to be followed"},
      {R"({"resources": {"/s": {"content": {"value": "x"}}, "/a": {"content": {"v": 1}, "waves": {"/v":
       {"wave": "follow", "source": "/s"}}}}})",
       "plant.json:2:8: /s has no number at \"/value\" to be followed"},
      {R"({"resources": {"/a": {"content": {"v": 1}, "waves": {"/v":
       {"wave": "follow", "source": "/system", "at": "/name"}}}}})",
       "plant.json:2:54: /system has no number at \"/name\" to be followed"},
      {R"({"resources": {"/m": {"call": {}}, "/a": {"content": {"v": 1}, "waves": {"/v":
       {"wave": "follow", "source": "/m"}}}}})",
       "plant.json:2:37: /m is a method and has no content"},
      {"{\"resources\": {\"/a\": {\"call\": {\"reslut\": 1}}}}",
       "plant.json:1:42: unknown member \"reslut\""},
      {"{\"resources\": {\"/a\": {\"call\": {\"set\": 1}}}}",
       "plant.json:1:39: \"set\" must be an object of URIs and what updates them"},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(ErrorOf(each.text), each.error);
  }
}

TEST(ResourceFile, RangesMakeManyResources) {
  const auto description =
      ParseResources(R"({"resources": {"/bench/r{008..011}/x": {"content": {"v": 1}}}})", "f");
  ASSERT_EQ(description.resources.size(), 4U);
  EXPECT_EQ(description.resources.front().resource->Path(), "/bench/r008/x");
  EXPECT_EQ(description.resources.back().resource->Path(), "/bench/r011/x");
}

TEST(ResourceFile, RangeMayEndAtTheHighestNumber) {
  const auto description = ParseResources(
      R"({"resources": {"/r{18446744073709551613..18446744073709551615}": {"content": 1}}})", "f");
  ASSERT_EQ(description.resources.size(), 3U);
  EXPECT_EQ(description.resources.back().resource->Path(), "/r18446744073709551615");
}

TEST(ResourceFile, RangesMakeABoundedNumberOfResources) {
  EXPECT_EQ(
      ErrorOf("{\"resources\": {\"/a{1..60000}\": {\"content\": 1},\n \"/b{1..40001}\": {\"content\": 1}}}"),
      "plant.json:2:18: all ranges together make at most 100000 resources");
}

TEST(ResourceFile, ResourcesMayBeNamedBeforeTheyAreDefined) {
  const auto description = ParseResources(
      R"({"resources": {
          "/a": {"content": {"v": 1, "w": 1}, "waves": {"/v": {"wave": "follow", "source": "r2"},
                                                        "/w": {"wave": "follow", "source": "/system", "at": "/state"}}},
          "/b": {"call": {"merge_into": "/r1", "set": {"r3": {"value": 2}}}},
          "/r{1..3}": {"content": {"value": 1}}}})",
      "f");
  EXPECT_EQ(description.resources.size(), 5U);
}

TEST(ResourceFile, WhatMayBecomeANumberCanBeFollowedAndHoldIntegers) {
  EXPECT_EQ(ErrorOf(R"({"resources": {
      "/s": {"content": {"none": null, "list": [], "on": true, "n": {"a": [1, null], "t": "x"}},
             "integers": ["/none", "/list", "/n"],
             "waves": {"/list": {"wave": "sine", "count": 3, "integer": true}}},
      "/a": {"content": {"v": 1, "w": 1, "x": 1, "y": 1}, "waves": {
        "/v": {"wave": "follow", "source": "/s", "at": "/none"},
        "/w": {"wave": "follow", "source": "/s", "at": "/list/2"},
        "/x": {"wave": "follow", "source": "/s", "at": "/on"},
        "/y": {"wave": "follow", "source": "/faults", "at": "/lose"}}}}})"),
            "no error");
}

TEST(ResourceFile, DefaultsAreTheDocumentedOnes) {
  const auto description = ParseResources(
      R"({"rate_hz": 5, "resources": {"still": {"content": {"v": 1}},
          "/wave": {"content": {"v": 1}, "waves": {"v": {"wave": "sine"}}, "rate_hz": 1000},
          "/method": {"call": {}}}})",
      "f");
  ASSERT_EQ(description.resources.size(), 3U);
  EXPECT_EQ(description.name, "zosensor");
  EXPECT_TRUE(description.running);
  const Resource& still = *description.resources[0].resource;
  EXPECT_EQ(still.Path(), "/still");
  EXPECT_TRUE(still.streamable);
  EXPECT_FALSE(still.measurement);
  EXPECT_TRUE(still.rules.ReadOnly());
  EXPECT_EQ(still.period, std::chrono::milliseconds(200));
  const Resource& wave = *description.resources[1].resource;
  EXPECT_TRUE(wave.measurement);
  EXPECT_EQ(wave.period, std::chrono::milliseconds(1));
  const Resource& method = *description.resources[2].resource;
  EXPECT_FALSE(method.hasContent);
  EXPECT_FALSE(method.streamable);
}

TEST(ResourceFile, TheDemoIsAValidFile) {
  const auto description = ParseResources(DemoResources(), "demo");
  EXPECT_GE(description.resources.size(), 12U);
}

TEST(ResourceFile, MissingFileAndFolderAreSaidSo) {
  ZoTest::TemporaryFolder folder;
  const std::string missing = (folder / "none.json").string();
  try {
    LoadResources(missing);
    ADD_FAILURE();
  } catch (const ResourceFileError& error) {
    EXPECT_EQ(error.what(), missing + ": No such file or directory");
  }
  try {
    LoadResources(folder.Path().string());
    ADD_FAILURE();
  } catch (const ResourceFileError& error) {
    EXPECT_EQ(error.what(), folder.Path().string() + ": it cannot be read");
  }
}

}  // namespace
}  // namespace ZoSensor
