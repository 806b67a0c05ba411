#include "tests/wire/hostlife.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <thread>

#include "tests/plugin/plugintest.h"
#include "tests/qapi/failingnew.h"
#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* streamed = "/p#/v";
constexpr const char* notified = "/q#/v";
constexpr milliseconds interval{100};
constexpr seconds requestLimit{3};
// For a machine that does much at once.
constexpr seconds slack{kSanitized ? 20 : 5};

// A host whose own allocations do not fail.
ioHandlerParam Listening(Recorder& recorder) {
  ioHandlerParam param = recorder.Param();
  param.itemValue = [](const char* item, const ioDataValue* value, void* context) {
    const SparedNew own;
    Recorder::HandleValue(item, value, context);
  };
  param.methodResult = [](const void* token, const char* response, void* context) {
    const SparedNew own;
    Recorder::HandleResult(token, response, context);
  };
  param.log = [](void* context, std::int32_t level, const char* text) {
    const SparedNew own;
    Recorder::HandleLog(context, level, text);
  };
  return param;
}

}  // namespace

HostLife::HostLife(const SwallowingProxy::Break& point) : proxy(sensor.Port(), point) {}

void HostLife::Live() {
  if (!Begin()) {
    return;
  }
  ReadFirst();
  Write(7);
  SubscribeBoth();
  ExpectChange(10);
  Insist(4, [&] { return Unsubscribe(*client, {streamed, notified}); });
  SubscribeBoth();
  ExpectChange(20);
  Insist(1, [&] { return client->Call(nullptr, "Read", R"({"uri":"/p"})"); });
  ExpectChange(30);
  End();
}

void HostLife::LiveThroughARestore() {
  if (!Begin()) {
    return;
  }
  SubscribeBoth();
  ExpectChange(10);
  Excuse();
  sensor.SetUnheard("/p", 20);
  sensor.SetUnheard("/q", 21);
  sensor.Drop();
  ExpectToArrive(streamed, 20);
  ExpectToArrive(notified, 21);
  ExpectChange(30);
  End();
}

bool HostLife::Begin() {
  const int made = Timed(1, [&] {
    client = std::make_unique<ZoIO::ZoVyrnClient>("127.0.0.1", proxy.Port(), Listening(recorder));
    return 0;
  });
  // A failure may also have eaten the line.
  if (made == 0 && (recorder.CountMessages("System connected successfully.") == 1 ||
                    Timed(0, [&] { return Unsubscribe(*client, {}); }) == 0)) {
    return true;
  }
  EXPECT_TRUE(MayFail()) << "it was not connected, without a reason";
  if (client) {
    ExpectOffline();
  }
  End();
  return false;
}

void HostLife::ExpectOffline() {
  EXPECT_EQ(Timed(0, [&] { return client->Read(streamed); }), 1);
  EXPECT_EQ(Timed(0, [&] { return client->Write(streamed, 0, IntegerValue(7)); }), 1);
  EXPECT_EQ(Timed(0, [&] { return Subscribe(*client, {streamed, notified}, nullptr, interval); }), 1);
  EXPECT_EQ(Timed(0, [&] { return client->Call(nullptr, "Read", R"({"uri":"/p"})"); }), 1);
  EXPECT_EQ(Timed(0, [&] { return Unsubscribe(*client, {streamed, notified}); }), 1);
}

void HostLife::End() {
  Timed(0, [&] {
    client.reset();
    return 0;
  });
}

int HostLife::Timed(int requests, const std::function<int()>& call) {
  const Stopwatch watch;
  int result = 1;
  try {
    const SparedNew counted(false);
    result = call();
  } catch (const std::exception& exception) {  // which the exports turn into their 1
    EXPECT_TRUE(excused) << exception.what();
  }
  EXPECT_TRUE(result == 0 || result == 1) << result;
  EXPECT_LE(watch.Milliseconds().count(), milliseconds(requests * requestLimit + slack).count());
  longestCall = std::max(longestCall, watch.Milliseconds());
  return result;
}

void HostLife::Insist(int requests, const std::function<int()>& call) {
  const Deadline deadline;
  while (Timed(requests, call) != 0) {
    if (!MayFail()) {
      ADD_FAILURE() << "refused without a reason";
      return;
    }
    if (deadline.Expired()) {
      ADD_FAILURE() << "refused for ever";
      return;
    }
    std::this_thread::sleep_for(milliseconds(5));
  }
}

