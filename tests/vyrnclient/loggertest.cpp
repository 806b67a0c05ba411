// One log line, letter by letter.
#include "zoiohandler/vyrnclient/logger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <future>
#include <iostream>
#include <locale>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "qapi/thread.h"
#include "tests/qapi/failingnew.h"
#include "tests/support/recorder.h"
#include "zoiohandler/vyrnclient/callbackgate.h"

namespace ZoTest {
namespace {

using ZoIO::WriteLog;

class Logger : public ::testing::Test {
 protected:
  Recorder recorder;
  ZoIO::Logger logger{&recorder, &Recorder::HandleLog};

  // For when there is no memory to record with: everything that is delivered, in a place that has enough of it.
  std::string lines = std::string(8192, ' ');
  ZoIO::Logger counted{this, [](void* context, std::int32_t, const char* text) {
                         static_cast<Logger*>(context)->lines += text;
                       }};
};

std::string OwnThread() {
  return std::to_string(qThread_CurrentId());
}

TEST_F(Logger, LineIsFunctionThreadMessageAndNewlineWithoutBlanks) {
  WriteLog(logger, "Some message.", 2, "ZoIO::Some::Function");
  const Recorder::Entries entries = recorder.All();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].text, "[ZoIO::Some::Function](" + OwnThread() + ")Some message.\n");
}

TEST_F(Logger, CallbackRunsOnTheWritingThreadBeforeTheWriteReturns) {
  WriteLog(logger, "x", 2, "f");
  ASSERT_EQ(recorder.Size(), 1u);
  EXPECT_EQ(recorder.All()[0].thread, qThread_CurrentId());
}

TEST_F(Logger, EmptyMessageStillGivesALine) {
  WriteLog(logger, "", 4, "f");
  ASSERT_EQ(recorder.Size(), 1u);
  EXPECT_EQ(recorder.All()[0].text, "[f](" + OwnThread() + ")\n");
}

TEST_F(Logger, MessageWithNewlinesArrivesInOneCallback) {
  WriteLog(logger, "a\nb\n\nc\n", 2, "f");
  ASSERT_EQ(recorder.Size(), 1u);
  EXPECT_EQ(recorder.All()[0].text, "[f](" + OwnThread() + ")a\nb\n\nc\n\n");
}

TEST_F(Logger, LineThatFindsNoMemoryIsLostAsAWhole) {
  const std::string message(2000, 'x');
  const std::string whole = "[f](" + OwnThread() + ")" + message + "\n";
  std::size_t lost = 0;
  for (int nth = 1; nth < 100; ++nth) {
    lines.clear();
    bool failed = false;
    {
      const FailingNew failing(nth);
      WriteLog(counted, message, 2, "f");
      failed = failing.HasFailed();
    }
    if (!failed) {
      EXPECT_EQ(lines, whole);
      break;
    }
    EXPECT_EQ(lines, "");
    ++lost;
  }
  EXPECT_GT(lost, 0u);
  EXPECT_LT(lost, 99u);
}

TEST_F(Logger, LongMessageArrivesWhole) {
  const std::string message(1 << 20, 'x');
  WriteLog(logger, message, 2, "f");
  ASSERT_EQ(recorder.Size(), 1u);
  EXPECT_EQ(recorder.All()[0].message, message);
}

TEST_F(Logger, LevelIsHandedOnUnchanged) {
  const int levels[] = {2, 3, 4, 5, 6, 0, -1, INT_MAX, INT_MIN};
  for (const int level : levels) {
    recorder.Clear();
    WriteLog(logger, "x", level, "f");
    ASSERT_EQ(recorder.Size(), 1u);
    EXPECT_EQ(recorder.All()[0].level, level);
  }
}

