// Any one allocation of the calling thread fails inside an export while a sensor is at the other end of the
// wire: the export answers with one of its results, and the link is there for the calls after it.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/plugin/outofmemorytest.h"
#include "tests/support/hostvalue.h"
#include "tests/wire/emulator.h"

namespace ZoTest {
namespace {

class WireOutOfMemory : public OutOfMemory {
 protected:
  static constexpr const char* number = "/first#/number";
  static constexpr const char* text = "/first#/text";

  void* Connect() {
    const Creation creation = Create(plugin, 0, "127.0.0.1", sensor.Port());
    EXPECT_EQ(creation.result, 0);
    return creation.handle;
  }

  // A link that lost its session for want of memory comes back by itself.
  bool WaitConnected(void* handle) {
    const char* const none[] = {nullptr};
    return Eventually([&] { return plugin.unsubscribeItems(0, none, handle) == 0; });
  }

  // Runs operation with each of its allocations failing, on an instance of its own each time: everything has
  // to be made anew, and the link has no outage behind it.
  void FailEachOf(const std::function<int(void*)>& operation) {
    const int allocations = FailEach([&](int nth) {
      void* const handle = Connect();
      int result = -1;
      bool failed = false;
      {
        const FailingNew failing(nth);
        result = operation(handle);
        failed = failing.HasFailed();
      }
      EXPECT_TRUE(result == 0 || (result == 1 && failed)) << result;
      EXPECT_TRUE(WaitConnected(handle));
      EXPECT_TRUE(Eventually([&] { return plugin.readItem("/second#/number", handle) == 0; }));
      EXPECT_EQ(plugin.destroyIoInstance(handle), 0);
      return failed;
    });
    EXPECT_GT(allocations, 10);
  }

  Emulator sensor{R"({"resources": {
    "/first": {"writable": true, "content": {"number": 7, "text": "a text that needs memory for itself"}},
    "/second": {"content": {"number": 8}}}})"};
  const PluginLibrary plugin;
};

TEST_F(WireOutOfMemory, CreationGivesAnInstanceOrReturns1AndLeavesTheHandleAlone) {
  FailEach([&](int nth) {
    const Creation creation = Create(plugin, nth, "127.0.0.1", sensor.Port());
    ExpectWholeOrRefused(creation);
    if (creation.result == 0) {
      EXPECT_EQ(plugin.destroyIoInstance(creation.handle), 0);
    }
    return creation.failed;
  });
  void* const handle = Connect();
  EXPECT_EQ(plugin.readItem(number, handle), 0);
  EXPECT_EQ(plugin.destroyIoInstance(handle), 0);
}

TEST_F(WireOutOfMemory, ReadItemReturns0Or1) {
  FailEachOf([&](void* handle) { return plugin.readItem(text, handle); });
}

TEST_F(WireOutOfMemory, WriteItemReturns0Or1) {
  const ioDataValue value = TextValue("another text that needs memory for itself");
  FailEachOf([&](void* handle) { return plugin.writeItem(text, &value, 0, handle); });
  EXPECT_NE(sensor.Content("/first").find(value.value.text), std::string::npos);
}

TEST_F(WireOutOfMemory, SubscribeItemsReturns0Or1) {
  FailEachOf([&](void* handle) {
    const char* const names[] = {number, text};
    int codes[2];
    return plugin.subscribeItems(86'400'000, 2, names, codes, handle);
  });
}

TEST_F(WireOutOfMemory, UnsubscribeItemsReturns0Or1) {
  FailEachOf([&](void* handle) {
    const char* const names[] = {number, text};
    return plugin.unsubscribeItems(2, names, handle);
  });
}

TEST_F(WireOutOfMemory, CallMethodReturns0Or1) {
  FailEachOf([&](void* handle) {
    return plugin.callMethod(nullptr, nullptr, "Read", R"({"id":1,"uri":"/first"})", handle);
  });
}

TEST_F(WireOutOfMemory, DestructionReturns0) {
  FailEach([&](int nth) {
    void* const handle = Connect();
    EXPECT_EQ(plugin.readItem(number, handle), 0);
    const FailingNew failing(nth);
    EXPECT_EQ(plugin.destroyIoInstance(handle), 0);
    return failing.HasFailed();
  });
}

}  // namespace
}  // namespace ZoTest
