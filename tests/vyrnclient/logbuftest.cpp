// The buffer and the stream behind one log line.
#include "zoiohandler/vyrnclient/logbuf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/qapi/failingnew.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "zoiohandler/vyrnclient/logstream.h"

namespace ZoTest {
namespace {

using Traits = std::char_traits<char>;

// Opens the operations that streams use, and counts the characters that come through overflow.
class OpenBuffer : public ZoIO::LogBuf<char> {
 public:
  using ZoIO::LogBuf<char>::LogBuf;
  using ZoIO::LogBuf<char>::pptr;
  using ZoIO::LogBuf<char>::sync;

  int_type overflow(int_type character) override {
    ++overflows;
    return ZoIO::LogBuf<char>::overflow(character);
  }

  int overflows = 0;
};

class LogBuf : public ::testing::Test {
 protected:
  Recorder recorder;
  OpenBuffer buffer{&recorder, &Recorder::HandleLog, 3, nullptr};
};

using LogStream = LogBuf;

TEST_F(LogBuf, HasNoPutArea) {
  EXPECT_EQ(buffer.pptr(), nullptr);
  buffer.sputc('x');
  EXPECT_EQ(buffer.pptr(), nullptr);
}

TEST_F(LogBuf, EveryCharacterReachesOverflow) {
  buffer.sputc('a');
  EXPECT_EQ(buffer.overflows, 1);
  buffer.sputn("bcdef", 5);
  EXPECT_EQ(buffer.overflows, 6);
}

TEST_F(LogBuf, OverflowReturnsTheCharacterItTook) {
  EXPECT_EQ(buffer.overflow(Traits::to_int_type('x')), Traits::to_int_type('x'));
  EXPECT_EQ(buffer.overflow(Traits::to_int_type('\xff')), Traits::to_int_type('\xff'));
}

TEST_F(LogBuf, OverflowOfEndOfFileReturnsItAndAddsNothing) {
  EXPECT_EQ(buffer.overflow(Traits::eof()), Traits::eof());
  EXPECT_EQ(buffer.sync(), 0);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(LogBuf, NothingIsDeliveredBeforeSync) {
  buffer.sputn("text\n", 5);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(LogBuf, SyncDeliversContextLevelAndText) {
  buffer.sputn("text", 4);
  EXPECT_EQ(buffer.sync(), 0);
  const Recorder::Entries entries = recorder.All();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].text, "text");
  EXPECT_EQ(entries[0].level, 3);
}

TEST_F(LogBuf, SyncOfAnEmptyBufferGivesNoCallback) {
  EXPECT_EQ(buffer.sync(), 0);
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(LogBuf, SyncEmptiesTheBuffer) {
  buffer.sputn("first", 5);
  buffer.sync();
  EXPECT_EQ(buffer.sync(), 0);
  EXPECT_EQ(recorder.Size(), 1u);
  buffer.sputn("2nd", 3);
  buffer.sync();
  ASSERT_EQ(recorder.Size(), 2u);
  EXPECT_EQ(recorder.All()[1].text, "2nd");
}

TEST_F(LogBuf, SyncWithoutCallbackSucceeds) {
  OpenBuffer silent{&recorder, nullptr, 3, nullptr};
  silent.sputn("text", 4);
  EXPECT_EQ(silent.sync(), 0);
}

TEST_F(LogBuf, DestructionDoesNotDeliver) {
  {
    OpenBuffer other{&recorder, &Recorder::HandleLog, 3, nullptr};
    other.sputn("lost", 4);
  }
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(LogBuf, ClosedGateKeepsTheTextFromTheHost) {
  ZoIO::CallbackGate gate;
  OpenBuffer gated{&recorder, &Recorder::HandleLog, 3, &gate};
  gated.sputn("before", 6);
  gated.sync();
  gate.Close();
  gated.sputn("after", 5);
  EXPECT_EQ(gated.sync(), 0);
  ASSERT_EQ(recorder.Size(), 1u);
  EXPECT_EQ(recorder.All()[0].text, "before");
}

TEST_F(LogBuf, OneThreadWaitsWhileALineOfAnotherIsDelivered) {
  ZoIO::LogBuf<char> shared{&recorder, &Recorder::HandleLog, 3, nullptr};
  const std::function<void()> operations[] = {[&] { shared.Append({"2"}); }, [&] { shared.sputc('2'); },
                                              [&] { shared.pubsync(); }};
  for (const auto& operation : operations) {
    Gate gate;
    recorder.OnLog([&gate](const Entry&) { gate.Wait(); });
    shared.Append({"1"});
    std::thread first([&] { shared.pubsync(); });
    EXPECT_TRUE(gate.WaitForArrivals());
    recorder.OnLog({});
    std::atomic<bool> begun = false;
    std::atomic<bool> returned = false;
    std::thread second([&] {
      begun = true;
      operation();
      returned = true;
    });
    EXPECT_TRUE(Eventually([&] { return begun.load(); }));
    // From there it needs but the lock. A busy machine can only hide a fault.
    EXPECT_FALSE(Eventually([&] { return returned.load(); }, std::chrono::milliseconds(100)));
    gate.Open();
    first.join();
    second.join();
    shared.pubsync();
  }
  const Recorder::Entries entries = recorder.All();
  ASSERT_EQ(entries.size(), 5u);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(entries[i].text, i == 1 || i == 3 ? "2" : "1") << i;
  }
}

constexpr int rounds = 10'000;

// What the host got in all when two threads used one buffer at once, each for so many rounds.
std::string DeliveredOf(ZoIO::LogBuf<char>& buffer, const Recorder& recorder,
                        const std::function<void(int thread)>& once) {
  std::atomic<int> ready = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 2; ++thread) {
    threads.emplace_back([&, thread] {
      ++ready;
      while (ready < 2) {
        std::this_thread::yield();
      }
      for (int i = 0; i < rounds; ++i) {
        once(thread);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  buffer.pubsync();
  std::string all;
  for (const Entry& entry : recorder.All()) {
    all += entry.text;
  }
  return all;
}

// Without the lock this fails under the thread sanitizer, and elsewhere only now and then.
TEST_F(LogBuf, LinesOfTwoThreadsArriveWholeAndEachOnce) {
  ZoIO::LogBuf<char> shared{&recorder, &Recorder::HandleLog, 3, nullptr};
  const std::string lines[] = {"one that is longer than what a string holds without memory\n", "2\n"};
  const std::string all = DeliveredOf(shared, recorder, [&](int thread) {
    const std::string_view line = lines[thread];
    shared.Append({line.substr(0, 1), line.substr(1)});
    shared.pubsync();
  });
  std::map<std::string, int> counts;
  std::istringstream text(all);
  for (std::string line; std::getline(text, line);) {
    ++counts[line + "\n"];
  }
  EXPECT_EQ(counts, (std::map<std::string, int>{{lines[0], rounds}, {lines[1], rounds}}));
}

// As above.
TEST_F(LogBuf, CharactersOfTwoThreadsArriveEachOnce) {
  ZoIO::LogBuf<char> shared{&recorder, &Recorder::HandleLog, 3, nullptr};
  const std::string all = DeliveredOf(shared, recorder, [&](int thread) {
    shared.sputn(thread == 0 ? "aaaaa" : "bbbbb", 5);
    shared.pubsync();
  });
  EXPECT_EQ(std::count(all.begin(), all.end(), 'a'), 5 * rounds);
  EXPECT_EQ(std::count(all.begin(), all.end(), 'b'), 5 * rounds);
  EXPECT_EQ(all.size(), std::size_t{10} * rounds);
}

TEST_F(LogStream, EndlDeliversOnce) {
  {
    ZoIO::LogStream<char> stream(&recorder, &Recorder::HandleLog, 5, nullptr);
    stream << "one " << 2 << std::endl;
    EXPECT_EQ(recorder.Size(), 1u);
  }
  // The stream's end flushes again, which finds nothing.
  ASSERT_EQ(recorder.Size(), 1u);
  EXPECT_EQ(recorder.All()[0].text, "one 2\n");
  EXPECT_EQ(recorder.All()[0].level, 5);
}

TEST_F(LogStream, TextsStandInTheOrderInWhichTheyCameHoweverTheyCame) {
  ZoIO::LogStream<char> stream(&recorder, &Recorder::HandleLog, 5, nullptr);
  for (int line = 0; line < 2; ++line) {
    stream << "one " << 2;
    stream.Append({" three", "", " four"});
    stream << " five";
    stream.Append({" and a text that is longer than what a string holds without memory\n"});
    EXPECT_EQ(recorder.Size(), static_cast<std::size_t>(line));
    stream.flush();
    ASSERT_EQ(recorder.Size(), static_cast<std::size_t>(line) + 1);
    EXPECT_EQ(recorder.All().back().text,
              "one 2 three four five and a text that is longer than what a string holds without memory\n");
  }
}

TEST_F(LogStream, TextForWhichThereIsNoMemoryMakesItBadAndDeliversNothing) {
  {
    ZoIO::LogStream<char> stream(&recorder, &Recorder::HandleLog, 5, nullptr);
    stream << "one";
    {
      const FailingNew failing(1);
      stream.Append({" and a text that is longer than what a string holds without memory"});
      EXPECT_TRUE(failing.HasFailed());
    }
    EXPECT_TRUE(stream.bad());
    stream << "rest" << std::endl;
  }
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(LogStream, DestructionDeliversWhatIsLeft) {
  {
    ZoIO::LogStream<char> stream(&recorder, &Recorder::HandleLog, 5, nullptr);
    stream << "rest";
    EXPECT_EQ(recorder.Size(), 0u);
  }
  ASSERT_EQ(recorder.Size(), 1u);
  EXPECT_EQ(recorder.All()[0].text, "rest");
}

TEST_F(LogStream, DestructionKeepsToItselfWhatItsFlushRaises) {
  recorder.OnLog([](const Entry&) { throw std::runtime_error("a host's fault"); });
  {
    ZoIO::LogStream<char> stream(&recorder, &Recorder::HandleLog, 5, nullptr);
    stream.exceptions(std::ios_base::badbit);
    stream << "first";
    EXPECT_THROW(stream.flush(), std::runtime_error);
    stream.clear();
    stream << "rest";
  }
  ASSERT_EQ(recorder.Size(), 2u);
  EXPECT_EQ(recorder.All()[1].text, "rest");
  recorder.OnLog({});
}

TEST_F(LogStream, ItsBufferIsItsOwn) {
  ZoIO::LogStream<char> stream(&recorder, &Recorder::HandleLog, 5, nullptr);
  EXPECT_NE(dynamic_cast<ZoIO::LogBuf<char>*>(stream.rdbuf()), nullptr);
}

}  // namespace
}  // namespace ZoTest
