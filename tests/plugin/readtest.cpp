// ReadItem on the simulator. A simulated read first replaces the resource by the text of its URI, so what an
// item then holds depends on where its pointer leads inside that text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

class Reading : public PluginTest {
 protected:
  Reading() : handle(Create()) { recorder.Clear(); }

  // Reads an item and describes the one value that must have come before the read returned.
  std::string ValueOf(const std::string& name) {
    recorder.Clear();
    EXPECT_EQ(Read(handle, name), 0) << name;
    const auto values = recorder.Values(name);
    EXPECT_EQ(values.size(), 1u) << name;
    return values.empty() ? "none" : Describe(values[0]);
  }

  void* handle;
};

TEST_F(Reading, AnEmptyFragmentNamesTheWholeResourceWhichIsItsUri) {
  EXPECT_EQ(ValueOf("res#"), "0:res");
  EXPECT_EQ(ValueOf("/res/sub#"), "0:/res/sub");
  EXPECT_EQ(ValueOf("a b%20c#"), "0:a b%20c");
}

TEST_F(Reading, APointerIntoTheUriTextFindsNothing) {
  EXPECT_EQ(ValueOf("res#/a"), "5:INVALID");
  EXPECT_EQ(ValueOf("res#/int"), "5:INVALID");
  EXPECT_EQ(ValueOf("res#a/b/c"), "5:INVALID");
  EXPECT_EQ(ValueOf("/res/sub#/0"), "5:INVALID");
}

TEST_F(Reading, ANameWithoutFragmentIsItsOwnPointerAndFindsNothing) {
  EXPECT_EQ(ValueOf("x"), "5:INVALID");
  EXPECT_EQ(ValueOf("/res/sub"), "5:INVALID");
}

TEST_F(Reading, TheEmptyNameReadsTheResourceWithTheEmptyUri) {
  EXPECT_EQ(ValueOf(""), "0:");
  EXPECT_EQ(ValueOf("#"), "0:");
  EXPECT_EQ(ValueOf("#/x"), "5:INVALID");
}

TEST_F(Reading, TheRecordIsCleanAndTheCallbackComesOnTheCallersThread) {
  EXPECT_EQ(Read(handle, "res#"), 0);
  EXPECT_EQ(Read(handle, "res#/a"), 0);
  for (const char* name : {"res#", "res#/a"}) {
    const auto values = recorder.Values(name);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].value.status, 0);
    EXPECT_EQ(values[0].value.reserved, 0u);
    EXPECT_EQ(values[0].thread, static_cast<std::uint64_t>(::syscall(SYS_gettid)));
  }
}

TEST_F(Reading, TheValueComesAfterTheLogLines) {
  EXPECT_EQ(Read(handle, "res#"), 0);
  const auto all = recorder.All();
  ASSERT_EQ(all.size(), 4u);
  EXPECT_TRUE(all[0].IsLog("Reading item res#"));
  EXPECT_TRUE(all[3].IsValue("res#"));
}

TEST_F(Reading, EveryReadDeliversAValue) {
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(Read(handle, "res#/a"), 0);
  }
  EXPECT_EQ(recorder.CountValues("res#/a"), 100u);
}

// The next pass of the simulator builds the resource anew around its items, and their values start again.
TEST_F(Reading, AReplacedResourceIsRebuiltByTheNextPass) {
  Subscribe(handle, {"res#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 1)));
  std::this_thread::sleep_for(std::chrono::milliseconds(2));  // the pass has left this millisecond taken
  EXPECT_EQ(ValueOf("res#/int"), "5:INVALID");
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 0)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 1)));
}

// Two items on "res" now: of their pass the cache may keep the first document only, so that the 0 need not be seen.
TEST_F(Reading, AReadOfOneItemInvalidatesItsNeighboursUntilTheNextPass) {
  Subscribe(handle, {"res#/int", "other#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 2)));
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("other#/int", 2)));
  std::this_thread::sleep_for(std::chrono::milliseconds(2));  // the pass has left this millisecond taken
  recorder.Clear();
  EXPECT_EQ(Read(handle, "res#/other"), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("res#/int", enumtype_invalid)));
  EXPECT_TRUE(recorder.WaitForEntry(IsIntegerIn("res#/int", 0, 1)));
  EXPECT_TRUE(recorder.WaitForEntry(IsIntegerIn("other#/int", 4, 9)));
  EXPECT_EQ(recorder.Count(IsOfType("other#/int", enumtype_invalid)), 0u);
  EXPECT_EQ(recorder.Count(IsIntegerIn("other#/int", 0, 1)), 0u);
}

// A resource that holds its URI text is a string from then on: letters change their case, nothing else.
TEST_F(Reading, TheUriTextFlickersAfterwards) {
  EXPECT_EQ(ValueOf("/abcdefghijklmnop/1#"), "0:/abcdefghijklmnop/1");
  Subscribe(handle, {"/abcdefghijklmnop/1#"});
  EXPECT_TRUE(recorder.WaitForEntry([](const Entry& entry) {
    return entry.IsValue("/abcdefghijklmnop/1#") && entry.value.type == enumtype_string &&
           entry.valueText != "/abcdefghijklmnop/1" &&
           ::strcasecmp(entry.valueText.c_str(), "/abcdefghijklmnop/1") == 0;
  }));
}

TEST_F(Reading, AnItemThatHoldsATextIsSubscribedWithItsKind) {
  EXPECT_EQ(ValueOf("res#"), "0:res");
  EXPECT_EQ(ValueOf("other#/a"), "5:INVALID");
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, {"res#", "other#/a", "fresh#"}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(0, 2, 2));
}

// One lock holds all exports apart: while a callback of one call runs, no other call gets in.
TEST_F(Reading, OtherExportsWaitForABlockedCallback) {
  Gate gate;
  recorder.OnValue([&gate](const Entry&) { gate.Wait(); });
  auto reading = std::async(std::launch::async, [this] { return Read(handle, "res#"); });
  ASSERT_TRUE(gate.WaitForArrivals());
  auto asking = std::async(std::launch::async, [this] {
    plugin.getIoInfo();
    return Clock::now();
  });
  // Long enough that an unhindered call would be over; it can only hide a fault, not make one.
  EXPECT_EQ(asking.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  const auto opened = Clock::now();
  gate.Open();
  EXPECT_EQ(reading.get(), 0);
  EXPECT_GE(asking.get(), opened);
  recorder.OnValue({});
}

}  // namespace
}  // namespace ZoTest
