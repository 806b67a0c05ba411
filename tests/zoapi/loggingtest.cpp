#include "zoapi/logging.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/zoapi/debuglogrecorder.h"

namespace {

using Zo::Logging::SetDebugLogSink;
using Zo::Logging::Zo_Debug_Log;

constexpr std::uint64_t faultInDestructor = 0x8000000000000002;

TEST(DebugLog, GoesToStandardErrorAsOneLine) {
  testing::internal::CaptureStderr();
  Zo_Debug_Log(59, "some/source", faultInDestructor, "Some::Function", "text");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "[Some::Function](some/source:59) text (flags 0x8000000000000002)\n");
}

TEST(DebugLog, NullTextsAreEmpty) {
  testing::internal::CaptureStderr();
  Zo_Debug_Log(1, nullptr, 0, nullptr, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[](:1)  (flags 0x0)\n");
}

TEST(DebugLog, SinkTakesTheEntriesInsteadOfStandardError) {
  testing::internal::CaptureStderr();
  {
    const ZoTest::DebugLogRecorder log;
    Zo_Debug_Log(7, "source", 3, "Function", "text");
    ASSERT_EQ(log.Entries().size(), 1u);
    EXPECT_EQ(log.Entries()[0].line, 7);
    EXPECT_EQ(log.Entries()[0].source, "source");
    EXPECT_EQ(log.Entries()[0].flags, 3u);
    EXPECT_EQ(log.Entries()[0].function, "Function");
    EXPECT_EQ(log.Entries()[0].text, "text");
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DebugLog, ReplacedSinkIsHandedBack) {
  int calls = 0;
  EXPECT_FALSE(SetDebugLogSink([&calls](const auto&) { ++calls; })) << "standard error is no sink";
  Zo::Logging::DebugLogSink first = SetDebugLogSink({});
  ASSERT_TRUE(first);
  testing::internal::CaptureStderr();
  Zo_Debug_Log(1, "source", 0, "Function", "text");
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(calls, 0);
  SetDebugLogSink(std::move(first));
  Zo_Debug_Log(1, "source", 0, "Function", "text");
  EXPECT_EQ(calls, 1);
  SetDebugLogSink({});
}

TEST(DebugLog, EntryThatASinkFailsToTakeGoesToStandardError) {
  for (const bool standard : {true, false}) {
    SetDebugLogSink([standard](const auto&) {
      if (standard) {
        throw std::runtime_error("full");
      }
      throw 1;
    });
    testing::internal::CaptureStderr();
    Zo_Debug_Log(1, "source", 0, "Function", "text");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[Function](source:1) text (flags 0x0)\n");
  }
  SetDebugLogSink({});
}

TEST(DebugLog, ManyThreadsMayLogWhileTheSinkIsReplaced) {
  constexpr int perThread = 500;
  const ZoTest::DebugLogRecorder outer;
  std::size_t inner = 0;  // written under the log's own lock
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int j = 0; j < perThread; ++j) {
        Zo_Debug_Log(j, "source", 0, "Function", "text");
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    Zo::Logging::DebugLogSink before = SetDebugLogSink([&inner](const auto&) { ++inner; });
    SetDebugLogSink(std::move(before));
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(outer.Entries().size() + inner, 4u * perThread);
}

}  // namespace
