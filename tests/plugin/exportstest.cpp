// The library file: what it exports and what it needs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/plugin/elffile.h"
#include "tests/support/deadline.h"
#include "tests/support/pluginlibrary.h"

namespace ZoTest {
namespace {

using ::testing::UnorderedElementsAre;

TEST(Exports, AreExactlyTheEightPlainNames) {
  std::vector<std::string> names;
  for (const DynamicSymbol& symbol : ElfFile(PluginLibrary::BuiltPath()).symbols) {
    if (symbol.defined) {
      names.push_back(symbol.name);
      EXPECT_FALSE(symbol.unique) << symbol.name;
    }
  }
  EXPECT_THAT(names, UnorderedElementsAre("CreateIoInstance", "DestroyIoInstance", "GetIoInfo", "ReadItem",
                                          "WriteItem", "SubscribeItems", "UnsubscribeItems", "CallMethod"));
}

TEST(Exports, NeedTheCAndCppRuntimeAlone) {
  const std::vector<std::string> runtime = {"libstdc++.so.", "libgcc_s.so.", "libc.so.",
                                            "libm.so.",      "ld-linux-",    "libpthread.so."};
  const std::vector<std::string> sanitizers = {"libasan.so.", "libubsan.so.", "libtsan.so."};
  const ElfFile file(PluginLibrary::BuiltPath());
  EXPECT_FALSE(file.needed.empty());
  for (const std::string& library : file.needed) {
    const auto begins = [&library](const std::string& prefix) { return library.starts_with(prefix); };
    EXPECT_TRUE(std::any_of(runtime.begin(), runtime.end(), begins) ||
                (kSanitized && std::any_of(sanitizers.begin(), sanitizers.end(), begins)))
        << library;
  }
}

// A name that the library defines for itself must not be looked up outside: a host that has it too would
// capture it.
TEST(Exports, LeaveNothingOfOurOwnOrOfBoostToTheHost) {
  for (const DynamicSymbol& symbol : ElfFile(PluginLibrary::BuiltPath()).symbols) {
    if (!symbol.defined) {
      EXPECT_EQ(symbol.name.find("boost"), std::string::npos) << symbol.name;
      EXPECT_EQ(symbol.name.find("ZoIO"), std::string::npos) << symbol.name;
      EXPECT_EQ(symbol.name.find("ZoJson"), std::string::npos) << symbol.name;
      EXPECT_EQ(symbol.name.find("qThread_"), std::string::npos) << symbol.name;
    }
  }
}

}  // namespace
}  // namespace ZoTest
