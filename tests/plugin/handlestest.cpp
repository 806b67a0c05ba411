// Handles that are not live: the plug-in rethrows whatever exception is being handled, and where there is
// none the process ends.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>

#include "tests/plugin/plugintest.h"
#include "tests/support/childprocess.h"

namespace ZoTest {
namespace {

struct HandleExport {
  const char* name;
  std::function<int(const PluginLibrary&, void*)> call;
};

std::ostream& operator<<(std::ostream& out, const HandleExport& exported) {
  return out << exported.name;
}

int CallWithValue(const PluginLibrary& plugin, void* handle) {
  const ioDataValue value = IntegerValue(1);
  return plugin.writeItem("res#", &value, 0, handle);
}

const HandleExport kExports[] = {
    {"DestroyIoInstance",
     [](const PluginLibrary& plugin, void* handle) { return plugin.destroyIoInstance(handle); }},
    {"ReadItem", [](const PluginLibrary& plugin, void* handle) { return plugin.readItem("res#", handle); }},
    {"WriteItem", CallWithValue},
    {"SubscribeItems",
     [](const PluginLibrary& plugin, void* handle) { return Subscribe(plugin, handle, 100, {"res#/a"}); }},
    {"UnsubscribeItems",
     [](const PluginLibrary& plugin, void* handle) { return Unsubscribe(plugin, handle, {"res#/a"}); }},
    {"CallMethod",
     [](const PluginLibrary& plugin, void* handle) {
       return plugin.callMethod(nullptr, nullptr, "RunSensor", "{}", handle);
     }},
};

class DeadHandle : public ::testing::TestWithParam<HandleExport> {
 protected:
  static void ExpectEndsTheProcess(const std::function<void()>& body) {
    const ChildResult child = RunInChild(body);
    EXPECT_TRUE(child.finished) << child.Describe();
    EXPECT_EQ(child.signal, SIGABRT) << child.Describe();
    // What the runtime prints for a rethrow with nothing to rethrow.
    EXPECT_NE(child.errors.find("terminate called"), std::string::npos) << child.Describe();
    EXPECT_EQ(child.output, "");
  }
};

TEST_P(DeadHandle, NeverCreatedEndsTheProcess) {
  ExpectEndsTheProcess([] {
    PluginLibrary plugin;
    int something = 0;
    GetParam().call(plugin, &something);
  });
}

TEST_P(DeadHandle, NeverCreatedBesideALiveOneEndsTheProcess) {
  ExpectEndsTheProcess([] {
    Recorder recorder;
    PluginLibrary plugin;
    const ioHandlerParam param = recorder.Param();
    void* live = nullptr;
    plugin.createIoInstance("simulator", 0, &param, &live);
    GetParam().call(plugin, static_cast<char*>(live) + 1);
  });
}

TEST_P(DeadHandle, AlreadyDestroyedEndsTheProcess) {
  ExpectEndsTheProcess([] {
    Recorder recorder;
    PluginLibrary plugin;
    const ioHandlerParam param = recorder.Param();
    void* dead = nullptr;
    plugin.createIoInstance("simulator", 0, &param, &dead);
    plugin.destroyIoInstance(dead);
    GetParam().call(plugin, dead);
  });
}

// No handler of the plug-in's own catches it, so one around the call in the host is of no use either.
TEST_P(DeadHandle, EndsTheProcessInsideATryBlockToo) {
  ExpectEndsTheProcess([] {
    PluginLibrary plugin;
    int something = 0;
    try {
      GetParam().call(plugin, &something);
    } catch (...) {
    }
  });
}

struct NoStandardException {
  int number;
};

TEST_P(DeadHandle, InsideAHandlerTheHostsOwnExceptionComesOut) {
  Recorder recorder;
  PluginLibrary plugin;
  const ioHandlerParam param = recorder.Param();
  int something = 0;
  for (int round = 0; round < 3; ++round) {
    bool standardCaught = false;
    try {
      throw std::out_of_range("the host's own");
    } catch (const std::exception&) {
      try {
        const int result = GetParam().call(plugin, &something);
        ADD_FAILURE() << "returned " << result;
      } catch (const std::out_of_range& error) {
        standardCaught = true;
        EXPECT_STREQ(error.what(), "the host's own");
      }
    }
    EXPECT_TRUE(standardCaught);

    int number = 0;
    try {
      throw NoStandardException{42};
    } catch (...) {
      try {
        const int result = GetParam().call(plugin, &something);
        ADD_FAILURE() << "returned " << result;
      } catch (const NoStandardException& exception) {
        number = exception.number;
      }
    }
    EXPECT_EQ(number, 42);

    // The library is usable afterwards: its lock was given back.
    EXPECT_NE(plugin.getIoInfo(), nullptr);
    void* handle = nullptr;
    ASSERT_EQ(plugin.createIoInstance("simulator", 0, &param, &handle), 0);
    EXPECT_EQ(plugin.readItem("res#", handle), 0);
    EXPECT_EQ(plugin.destroyIoInstance(handle), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Exports, DeadHandle, ::testing::ValuesIn(kExports),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

using Handles = PluginTest;

TEST_F(Handles, OfLiveInstancesDiffer) {
  void* first = Create();
  void* second = Create();
  EXPECT_NE(first, second);
  EXPECT_EQ(Destroy(first), 0);
  EXPECT_EQ(Read(second, "res#"), 0);
  EXPECT_EQ(Destroy(second), 0);
}

// A handle is an address, and addresses come again: the new owner of one is whole.
TEST_F(Handles, OfDestroyedInstancesMayComeAgain) {
  for (int round = 0; round < 20; ++round) {
    void* handle = Create();
    recorder.Clear();
    EXPECT_EQ(Read(handle, "res#"), 0);
    // Nothing of an earlier instance's registry is left.
    EXPECT_EQ(recorder.CountMessages("res# does not exist. Creating."), 1u);
    EXPECT_EQ(Destroy(handle), 0);
  }
}

TEST_F(PluginTest, ExceptionOfACallbackThatIsNoStandardOneReachesTheHostAndFreesTheLocks) {
  void* handle = Create();
  recorder.OnValue([](const Entry&) { throw 42; });
  EXPECT_THROW(Read(handle, "res#/int"), int);
  recorder.OnValue([](const Entry&) { throw std::runtime_error("a host's fault"); });
  EXPECT_EQ(Read(handle, "res#/int"), 1);
  recorder.OnValue({});
  EXPECT_EQ(Read(handle, "res#/int"), 0);
  EXPECT_EQ(Destroy(handle), 0);
}

TEST_F(PluginTest, ForkedChildLeavesTheParentsInstancesAlone) {
  if (const char* const fault = FaultOfForkBesideThreads()) {
    GTEST_SKIP() << fault;
  }
  void* handle = Create();
  ASSERT_EQ(Subscribe(handle, {"res#/int"}), 0);
  const ChildResult child = RunInChild([] { std::exit(0); });
  EXPECT_TRUE(child.Succeeded()) << child.Describe();
  recorder.Clear();
  EXPECT_TRUE(recorder.WaitForValue("res#/int"));
  EXPECT_EQ(Destroy(handle), 0);
}

TEST_F(PluginTest, ForkedChildMayMakeInstancesOfItsOwn) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "The thread sanitizer lets no child of a process with threads start threads.";
#endif
  if (const char* const fault = FaultOfForkBesideThreads()) {
    GTEST_SKIP() << fault;
  }
  void* const parents = Create();
  ASSERT_EQ(Read(parents, "res#/int"), 0);
  const ChildResult child = RunInChild([&] {
    Recorder own;
    const ioHandlerParam param = own.Param();
    const char* const name = "res#/int";
    void* handle = nullptr;
    ASSERT_EQ(plugin.createIoInstance("simulator", 0, &param, &handle), 0);
    EXPECT_NE(handle, parents);
    int result = -1;
    EXPECT_EQ(plugin.subscribeItems(0, 1, &name, &result, handle), 0);
    EXPECT_TRUE(own.WaitForValue(name));
    // Each line carries the number of the child's thread, not of the thread that forked.
    EXPECT_EQ(own.Logs().front().text.find("](" + std::to_string(gettid()) + ")"),
              std::string("[ZoIO::ZoVyrnClient::ZoVyrnClient").size())
        << own.Logs().front().text;
    EXPECT_EQ(own.CountMessages("res#/int does not exist. Creating."), 1u);
    EXPECT_EQ(plugin.readItem(name, parents), 1);
    EXPECT_EQ(plugin.destroyIoInstance(parents), 1);
    // What is left goes with the library.
    plugin.Unload();
    EXPECT_EQ(own.CountMessages("Destroying ZoIoHandler instance."), 1u);
    EXPECT_FALSE(plugin.IsMapped());
  });
  EXPECT_TRUE(child.Succeeded()) << child.Describe();
  recorder.Clear();
  EXPECT_EQ(Read(parents, "res#/int"), 0);
  EXPECT_EQ(recorder.CountMessages("Destroying ZoIoHandler instance."), 0u);
  EXPECT_EQ(Destroy(parents), 0);
}

}  // namespace
}  // namespace ZoTest
