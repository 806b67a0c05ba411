// Many items that the sensor does not have must not spoil those that it has.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "tests/wire/emulator.h"
#include "tests/wire/wiretest.h"

namespace ZoTest {
namespace {

class MissingItems : public WireTest {
 protected:
  static constexpr int Count = 1000;

  static std::string Name(const std::string& kind, int number) {
    const std::string digits = std::to_string(10000 + number).substr(1);
    return "/" + kind + "/r" + digits + "#/v";
  }
  static std::string Resource(const std::string& kind, int number) {
    const std::string name = Name(kind, number);
    return name.substr(0, name.find('#'));
  }

  // A thousand streams at the usual ten pushes a second would be a test of the machine.
  Emulator sensor{R"({"rate_hz": 1, "resources": {"/good/r{0001..1000}": {"content": {"v": 5}}}})"};
  void* handle = Connect(sensor.Port());
};

TEST_F(MissingItems, LeaveTheOthersReadableAndBecomeValidWhenTheyAppear) {
  Clock::duration slowest{};
  // One round of reads of good items: all granted, the slowest noted.
  const auto readGood = [&] {
    for (int i = 1; i <= Count; ++i) {
      const Stopwatch watch;
      ASSERT_EQ(Read(handle, Name("good", i)), 0) << i;
      slowest = std::max(slowest, watch.Elapsed());
    }
  };
  for (int i = 1; i <= Count; ++i) {
    ASSERT_EQ(Read(handle, Name("late", i)), 1) << i;
  }
  // Long enough for passes of the registry to fall into it.
  const Deadline passes(std::chrono::milliseconds(2500));
  while (!passes.Expired()) {
    readGood();
    recorder.Clear();
  }
  for (int i = 1; i <= Count; i += 100) {
    sensor.Put(Resource("late", i), "{\"v\":" + std::to_string(i) + "}");
  }
  for (int i = 1; i <= Count; i += 100) {
    EXPECT_TRUE(WaitReadable(handle, Name("late", i))) << i;
    EXPECT_EQ(ValueOf(handle, Name("late", i)), "2:" + std::to_string(i));
  }
  EXPECT_EQ(Read(handle, Name("late", 2)), 1);
  readGood();
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count();
  RecordProperty("slowest_ms", static_cast<int>(milliseconds));
  std::cout << "slowest read of a good item among " << Count << " missing ones: " << milliseconds << " ms\n";
  EXPECT_LT(milliseconds, kSanitized ? 5000 : 1000);
}

TEST_F(MissingItems, SubscribedAmongOthersLeaveTheirValuesFlowing) {
  std::vector<std::string> names;
  for (int i = 1; i <= Count; ++i) {
    names.push_back(Name("good", i));
    names.push_back(Name("late", i));
  }
  EXPECT_EQ(Subscribe(handle, names), 0);
  EXPECT_EQ(recorder.CountMessages("Resource streamed successfully."), std::size_t{Count});
  EXPECT_EQ(recorder.CountMessages("Resource subscribed successfully."), 1u);  // one pattern for all
  recorder.Clear();
  for (int i = 1; i <= Count; ++i) {
    ASSERT_TRUE(recorder.WaitForEntry(IsInteger(Name("good", i), 5))) << i;
  }
  for (const int i : {1, Count / 2, Count}) {
    sensor.Put(Resource("late", i), "{\"v\":" + std::to_string(i) + "}");
    EXPECT_TRUE(recorder.WaitForEntry(IsInteger(Name("late", i), i))) << i;
  }
  const Stopwatch watch;
  EXPECT_EQ(Destroy(handle), 0);
  EXPECT_LT(watch.Milliseconds().count(), 1000);
  std::cout << "destroyed with " << names.size() << " subscribed items: " << watch.Milliseconds().count()
            << " ms\n";
}

}  // namespace
}  // namespace ZoTest
