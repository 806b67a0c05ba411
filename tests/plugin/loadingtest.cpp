// Loading and unloading: the file leaves the process, and nothing of it stays behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "tests/plugin/loopback.h"
#include "tests/plugin/plugintest.h"
#include "tests/plugin/processstate.h"

namespace ZoTest {
namespace {

void* CreateWith(const PluginLibrary& plugin, Recorder& recorder, const char* address = "simulator",
                 unsigned short port = 0) {
  const ioHandlerParam param = recorder.Param();
  void* handle = nullptr;
  EXPECT_EQ(plugin.createIoInstance(address, port, &param, &handle), 0);
  return handle;
}

TEST(Loading, AnUnusedLibraryLeavesTheProcess) {
  PluginLibrary plugin;
  EXPECT_TRUE(plugin.IsMapped());
  plugin.Unload();
  EXPECT_FALSE(plugin.IsMapped());
}

TEST(Loading, LeavesTheProcessAfterTheDescriptionWasRead) {
  PluginLibrary plugin;
  EXPECT_NE(plugin.getIoInfo(), nullptr);
  plugin.Unload();
  EXPECT_FALSE(plugin.IsMapped());
}

TEST(Loading, LeavesTheProcessWithAllItsThreadsAfterEveryExportWasUsed) {
  const std::size_t threads = InitialThreadCount();
  Recorder recorder;
  PluginLibrary plugin;
  void* simulated = CreateWith(plugin, recorder);
  void* unreachable = CreateWith(plugin, recorder, "127.0.0.1", ClosedPort());
  const ioDataValue five = IntegerValue(5);
  EXPECT_EQ(plugin.readItem("res#", simulated), 0);
  EXPECT_EQ(plugin.writeItem("res#/a", &five, 0, simulated), 0);
  EXPECT_EQ(Subscribe(plugin, simulated, 100, {"res#/int"}), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("res#/int", enumtype_int64)));
  EXPECT_EQ(Unsubscribe(plugin, simulated, {"res#/int"}), 0);
  EXPECT_EQ(plugin.callMethod(nullptr, nullptr, "RunSensor", "{}", simulated), 0);
  EXPECT_EQ(plugin.destroyIoInstance(simulated), 0);
  EXPECT_EQ(plugin.destroyIoInstance(unreachable), 0);
  plugin.Unload();
  EXPECT_FALSE(plugin.IsMapped());
  EXPECT_TRUE(WaitForThreadCount(threads));
}

TEST(Loading, UnloadingDestroysLiveInstancesInTheUsualOrder) {
  const std::size_t threads = InitialThreadCount();
  Recorder first;
  Recorder second;
  PluginLibrary plugin;
  Subscribe(plugin, CreateWith(plugin, first), 100, {"res#/int"});
  CreateWith(plugin, second);
  EXPECT_TRUE(first.WaitForValue("res#/int"));
  first.Clear();
  second.Clear();
  plugin.Unload();
  EXPECT_FALSE(plugin.IsMapped());
  EXPECT_TRUE(WaitForThreadCount(threads));
  const std::vector<std::string> expected = {
      "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Destroying ZoIoHandler instance.",
      "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Joining ZoVyrnClient::Monitor thread.",
      "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoVyrnClient::Monitor thread joined.",
      "2 ZoIO::ZoVyrnClient::~ZoVyrnClient: ZoIoHandler instance destroyed successfully.",
      "3 ZoIO::ItemManager::~ItemManager: Destroying item manager.",
      "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed."};
  EXPECT_EQ(first.LogLines(), expected);
  EXPECT_EQ(second.LogLines(), expected);
}

// Each one's lines are together: none begins to go before the one before it is gone. Which of them is first is not said.
TEST(Loading, UnloadingDestroysLiveInstancesOneAfterTheOther) {
  Recorder hosts[3];
  std::vector<const Recorder*> order;  // one for each line, by the thread that unloads
  PluginLibrary plugin;
  for (Recorder& host : hosts) {
    CreateWith(plugin, host);
    host.Clear();
    host.OnLog([&order, &host](const Entry&) { order.push_back(&host); });
  }
  plugin.Unload();
  ASSERT_EQ(order.size(), 18u);
  std::set<const Recorder*> gone;
  for (std::size_t i = 0; i < order.size(); i += 6) {
    EXPECT_TRUE(gone.insert(order[i]).second);
    const auto first = order.begin() + static_cast<std::ptrdiff_t>(i);
    EXPECT_EQ(std::count(first, first + 6, order[i]), 6);
  }
  for (const Recorder& host : hosts) {
    ASSERT_EQ(host.Size(), 6u);
    EXPECT_EQ(host.LogLines(), hosts[0].LogLines());
    EXPECT_EQ(host.LogLines().front(),
              "3 ZoIO::ZoVyrnClient::~ZoVyrnClient: Destroying ZoIoHandler instance.");
    EXPECT_EQ(host.LogLines().back(), "3 ZoIO::ItemManager::~ItemManager: Item manager destroyed.");
  }
}

TEST(Loading, UnloadingDestroysAnUnreachableInstanceToo) {
  Recorder recorder;
  PluginLibrary plugin;
  CreateWith(plugin, recorder, "127.0.0.1", ClosedPort());
  recorder.Clear();
  plugin.Unload();
  EXPECT_FALSE(plugin.IsMapped());
  EXPECT_EQ(recorder.CountMessages("ZoIoHandler instance destroyed successfully."), 1u);
  EXPECT_EQ(recorder.CountMessages("Item manager destroyed."), 1u);
}

TEST(Loading, ManyRoundsOfLoadingAndUnloadingLeaveNothing) {
  const std::size_t threads = InitialThreadCount();
  const std::string path = PluginLibrary::BuiltPath();
  const int rounds = kSanitized ? 10 : 50;
  for (int round = 0; round < rounds; ++round) {
    Recorder recorder;
    PluginLibrary plugin(path);
    EXPECT_STREQ(plugin.getIoInfo()->name, "ZoIoHandler");
    void* handle = CreateWith(plugin, recorder);
    EXPECT_EQ(plugin.readItem("res#", handle), 0);
    EXPECT_EQ(Subscribe(plugin, handle, 100, {"res#/int"}), 0);
    if (round % 2 == 0) {
      EXPECT_EQ(plugin.destroyIoInstance(handle), 0);
    }
    plugin.Unload();
    ASSERT_FALSE(PluginLibrary::IsMapped(path)) << "round " << round;
    EXPECT_EQ(recorder.CountMessages("Item manager destroyed."), 1u);
  }
  EXPECT_TRUE(WaitForThreadCount(threads));
}

TEST(Loading, ALibraryThatIsLoadedTwiceStaysUntilBothLetGo) {
  PluginLibrary first;
  PluginLibrary second;
  EXPECT_EQ(first.getIoInfo(), second.getIoInfo());
  first.Unload();
  EXPECT_TRUE(second.IsMapped());
  EXPECT_STREQ(second.getIoInfo()->name, "ZoIoHandler");
  second.Unload();
  EXPECT_FALSE(second.IsMapped());
}

}  // namespace
}  // namespace ZoTest
