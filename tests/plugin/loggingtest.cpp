// The lines that a host's log receives, letter by letter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "tests/plugin/plugintest.h"
#include "tests/support/childprocess.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

using Logging = PluginTest;
using Lines = std::vector<std::string>;

const Lines kCreated = {"2 ZoIO::ZoVyrnClient::ZoVyrnClient: Creating ZoIoHandler instance.",
                        "2 ZoIO::ZoVyrnClient::ZoVyrnClient: Creating simulator.",
                        "2 ZoIO::ZoVyrnClient::ZoVyrnClient: Simulator created.",
                        "3 ZoIO::ZoVyrnClient::ZoVyrnClient: ZoIoHandler instance created.",
                        "3 ZoIO::ZoVyrnClient::ZoVyrnClient: Sensor  IP address: simulator",
                        "3 ZoIO::ZoVyrnClient::ZoVyrnClient: Sensor  control port: 7"};

TEST_F(Logging, CreatingASimulatorTellsItsSteps) {
  Create("simulator", 7);
  EXPECT_EQ(recorder.LogLines(), kCreated);
}

TEST_F(Logging, ControlPortIsPrintedUnsigned) {
  Create("simulator", 65535);
  EXPECT_EQ(recorder.CountMessages("Sensor  control port: 65535"), 1u);
  Create("simulator", 0);
  EXPECT_EQ(recorder.CountMessages("Sensor  control port: 0"), 1u);
}

TEST_F(Logging, DestroyingASimulatorTellsItsSteps) {
  void* handle = Create();
  recorder.Clear();
  EXPECT_EQ(Destroy(handle), 0);
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Destroying ZoIoHandler instance.",
                          "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Joining ZoVyrnClient::Monitor thread.",
                          "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoVyrnClient::Monitor thread joined.",
                          "2 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoIoHandler instance destroyed successfully.",
                          "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
                          "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."));
}

TEST_F(Logging, FirstReadOfAnItemTellsItsCreation) {
  void* handle = Create();
  recorder.Clear();
  EXPECT_EQ(Read(handle, "res#/a"), 0);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item res#/a",
                                               "2 ZoIO::ItemManager::Item: res#/a does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: res#/a created."));
  recorder.Clear();
  EXPECT_EQ(Read(handle, "res#/a"), 0);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item res#/a"));
}

TEST_F(Logging, WriteTellsTheItem) {
  void* handle = Create();
  recorder.Clear();
  EXPECT_EQ(Write(handle, "res#/a", IntegerValue(1)), 0);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Write: Writing to item res#/a",
                                               "2 ZoIO::ItemManager::Item: res#/a does not exist. Creating.",
                                               "2 ZoIO::ItemManager::Item: res#/a created."));
  recorder.Clear();
  EXPECT_EQ(Write(handle, "res#/a", IntegerValue(2)), 0);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Write: Writing to item res#/a"));
}

TEST_F(Logging, SubscribeTellsStreamAttemptAndFallback) {
  void* handle = Create();
  recorder.Clear();
  EXPECT_EQ(Subscribe(handle, {"/res/sub#/a", "/res/sub#/b", "/res/other#/a"}, 1'000'000), 0);
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("2 ZoIO::ZoVyrnClient::Subscribe: Subscribing items.",
                          "2 ZoIO::ItemManager::Item: /res/sub#/a does not exist. Creating.",
                          "2 ZoIO::ItemManager::Item: /res/sub#/a created.",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Starting stream /res/sub",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Attempting to stream resource /res/sub",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Stream attempt failed.Attempting to subscribe.",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Resource subscribed successfully.",
                          // The second item finds its resource streamed,
                          "2 ZoIO::ItemManager::Item: /res/sub#/b does not exist. Creating.",
                          "2 ZoIO::ItemManager::Item: /res/sub#/b created.",
                          // the third another resource behind the same pattern /res/*.
                          "2 ZoIO::ItemManager::Item: /res/other#/a does not exist. Creating.",
                          "2 ZoIO::ItemManager::Item: /res/other#/a created.",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Starting stream /res/other",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Attempting to stream resource /res/other",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Stream attempt failed.Attempting to subscribe.",
                          "2 ZoIO::ZoVyrnClient::Subscribe: Resource already subscribed.Skipping."));
}

TEST_F(Logging, UnsubscribeTellsOnlyTheLastItemOfAStream) {
  void* handle = Create();
  Subscribe(handle, {"/res/sub#/a", "/res/sub#/b"}, 1'000'000);
  recorder.Clear();
  EXPECT_EQ(Unsubscribe(handle, {"/res/sub#/a"}), 0);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Unsubscribe: Unsubscribing items."));
  recorder.Clear();
  EXPECT_EQ(Unsubscribe(handle, {"/res/sub#/b"}), 0);
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("2 ZoIO::ZoVyrnClient::Unsubscribe: Unsubscribing items.",
                          "2 ZoIO::ZoVyrnClient::Unsubscribe: Stopping stream /res/sub"));
}

TEST_F(Logging, CallTellsTheMethodEvenAnUnknownOne) {
  void* handle = Create();
  recorder.Clear();
  EXPECT_EQ(Call(handle, "RunSensor", "{}"), 0);
  EXPECT_EQ(Call(handle, "no such method", "{}"), 1);
  EXPECT_THAT(recorder.LogLines(), ElementsAre("2 ZoIO::ZoVyrnClient::Call: Calling method RunSensor",
                                               "2 ZoIO::ZoVyrnClient::Call: Calling method no such method"));
}