// A failure while the value is taken over leaves the item as it was, and the host with that.
void HostLife::ReadFirst() {
  const Deadline deadline;
  do {
    Insist(2, [&] { return client->Read(streamed); });
  } while (excused && recorder.Count(IsInteger(streamed, 1)) == 0 && !deadline.Expired());
  ExpectToArrive(streamed, 1);
}

// A write that was lost gives 0 too, and leaves a line in the log.
void HostLife::Write(int value) {
  const Deadline deadline;
  for (int attempt = 1; sensor.ValueOf("/p") != value; ++attempt) {
    if (deadline.Expired() || (attempt > 1 && !MayFail())) {
      ADD_FAILURE() << "it was not written";
      return;
    }
    Insist(2, [&] { return client->Write(streamed, 0, IntegerValue(value)); });
  }
}

void HostLife::SubscribeBoth() {
  constexpr int failedName = 6;
  std::vector<const char*> missing{streamed, notified};
  Insist(6, [&] {
    const std::vector<const char*> names = missing;
    std::vector<int> results;
    const int result = Subscribe(*client, names, &results, interval);
    missing.clear();
    for (std::size_t i = 0; result != 0 && i < names.size(); ++i) {
      if (results[i] == untouched || results[i] == failedName) {
        missing.push_back(names[i]);
      }
    }
    return result;
  });
}

void HostLife::ExpectChange(int value) {
  sensor.Set("/p", value);
  sensor.Set("/q", value + 1);
  ExpectToArrive(streamed, value);
  ExpectToArrive(notified, value + 1);
}

// What could not even be asked for is told, and not asked for again before the host asks.
bool HostLife::CouldNotAsk() const {
  const auto isWant = [](const Entry& entry) {
    return entry.level == 5 && entry.message.starts_with("[6]: ") &&
           entry.message.ends_with("memory for the request.");
  };
  return excused && recorder.CountMessages("Could not subscribe resource.") != 0 &&
         recorder.Count(isWant) != 0;
}

void HostLife::ExpectToArrive(const std::string& item, int value) {
  if (item == notified && CouldNotAsk()) {
    return;
  }
  const Recorder::Matcher isNew = IsInteger(item, value);
  const auto isDropped = [](const Entry& entry) {
    return entry.function == "ZoIO::SensorManager::StreamHandler" ||
           entry.function == "ZoIO::SensorManager::NotificationHandler";
  };
  const Stopwatch watch;
  recorder.WaitForEntry([&](const Entry& entry) { return isNew(entry) || isDropped(entry); });
  if (excused && recorder.Count(isNew) == 0 && recorder.Count(isDropped) != 0) {
    sensor.Set(item.substr(0, item.find('#')), value);  // a push that cannot be stored is told, and gone
    recorder.WaitForEntry(isNew);
  }
  longestWait = std::max(longestWait, watch.Milliseconds());
  EXPECT_NE(recorder.Count(isNew), 0U) << item << " never became " << value << "; " << Story();
}

std::string HostLife::Story() const {
  std::string story = "the sensor serves";
  for (const std::string& uri : sensor.Served()) {
    story += " " + uri;
  }
  for (const std::string& line : recorder.LogLines()) {
    story += "\n" + line;
  }
  return story;
}

void InChildren(unsigned children, const std::function<void(unsigned)>& job) {
  std::cout << std::flush;
  std::vector<pid_t> started;
  for (unsigned child = 0; child < children; ++child) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      job(child);
      std::cout << std::flush;
      std::exit(testing::Test::HasFailure() ? 1 : 0);
    }
    started.push_back(pid);
  }
  for (const pid_t pid : started) {
    int status = -1;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
  }
}

void InParallel(std::size_t jobs, std::size_t threads, const std::function<void(std::size_t)>& job) {
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> workers;
  for (std::size_t i = 0; i < std::min(jobs, threads); ++i) {
    workers.emplace_back([&] {
      for (std::size_t mine = next++; mine < jobs; mine = next++) {
        job(mine);
      }
    });
  }
  for (std::thread& worker : workers) {
    worker.join();
  }
}

}  // namespace ZoTest