TEST_F(Logger, LevelsBearTheirNumbers) {
  EXPECT_EQ(ZoIO::LogLevel_Info, 2);
  EXPECT_EQ(ZoIO::LogLevel_Notice, 3);
  EXPECT_EQ(ZoIO::LogLevel_Warning, 4);
  EXPECT_EQ(ZoIO::LogLevel_Error, 5);
  EXPECT_EQ(ZoIO::LogLevel_Critical, 6);
}

TEST_F(Logger, WithoutCallbackTheBareMessageGoesToStandardOutput) {
  const ZoIO::Logger silent(&recorder, nullptr);
  ::testing::internal::CaptureStdout();
  WriteLog(silent, "Some message.", 5, "ZoIO::Some::Function");
  WriteLog(silent, "", 2, "f");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Some message.\n\n");
  EXPECT_EQ(recorder.Size(), 0u);
}

// Stands in for the buffer of standard output, and counts how often it is flushed.
class CountingOutput : public std::stringbuf {
 public:
  CountingOutput() : before(std::cout.rdbuf(this)) {}
  CountingOutput(const CountingOutput&) = delete;
  CountingOutput& operator=(const CountingOutput&) = delete;
  ~CountingOutput() override { std::cout.rdbuf(before); }

  int flushes = 0;

 protected:
  int sync() override {
    ++flushes;
    return std::stringbuf::sync();
  }

 private:
  std::streambuf* const before;
};

TEST_F(Logger, WithoutCallbackEachMessageIsFlushed) {
  const ZoIO::Logger silent(&recorder, nullptr);
  const CountingOutput output;
  WriteLog(silent, "One.", 2, "f");
  EXPECT_EQ(output.str(), "One.\n");
  EXPECT_EQ(output.flushes, 1);
  WriteLog(silent, "Two.", 2, "f");
  EXPECT_EQ(output.flushes, 2);
}

// Digits in groups of one, as no real locale has them.
class Grouping : public std::numpunct<char> {
 protected:
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\1"; }
};

class GlobalLocale {
 public:
  explicit GlobalLocale(const std::locale& locale) : before(std::locale::global(locale)) {}
  GlobalLocale(const GlobalLocale&) = delete;
  GlobalLocale& operator=(const GlobalLocale&) = delete;
  ~GlobalLocale() { std::locale::global(before); }

 private:
  std::locale before;
};

TEST_F(Logger, LocaleThatGroupsDigitsDoesNotChangeTheThreadNumber) {
  const GlobalLocale grouping(std::locale(std::locale::classic(), new Grouping));
  std::ostringstream check;
  check << 1234;
  ASSERT_EQ(check.str(), "1.2.3.4");
  WriteLog(logger, "x", 2, "f");
  ASSERT_EQ(recorder.Size(), 1u);
  EXPECT_EQ(recorder.All()[0].text, "[f](" + OwnThread() + ")x\n");
}

