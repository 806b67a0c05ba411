// Item names that no configuration should hold: none of them harms the process or the other items.
#include <gtest/gtest.h>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

std::string Repeated(const std::string& part, std::size_t length) {
  std::string text;
  while (text.size() < length) {
    text += part;
  }
  return text;
}

constexpr std::size_t kLong = 64 * 1024;

const std::vector<std::string>& OddNames() {
  static const std::vector<std::string> names = {
      "",
      "#",
      "##",
      "###",
      "/",
      "//",
      "////",
      "#/",
      "#//",
      "/#",
      "/#/",
      "//#//",
      "x",
      "x#",
      "#x",
      // percent and tilde in every place
      "%20",
      "#%20",
      "#/%20",
      "%20#%20",
      "a%20b#/c%20d",
      "%",
      "%2",
      "%2#/%2",
      "%20%20%20#/%20/%20",
      "a%2520#/%2520",
      "~",
      "~0",
      "~1",
      "~2",
      "~#~",
      "a~b#/c~d",
      "#/~",
      "#/~0",
      "#/~1",
      "#/~01",
      "~1~0#/~1~0",
      "a~1b#/a~1b",
      "a#/b~",
      // blanks and control characters
      " ",
      "  #  ",
      "a b#/c d",
      "\t",
      "\n#/\n",
      "a\r\nb#/\x01\x7f",
      "#/ / / ",
      // several fragments
      "a#/b#/c",
      "a#b#c#d",
      "a##/b",
      "/a#/b#",
      // no UTF-8
      "\xff",
      "\xff\xfe#/\xff",
      "\xc3#/\xa4",
      "\xed\xa0\x80#/\xed\xa0\x80",
      "a\xf0\x9f#/b",
      // JSON's own characters, numbers
      "\"",
      "\\#/\\",
      "{}#/{}",
      "[0]#/[0]",
      "a#/-",
      "a#/0",
      "a#/00",
      "a#/-1",
      "a#/99999999999999999999",
      "a#/1e9",
      "null#/null",
      "*#/*",
      "../..#/..",
  };
  return names;
}

const std::vector<std::string>& LongNames() {
  static const std::vector<std::string> names = {
      std::string(kLong, 'x'),
      std::string(kLong, '/'),
      std::string(kLong, '#'),
      std::string(kLong, '~'),
      std::string(kLong, ' '),
      std::string(kLong, '\xff'),
      Repeated("/a", kLong),
      Repeated("a/", kLong),
      "b#" + Repeated("/a", kLong),
      "c#" + Repeated("a/", kLong),
      "d#" + std::string(kLong, '/'),
      "e#" + Repeated("%20", kLong),
      "f#/" + Repeated("%20/", kLong),
      "g#" + std::string(kLong, ' '),
      Repeated("/a", kLong / 2) + "#" + Repeated("/b", kLong / 2),
      "h#/" + std::string(kLong, 'y'),
  };
  return names;
}

class OddItemNames : public PluginTest {
 protected:
  OddItemNames() : handle(Create()) {}

  // Two more passes of the simulator reach an ordinary item.
  void ExpectOthersGoOn() {
    Subscribe(handle, {"ordinary#/int"});
    ASSERT_TRUE(recorder.WaitForEntry(IsOfType("ordinary#/int", enumtype_int64)));
    recorder.Clear();
    Write(handle, "ordinary#/int", IntegerValue(40));
    EXPECT_TRUE(recorder.WaitForEntry(IsInteger("ordinary#/int", 41)));
    EXPECT_TRUE(recorder.WaitForEntry(IsInteger("ordinary#/int", 42)));
    EXPECT_EQ(
        recorder.Count([](const Entry& entry) { return entry.kind == Entry::Kind::Log && entry.level >= 4; }),
        0u);
  }

  void* handle;
};

TEST_F(OddItemNames, CanBeReadAndWritten) {
  for (const auto* names : {&OddNames(), &LongNames()}) {
    for (const std::string& name : *names) {
      recorder.Clear();
      EXPECT_EQ(Read(handle, name), 0) << name.substr(0, 50);
      EXPECT_EQ(recorder.CountValues(name), 1u) << name.substr(0, 50);
      EXPECT_EQ(Write(handle, name, IntegerValue(1)), 0) << name.substr(0, 50);
      EXPECT_EQ(recorder.CountMessages("Reading item " + name), 1u);
      EXPECT_EQ(recorder.CountMessages("Writing to item " + name), 1u);
      EXPECT_EQ(recorder.CountMessages(name + " created."), 1u);
      EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level >= 4; }), 0u)
          << name.substr(0, 50);
    }
  }
}

// Each in an instance of its own, so that no other odd name stands in its way: every one of them gets a
// number.
TEST_F(OddItemNames, AllGetValuesWhenAlone) {
  struct Single {
    Recorder recorder;
    void* handle = nullptr;
  };
  constexpr std::size_t kAtOnce = 20;
  for (std::size_t first = 0; first < OddNames().size(); first += kAtOnce) {
    const std::size_t count = std::min(kAtOnce, OddNames().size() - first);
    std::vector<Single> singles(count);
    for (std::size_t i = 0; i < count; ++i) {
      const std::string& name = OddNames()[first + i];
      singles[i].handle = Create("simulator", 0, singles[i].recorder.Param());
      std::vector<int> codes;
      EXPECT_EQ(ZoTest::Subscribe(plugin, singles[i].handle, 100, {name}, &codes), 0) << name;
      EXPECT_EQ(codes, std::vector<int>{2}) << name;
    }
    for (std::size_t i = 0; i < count; ++i) {
      const std::string& name = OddNames()[first + i];
      EXPECT_TRUE(singles[i].recorder.WaitForEntry(IsInteger(name, 0))) << "\"" << name << "\"";
      EXPECT_EQ(singles[i].recorder.Count([](const Entry& entry) { return entry.level >= 4; }), 0u) << name;
    }
    for (Single& single : singles) {
      EXPECT_EQ(Destroy(single.handle), 0);
    }
  }
}

TEST_F(OddItemNames, CanAllBeSubscribedTogether) {
  std::vector<std::string> names = OddNames();
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, names, 500, &codes), 0);
  EXPECT_EQ(codes, std::vector<int>(names.size(), 2));
  for (const std::string& name : names) {
    EXPECT_TRUE(recorder.WaitForValue(name)) << name;
  }
  ExpectOthersGoOn();
  EXPECT_EQ(Unsubscribe(handle, names), 0);
  ExpectOthersGoOn();
}

TEST_F(OddItemNames, OfSixtyFourKilobytesGetValues) {
  EXPECT_EQ(Subscribe(handle, LongNames(), 500), 0);
  for (const std::string& name : LongNames()) {
    EXPECT_TRUE(recorder.WaitForEntry(IsOfType(name, enumtype_int64))) << name.substr(0, 50);
  }
  ExpectOthersGoOn();
  EXPECT_EQ(Unsubscribe(handle, LongNames()), 0);
}

TEST_F(OddItemNames, InMethodArgumentsDoNoHarm) {
  for (const std::string uri : {"", "/", "//", "#", "~", "%20", "a/b", "\\u0000", "\\n"}) {
    for (const char* method : {"Read", "Create", "Update", "Delete", "Call"}) {
      EXPECT_EQ(Call(handle, method, "{\"uri\":\"" + uri + "\",\"args\":\"{}\"}"), 0) << method << " " << uri;
    }
  }
  ExpectOthersGoOn();
}

}  // namespace
}  // namespace ZoTest