TEST_F(Logging, EveryLineHasFunctionThreadMessageAndNewline) {
  void* handle = Create();
  Subscribe(handle, {"res#/int", "res#/a"}, 100);
  Read(handle, "res#/int");
  Call(handle, "StopSensor", "{}");
  Destroy(handle);
  const auto logs = recorder.Logs();
  EXPECT_GT(logs.size(), 20u);
  for (const Entry& log : logs) {
    EXPECT_EQ(log.text, "[" + log.function + "](" + std::to_string(log.thread) + ")" + log.message + "\n");
    EXPECT_TRUE(log.function.starts_with("ZoIO::")) << log.text;
  }
}

TEST_F(Logging, LinesOfACallCarryTheCallersThread) {
  void* handle = Create();
  recorder.Clear();
  std::uint64_t caller = 0;
  std::thread([&] {
    caller = static_cast<std::uint64_t>(::syscall(SYS_gettid));
    Read(handle, "res#/a");
    Subscribe(handle, {"res#/b"}, 1'000'000);
    Destroy(handle);
  }).join();
  const auto logs = recorder.Logs();
  EXPECT_GT(logs.size(), 12u);
  for (const Entry& log : logs) {
    EXPECT_EQ(log.threadText, std::to_string(caller)) << log.text;
  }
}

TEST_F(Logging, AMessageWithNewlinesIsOneLine) {
  void* handle = Create();
  recorder.Clear();
  EXPECT_EQ(Read(handle, "a\nb\n#/c\n"), 0);
  EXPECT_THAT(recorder.LogLines(),
              ElementsAre("2 ZoIO::ZoVyrnClient::Read: Reading item a\nb\n#/c\n",
                          "2 ZoIO::ItemManager::Item: a\nb\n#/c\n does not exist. Creating.",
                          "2 ZoIO::ItemManager::Item: a\nb\n#/c\n created."));
}

TEST_F(Logging, EveryInstanceLogsToItsOwnHost) {
  Recorder other;
  void* mine = Create();
  void* others = Create("simulator", 0, other.Param());
  recorder.Clear();
  other.Clear();
  Read(mine, "mine#");
  Read(others, "others#");
  EXPECT_EQ(recorder.CountMessages("Reading item mine#"), 1u);
  EXPECT_EQ(recorder.CountMessages("Reading item others#"), 0u);
  EXPECT_EQ(other.CountMessages("Reading item others#"), 1u);
  EXPECT_EQ(other.CountMessages("Reading item mine#"), 0u);
  Destroy(mine);
  Destroy(others);
}

TEST_F(Logging, ContextIsPassedBackUntouched) {
  static std::vector<void*> contexts;
  contexts.clear();
  ioHandlerParam param{};
  int marker = 0;
  param.context = &marker;
  param.log = [](void* context, std::int32_t, const char*) { contexts.push_back(context); };
  param.itemValue = [](const char*, const ioDataValue*, void* context) { contexts.push_back(context); };
  param.methodResult = [](const void*, const char*, void* context) { contexts.push_back(context); };
  void* handle = Create("simulator", 0, param);
  Read(handle, "res#");
  Call(handle, "RunSensor", "{}");
  Destroy(handle);
  EXPECT_GT(contexts.size(), 12u);
  EXPECT_EQ(std::count(contexts.begin(), contexts.end(), &marker), static_cast<long>(contexts.size()));
}

TEST_F(Logging, TheRecordIsCopied) {
  auto param = std::make_unique<ioHandlerParam>(recorder.Param());
  void* handle = nullptr;
  ASSERT_EQ(plugin.createIoInstance("simulator", 0, param.get(), &handle), 0);
  *param = {};
  param.reset();
  EXPECT_EQ(Read(handle, "res#"), 0);
  EXPECT_EQ(recorder.CountValues("res#"), 1u);
  EXPECT_EQ(plugin.destroyIoInstance(handle), 0);
  EXPECT_EQ(recorder.CountMessages("Item manager destroyed."), 1u);
}

TEST(LoggingWithoutCallback, WritesMessagesAloneToStandardOutput) {
  const ChildResult child = RunInChild([] {
    PluginLibrary plugin;
    const ioHandlerParam param{};
    void* handle = nullptr;
    EXPECT_EQ(plugin.createIoInstance("simulator", 7, &param, &handle), 0);
    EXPECT_EQ(plugin.readItem("res#", handle), 0);
    EXPECT_EQ(plugin.callMethod(nullptr, nullptr, "Call", "{}", handle), 0);
    EXPECT_EQ(plugin.destroyIoInstance(handle), 0);
  });
  ASSERT_TRUE(child.Succeeded()) << child.Describe();
  // "Call" logs the error of its missing arguments, whose text is the JSON library's.
  const std::string before =
      "Creating ZoIoHandler instance.\nCreating simulator.\nSimulator created.\nZoIoHandler instance "
      "created.\n"
      "Sensor  IP address: simulator\nSensor  control port: 7\n"
      "Reading item res#\nres# does not exist. Creating.\nres# created.\nCalling method Call\n";
  const std::string after =
      "\nDestroying ZoIoHandler instance.\nJoining ZoVyrnClient::Monitor thread.\n"
      "ZoVyrnClient::Monitor thread joined.\nZoIoHandler instance destroyed successfully.\n"
      "Destroying item manager.\nItem manager destroyed.\n";
  EXPECT_TRUE(child.output.starts_with(before)) << child.output;
  EXPECT_TRUE(child.output.ends_with(after)) << child.output;
  ASSERT_GT(child.output.size(), before.size() + after.size());
  const std::string error =
      child.output.substr(before.size(), child.output.size() - before.size() - after.size());
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  EXPECT_EQ(child.errors, "");
}

}  // namespace
}  // namespace ZoTest