TEST_F(Logger, ThreadsThatLogAtOnceGiveWholeLines) {
  constexpr int threads = 4;
  constexpr int lines = 300;
  std::vector<std::thread> writers;
  for (int i = 0; i < threads; ++i) {
    writers.emplace_back([&, i] {
      for (int line = 0; line < lines; ++line) {
        WriteLog(logger, std::string(50, static_cast<char>('a' + i)) + std::to_string(line), 2, "f");
      }
    });
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  const Recorder::Entries entries = recorder.All();
  ASSERT_EQ(entries.size(), static_cast<std::size_t>(threads * lines));
  std::map<std::uint64_t, int> seen;
  for (const Entry& entry : entries) {
    const char letter = entry.message.empty() ? '?' : entry.message[0];
    EXPECT_EQ(entry.text, "[f](" + std::to_string(entry.thread) + ")" + std::string(50, letter) +
                              std::to_string(seen[entry.thread]++) + "\n");
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(threads));
}

TEST_F(Logger, CallbackThatRaisesGetsItsLineOnceAndHarmsNobody) {
  int calls = 0;
  recorder.OnLog([&calls](const Entry&) {
    ++calls;
    throw std::runtime_error("a host's fault");
  });
  WriteLog(logger, "x", 2, "f");
  EXPECT_EQ(calls, 1);
  recorder.OnLog({});
}

TEST_F(Logger, AfterItsGateClosedNothingArrives) {
  const auto gate = std::make_shared<ZoIO::CallbackGate>();
  const ZoIO::Logger gated(&recorder, &Recorder::HandleLog, gate);
  WriteLog(gated, "before", 2, "f");
  gate->Close();
  WriteLog(gated, "after", 2, "f");
  EXPECT_EQ(recorder.LogLines(), std::vector<std::string>{"2 f: before"});
}

TEST(CallbackGate, ClosesAtOnceWhenNoCallbackIsUnderWayAnyMore) {
  using Clock = std::chrono::steady_clock;
  // The shortest of some: a busy machine may hold up any of them.
  Clock::duration shortest = Clock::duration::max();
  for (int attempt = 0; attempt < 5; ++attempt) {
    ZoIO::CallbackGate gate;
    {
      const ZoIO::CallbackGate::Entry one(&gate);
      const ZoIO::CallbackGate::Entry another(&gate);
      EXPECT_TRUE(one && another);
    }
    const Clock::time_point begin = Clock::now();
    gate.Close();
    shortest = std::min(shortest, Clock::now() - begin);
  }
  EXPECT_LT(shortest, std::chrono::milliseconds(100));
}

TEST(CallbackGate, WhoHoldsAnEntryForSeveralCallbacksSeesItClose) {
  ZoIO::CallbackGate gate;
  const ZoIO::CallbackGate::Entry held(&gate);
  EXPECT_TRUE(held.StillOpen());
  gate.Close();
  EXPECT_FALSE(held.StillOpen());
  EXPECT_TRUE(static_cast<bool>(held));  // the callback that it was let in for may end
  const ZoIO::CallbackGate::Entry late(&gate);
  EXPECT_FALSE(late.StillOpen());
  const ZoIO::CallbackGate::Entry without(nullptr);
  EXPECT_TRUE(without.StillOpen());
}

TEST(CallbackGate, CallbackThatWasNotLetInIsNotUnderWay) {
  using Clock = std::chrono::steady_clock;
  // The shortest of some: a busy machine may hold up any of them.
  Clock::duration shortest = Clock::duration::max();
  for (int attempt = 0; attempt < 5; ++attempt) {
    ZoIO::CallbackGate gate;
    gate.Close();
    for (int i = 0; i < 3; ++i) {
      const ZoIO::CallbackGate::Entry late(&gate);
      EXPECT_FALSE(static_cast<bool>(late));
    }
    const Clock::time_point begin = Clock::now();
    gate.Close();
    shortest = std::min(shortest, Clock::now() - begin);
  }
  EXPECT_LT(shortest, std::chrono::milliseconds(100));
}

TEST(CallbackGate, WaitsAMomentForACallbackThatIsUnderWay) {
  using Clock = std::chrono::steady_clock;
  constexpr int attempts = 50;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    ZoIO::CallbackGate gate;
    std::promise<void> entered;
    std::atomic<bool> leaving = false;
    Clock::time_point left;
    std::thread callback([&] {
      const ZoIO::CallbackGate::Entry entry(&gate);
      entered.set_value();
      // Goes on until nobody is let in any more, and a little longer.
      while (ZoIO::CallbackGate::Entry(&gate)) {
        std::this_thread::yield();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      leaving = true;
      left = Clock::now();
    });
    entered.get_future().wait();
    const Clock::time_point begin = Clock::now();
    gate.Close();
    const bool waited = leaving;
    callback.join();
    // A callback that takes longer is not waited for; a busy machine may have made this one such.
    if (left - begin < std::chrono::milliseconds(100)) {
      EXPECT_TRUE(waited);
      return;
    }
  }
  FAIL() << "the machine held up the callback " << attempts << " times";
}

}  // namespace
}  // namespace ZoTest
