// The program and the real plug-in at the emulated sensor's demo: what is browsed is what there is, and can be read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/wire/emulator.h"
#include "tests/zohost/hosttest.h"
#include "tools/zosensor/demo.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace {

using testing::HasSubstr;

// A line such as "/motor#/speed = 1.5 (double)".
struct Line {
  std::string value;
  std::string kind;
};

class ZohostAtSensor : public testing::Test {
 protected:
  ZohostAtSensor() {
    // Nothing moves, comes or goes while two commands are compared; the uptime alone does.
    sensor.Post("/system/stop");
    sensor.Put("/machine/late", R"({"value":0.1})");
    ZoSensor::AskHttp(sensor.Port(), "DELETE", "/vyrn/v1/resources/machine/fleeting");
  }

  Result Ask(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin() + 1, {"127.0.0.1", "--port", std::to_string(sensor.Port())});
    return RunProgram(Zohost(arguments, ""));
  }

  static std::map<std::string, Line> Tags(const std::string& out) {
    std::map<std::string, Line> tags;
    for (const std::string& line : SplitLines(out)) {
      const auto equals = line.find(" = ");
      const auto kind = line.rfind(" (");
      if (equals == std::string::npos || kind == std::string::npos || !line.ends_with(')')) {
        ADD_FAILURE() << "no tag: " << line;
        continue;
      }
      const Line tag{line.substr(equals + 3, kind - equals - 3),
                     line.substr(kind + 2, line.size() - kind - 3)};
      EXPECT_TRUE(tags.emplace(line.substr(0, equals), tag).second) << "twice: " << line;
    }
    return tags;
  }

  // All leaves of all contents, as the sensor itself tells them. (No name in the demo needs to be escaped.)
  std::map<std::string, ZoJson> Leaves() const {
    std::map<std::string, ZoJson> leaves;
    const ZoJson root = ZoJson::ParseString(sensor.Content("/"));
    for (ZoJsonIterator entry(root.At("resources")); entry.Valid(); entry.Next()) {
      const auto uri = entry.Value().Get<std::string>();
      const ZoSensor::HttpAnswer answer = ZoSensor::AskHttp(sensor.Port(), "GET", "/vyrn/v1/resources" + uri);
      if (answer.status == 200) {
        Collect(ZoJson::ParseString(answer.body).At("payload"), uri + "#", leaves);
      }
    }
    return leaves;
  }

  static void Collect(const ZoJson& node, const std::string& name, std::map<std::string, ZoJson>& leaves) {
    if (node.IsPrimitive()) {
      leaves.emplace(name, node);
    }
    std::size_t index = 0;
    for (ZoJsonIterator part(node); part.Valid(); part.Next()) {
      const std::string key = node.IsArray() ? std::to_string(index++) : std::string(part.Key());
      Collect(part.Value(), name + "/" + key, leaves);
    }
  }

  static void ExpectShown(const Line& tag, const ZoJson& leaf, const std::string& name) {
    switch (leaf.GetKind()) {
      case ZoJson::Kind::Boolean:
        EXPECT_EQ(tag.kind, "bool") << name;
        EXPECT_EQ(tag.value, leaf.ToString()) << name;
        break;
      case ZoJson::Kind::Float:
        EXPECT_EQ(tag.kind, "double") << name;
        EXPECT_EQ(std::stof(tag.value), leaf.Get<float>()) << name;
        break;
      case ZoJson::Kind::String:
        EXPECT_EQ(tag.kind, "string") << name;
        EXPECT_EQ(tag.value, leaf.Get<std::string>()) << name;
        break;
      case ZoJson::Kind::Null:
        EXPECT_EQ(tag.kind, "invalid") << name;
        EXPECT_EQ(tag.value, "INVALID") << name;
        break;
      default:
        EXPECT_EQ(tag.kind, leaf.IsInteger() ? "int" : "uint") << name;
        EXPECT_EQ(tag.value, leaf.ToString()) << name;
    }
  }

  ZoTest::Emulator sensor{std::string(ZoSensor::DemoResources())};
};

constexpr const char* uptime = "/system#/uptime_ms";
constexpr const char* nothing = "/machine/recipe#/note";  // null: a place without a value

TEST_F(ZohostAtSensor, BrowseListsEveryTagWithItsKindAndValue) {
  const Result result = Ask({"browse"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  std::map<std::string, Line> tags = Tags(result.out);
  const std::map<std::string, ZoJson> leaves = Leaves();
  EXPECT_GT(leaves.size(), 80u);
  for (const auto& [name, leaf] : leaves) {
    const auto tag = tags.find(name);
    if (tag == tags.end()) {
      ADD_FAILURE() << name << " is not listed";
      continue;
    }
    if (name == uptime) {
      EXPECT_EQ(tag->second.kind, "int");
    } else {
      ExpectShown(tag->second, leaf, name);
    }
    tags.erase(tag);
  }
  for (const auto& tag : tags) {
    ADD_FAILURE() << tag.first << " is listed, but is not there";
  }
}

TEST_F(ZohostAtSensor, EveryTagThatIsListedCanBeReadAndReadsTheSame) {
  const std::map<std::string, Line> listed = Tags(Ask({"browse"}).out);
  std::vector<std::string> arguments = {"read"};
  for (const auto& [name, tag] : listed) {
    if (name != nothing) {
      arguments.push_back(name);
    }
  }
  ASSERT_GT(arguments.size(), 80u);
  const Result result = Ask(arguments);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  const std::map<std::string, Line> read = Tags(result.out);
  EXPECT_EQ(read.size(), arguments.size() - 1);
  for (const auto& [name, tag] : read) {
    EXPECT_EQ(tag.kind, listed.at(name).kind) << name;
    if (name != uptime) {
      EXPECT_EQ(tag.value, listed.at(name).value) << name;
    }
  }
}

TEST_F(ZohostAtSensor, ANullIsListedAsInvalidAndCannotBeRead) {
  const Result browse = Ask({"browse", "/machine/recipe"});
  EXPECT_EQ(browse.status, 0) << browse.err;
  EXPECT_THAT(browse.out, HasSubstr(std::string(nothing) + " = INVALID (invalid)\n"));
  const Result read = Ask({"read", nothing});
  EXPECT_EQ(read.status, 1);
  EXPECT_THAT(read.err, HasSubstr(std::string(nothing) + " could not be read."));
}

TEST_F(ZohostAtSensor, BrowseOfAMethodListsNothingAndOfWhatIsNotThereIsRefused) {
  const Result method = Ask({"browse", "/machine/move"});
  EXPECT_EQ(method.status, 0) << method.err;
  EXPECT_EQ(method.out, "");
  const Result absent = Ask({"browse", "/machine/none"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_THAT(absent.err, HasSubstr("/machine/none could not be read."));
}

}  // namespace
