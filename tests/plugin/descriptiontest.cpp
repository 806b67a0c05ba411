// The plug-in's description, word by word.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

template <typename T>
T FieldAt(const void* record, std::size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const char*>(record) + offset, sizeof value);
  return value;
}

using Description = PluginTest;

TEST_F(Description, IsCompleteBeforeAnyInstanceExists) {
  const void* info = plugin.getIoInfo();
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(FieldAt<std::uint32_t>(info, 0), 0u);
  EXPECT_EQ(FieldAt<std::uint32_t>(info, 4), 0x00010005u);
  EXPECT_EQ(FieldAt<std::uint32_t>(info, 8), 0u);
  EXPECT_EQ(FieldAt<std::uint32_t>(info, 12), 0x00010004u);
  EXPECT_STREQ(FieldAt<const char*>(info, 16), "ZoIoHandler");
  EXPECT_STREQ(FieldAt<const char*>(info, 24), "ZoIoHandler Description");
  EXPECT_EQ(FieldAt<std::uint32_t>(info, 32), 1u);
  EXPECT_EQ(FieldAt<std::uint32_t>(info, 36), 1u);
  EXPECT_NE(FieldAt<const void*>(info, 40), nullptr);
  EXPECT_EQ(FieldAt<std::uint64_t>(info, 48), 1u);
}

TEST_F(Description, OffersOneParameter) {
  const void* parameter = FieldAt<const void*>(plugin.getIoInfo(), 40);
  ASSERT_NE(parameter, nullptr);
  EXPECT_STREQ(FieldAt<const char*>(parameter, 0), "Zomira Application ID (Optional)");
  EXPECT_STREQ(FieldAt<const char*>(parameter, 8), "Zomira Application Identifier");
  EXPECT_EQ(FieldAt<std::uint64_t>(parameter, 16), 1u);
}

TEST_F(Description, StaysAtItsAddressWhateverHappens) {
  const ioInfo* first = plugin.getIoInfo();
  EXPECT_EQ(plugin.getIoInfo(), first);
  void* handle = Create();
  EXPECT_EQ(plugin.getIoInfo(), first);
  Destroy(handle);
  EXPECT_EQ(plugin.getIoInfo(), first);
  EXPECT_STREQ(first->name, "ZoIoHandler");
}

}  // namespace
}  // namespace ZoTest
