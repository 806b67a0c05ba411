// What values that stream in mean for the process: the plug-in goes meanwhile, or the process does, or gets a signal.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/plugin/processstate.h"
#include "tests/support/childprocess.h"
#include "tests/wire/emulator.h"
#include "tests/wire/wiretest.h"

// The sensor's thread is not there in a forked child, and what its stack held looks lost to the leak checker, which has
// nothing to say there.
static bool inForkedChild = false;
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
  return inForkedChild ? 1 : 0;
}

namespace ZoTest {
namespace {

constexpr const char* streaming =
    R"({"rate_hz": 1000, "resources": {"/fast": {"content": {"v": 0}, "waves": {"/v": {"wave": "counter"}}}}})";

class Unloading : public WireTest {
 protected:
  void* Stream(std::uint16_t port) {
    void* const handle = Connect(port);
    EXPECT_EQ(Subscribe(handle, {"/fast#/v"}), 0);
    EXPECT_TRUE(WaitForChange("/fast#/v"));
    return handle;
  }
};

TEST_F(Unloading, WithAStreamingInstanceLeavesTheProcess) {
  Emulator sensor(streaming);
  const std::size_t threads = ThreadNames().size();
  const ioHandlerParam param = recorder.Param();
  void* handle = nullptr;  // nobody destroys it but the end of the library
  ASSERT_EQ(plugin.createIoInstance("127.0.0.1", sensor.Port(), &param, &handle), 0);
  EXPECT_EQ(Subscribe(handle, {"/fast#/v"}), 0);
  EXPECT_TRUE(WaitForChange("/fast#/v"));
  plugin.Unload();
  EXPECT_FALSE(plugin.IsMapped());
  const std::size_t entries = recorder.Size();
  EXPECT_TRUE(WaitForThreadCount(threads));
  EXPECT_EQ(recorder.Size(), entries) << "no callback came after the library was gone";
  EXPECT_EQ(recorder.CountMessages("Item manager destroyed."), 1u);
}

class LinkThread : public Unloading {};

TEST_F(LinkThread, LeavesTheProcessesSignalsToTheHost) {
  Emulator sensor(streaming);
  sensor.Content("/fast");  // its thread has begun: until then signals are kept from it
  const std::vector<std::string> before = ThreadsThatTake(SIGINT);
  EXPECT_FALSE(before.empty());
  Stream(sensor.Port());
  ASSERT_TRUE(WaitForThreadNames({"ZoLink::Thread"}));
  EXPECT_EQ(ThreadsThatTake(SIGINT), before);
}

TEST_F(Unloading, AForkedChildLeavesTheParentsStreamAlone) {
  if (const char* const fault = FaultOfForkBesideThreads()) {
    GTEST_SKIP() << fault;
  }
  Emulator sensor(streaming);
  void* const handle = Stream(sensor.Port());
  const ChildResult child = RunInChild([] {
    inForkedChild = true;
    std::exit(0);  // with everything that the end of a process runs
  });
  EXPECT_TRUE(child.Succeeded()) << child.Describe();
  EXPECT_TRUE(WaitForChange("/fast#/v"));
  EXPECT_TRUE(IsConnected(handle));
}

TEST_F(Unloading, ExitWithAStreamingInstanceEndsTheProcessAsAskedFor) {
  const ChildResult child = RunInChild([this] {
    Emulator sensor(streaming);
    Stream(sensor.Port());
    std::exit(HasFailure() ? 1 : 7);
  });
  EXPECT_TRUE(child.finished && child.exitCode == 7) << child.Describe();
}

}  // namespace
}  // namespace ZoTest
