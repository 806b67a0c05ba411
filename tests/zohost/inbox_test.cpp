#include "tools/zohost/inbox.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <thread>

#include "tools/zohost/lineview.h"
#include "tools/zohost/logreport.h"

namespace zohost {
namespace {

ioDataValue Number(std::int64_t number) {
  ioDataValue value = {};
  value.type = enumtype_int64;
  value.value.int64 = number;
  return value;
}

bool IsReadable(int descriptor) {
  pollfd state = {descriptor, POLLIN, 0};
  return poll(&state, 1, 0) == 1;
}

LogLine Line(int level, const std::string& text) {
  return {std::chrono::system_clock::time_point(), level, text};
}

TEST(Inbox, HandsOutWhatTheCallbacksBroughtInOrder) {
  Inbox inbox;
  const ioHandlerParam param = inbox.Callbacks();
  EXPECT_FALSE(IsReadable(inbox.WakeUpNumber()));
  for (int number = 0; number < 3; ++number) {
    const ioDataValue value = Number(number);
    param.itemValue("/a", &value, param.context);
  }
  param.methodResult(nullptr, "{}", param.context);
  param.log(param.context, 5, "line\n");
  EXPECT_TRUE(IsReadable(inbox.WakeUpNumber()));
  const Delivery delivery = inbox.Take();
  EXPECT_FALSE(IsReadable(inbox.WakeUpNumber()));
  ASSERT_EQ(delivery.updates.size(), 3u);
  EXPECT_EQ(delivery.updates[0].value.Exact(), "0");
  EXPECT_EQ(delivery.updates[2].value.Exact(), "2");
  EXPECT_EQ(delivery.responses, std::vector<std::string>{"{}"});
  ASSERT_EQ(delivery.log.size(), 1u);
  EXPECT_EQ(delivery.log[0].text, "line\n");
  EXPECT_TRUE(inbox.Take().updates.empty());
}

TEST(Inbox, CountsTheOldestUpdatesThatItHadToLetGo) {
  Inbox::Limits limits;
  limits.updates = 10;
  limits.logLines = 2;
  Inbox inbox(limits);
  const ioHandlerParam param = inbox.Callbacks();
  for (int number = 0; number < 25; ++number) {
    const ioDataValue value = Number(number);
    param.itemValue("/a", &value, param.context);
  }
  for (int number = 0; number < 5; ++number) {
    param.log(param.context, 5, "line\n");
  }
  const Delivery delivery = inbox.Take();
  EXPECT_EQ(delivery.lostUpdates, 15u);
  ASSERT_EQ(delivery.updates.size(), 10u);
  EXPECT_EQ(delivery.updates.front().value.Exact(), "15");
  EXPECT_EQ(delivery.lostLogLines, 3u);
  EXPECT_EQ(delivery.log.size(), 2u);
  EXPECT_EQ(inbox.Take().lostUpdates, 0u);
}

TEST(Inbox, LongValuesAreBoundedByTheirBytes) {
  Inbox::Limits limits;
  limits.updateBytes = 100'000;
  Inbox inbox(limits);
  const ioHandlerParam param = inbox.Callbacks();
  const std::string text(30'000, 'x');
  ioDataValue value = {};
  value.type = enumtype_string;
  value.value.text = text.c_str();
  for (int number = 0; number < 10; ++number) {
    param.itemValue("/a", &value, param.context);
  }
  Delivery delivery = inbox.Take();
  EXPECT_EQ(delivery.updates.size(), 3u);
  EXPECT_EQ(delivery.lostUpdates, 7u);

  // One that is too long by itself is still taken: it is the newest.
  const std::string longest(200'000, 'x');
  value.value.text = longest.c_str();
  param.itemValue("/a", &value, param.context);
  delivery = inbox.Take();
  EXPECT_EQ(delivery.updates.size(), 1u);
  EXPECT_EQ(delivery.lostUpdates, 0u);
}

TEST(Inbox, LosesNothingBetweenManyThreadsAndATaker) {
  constexpr int threads = 4;
  constexpr int each = 5'000;
  Inbox inbox;
  const ioHandlerParam param = inbox.Callbacks();
  std::atomic<int> running = threads;
  std::vector<std::thread> callers;
  for (int caller = 0; caller < threads; ++caller) {
    callers.emplace_back([&, caller] {
      const std::string name = "/" + std::to_string(caller);
      for (int number = 0; number < each; ++number) {
        const ioDataValue value = Number(number);
        param.itemValue(name.c_str(), &value, param.context);
        if (number % 100 == 0) {
          param.log(param.context, 2, "line\n");
        }
      }
      --running;
    });
  }
  std::map<std::string, int> next;
  std::size_t lines = 0;
  std::uint64_t lost = 0;
  for (bool last = false; !last;) {
    last = running == 0;
    const Delivery delivery = inbox.Take();
    lost += delivery.lostUpdates;
    lines += delivery.log.size();
    for (const Update& update : delivery.updates) {
      EXPECT_EQ(update.value.Exact(), std::to_string(next[update.item]++));
    }
  }
  for (std::thread& caller : callers) {
    caller.join();
  }
  EXPECT_EQ(lost, 0u);
  EXPECT_EQ(lines, threads * each / 100u);
  ASSERT_EQ(next.size(), 4u);
  for (const auto& [item, count] : next) {
    EXPECT_EQ(count, each) << item;
  }
  inbox.WaitUntilIdle();
}

TEST(Inbox, NullPointersAreTakenWithoutHarm) {
  Inbox inbox;
  const ioHandlerParam param = inbox.Callbacks();
  const ioDataValue value = Number(1);
  param.itemValue(nullptr, &value, param.context);
  param.itemValue("/a", nullptr, param.context);
  param.log(param.context, 5, nullptr);
  param.methodResult(nullptr, nullptr, param.context);
  const Delivery delivery = inbox.Take();
  EXPECT_TRUE(delivery.updates.empty());
  EXPECT_EQ(delivery.responses, std::vector<std::string>{""});
}

TEST(LogReport, ShowsLinesFromTheChosenLevelUp) {
  LogReport report(LogLevel::warning);
  EXPECT_EQ(
      report.Add({Line(3, "[A::B](7)Three.\n"), Line(4, "[A::B](7)Four.\n"), Line(6, "[A::B](7)S\x1bx.\n")}),
      "1970-01-01T00:00:00.000Z warning  [A::B](7)Four.\n"
      "1970-01-01T00:00:00.000Z critical [A::B](7)S\\u001bx.\n");
  EXPECT_TRUE(report.TakeReasons().empty());  // they were seen
}

TEST(LogReport, KeepsTheLastErrorsAsReasons) {
  LogReport report(std::nullopt);
  std::vector<LogLine> lines = {Line(4, "[A](1)A warning.\n"), Line(2, "[A](1)Info.\n")};
  for (int number = 0; number < 5; ++number) {
    lines.push_back(Line(5, "[A::B(int)](7)Error " + std::to_string(number) + " (odd).\n"));
  }
  EXPECT_EQ(report.Add(lines), "");
  const std::vector<std::string> expected = {"Error 2 (odd).", "Error 3 (odd).", "Error 4 (odd)."};
  EXPECT_EQ(report.TakeReasons(), expected);
  EXPECT_TRUE(report.TakeReasons().empty());
}

TEST(LogReport, WarningsAreReasonsWhereThereIsNoError) {
  LogReport report(std::nullopt);
  report.Add(
      {Line(4, "[A](1)Sensor is offline.\n"), Line(4, "[A](1)Sensor is offline.\n"), Line(4, "No prefix")});
  const std::vector<std::string> expected = {"Sensor is offline.", "No prefix"};
  EXPECT_EQ(report.TakeReasons(), expected);
}

TEST(LineFormat, EachFormatHasAllFields) {
  const Update update = {std::chrono::system_clock::time_point(), "/a#/\"b\"",
                         Value(std::string("x,\"y\"\n"))};
  EXPECT_EQ(FormatLine(update, LineFormat::plain),
            "1970-01-01T00:00:00.000Z  /a#/\"b\" = x,\"y\"\\n (string)");
  EXPECT_EQ(FormatLine(update, LineFormat::csv),
            "1970-01-01T00:00:00.000Z,\"/a#/\"\"b\"\"\",string,\"x,\"\"y\"\"\n\"");
  EXPECT_EQ(FormatLine(update, LineFormat::jsonl),
            R"({"time":"1970-01-01T00:00:00.000Z","item":"/a#/\"b\"","kind":"string","value":"x,\"y\"\n"})");
}

}  // namespace
}  // namespace zohost
