// Any one allocation of the calling thread fails inside an export: whichever it is, the export answers with
// one of its results, nothing leaks, and the calls after it work.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>
#include <string>

#include "tests/plugin/loopback.h"
#include "tests/plugin/outofmemorytest.h"
#include "tests/support/hostvalue.h"

namespace ZoTest {
namespace {

TEST_F(OutOfMemory, CreationGivesAWholeInstanceOrReturns1AndLeavesTheHandleAlone) {
  const PluginLibrary plugin;
  const Creation first = Create(plugin, 0);
  ASSERT_EQ(plugin.destroyIoInstance(first.handle), 0);
  int refusals = 0;
  const int allocations = FailEach([&](int nth) {
    const std::ptrdiff_t blocks = LiveAllocations();
    const Creation creation = Create(plugin, nth);
    ExpectWholeOrRefused(creation);
    if (creation.result == 0) {
      ExpectWorks(plugin, creation.handle);
      EXPECT_EQ(plugin.destroyIoInstance(creation.handle), 0);
    } else {
      ++refusals;
    }
    ExpectNothingKept(blocks);
    return creation.failed;
  });
  EXPECT_GT(allocations, 20);
  EXPECT_GT(refusals, 20);
}

TEST_F(OutOfMemory, InstanceThatWasRefusedIsNotMissedByTheOthers) {
  const PluginLibrary plugin;
  const Creation other = Create(plugin, 0);
  ASSERT_EQ(other.result, 0);
  FailEach([&](int nth) {
    const Creation creation = Create(plugin, nth);
    ExpectWorks(plugin, other.handle);
    if (creation.result == 0) {
      EXPECT_EQ(plugin.destroyIoInstance(creation.handle), 0);
    }
    return creation.failed;
  });
  EXPECT_EQ(plugin.destroyIoInstance(other.handle), 0);
}

TEST_F(OutOfMemory, FirstCallOfAllMayFailLikeAnyOther) {
  FailEach([&](int nth) {
    const PluginLibrary plugin;
    const Creation creation = Create(plugin, nth);
    ExpectWholeOrRefused(creation);
    const Creation next = Create(plugin, 0);
    EXPECT_EQ(next.result, 0);
    ExpectWorks(plugin, next.handle);
    return creation.failed;
    // What was made goes with the library.
  });
}

TEST_F(OutOfMemory, DescriptionWaitsForTheMemoryThatItNeeds) {
  const int allocations = FailEach([&](int nth) {
    const PluginLibrary plugin;
    const ioInfo* info = nullptr;
    bool failed = false;
    {
      const FailingNew failing(nth);
      try {
        info = plugin.getIoInfo();
      } catch (const std::bad_alloc&) {
      }
      failed = failing.HasFailed();
    }
    EXPECT_TRUE(failed || info != nullptr);
    const ioInfo* const next = plugin.getIoInfo();
    EXPECT_STREQ(next->name, "ZoIoHandler");
    EXPECT_TRUE(info == nullptr || info == next);
    return failed;
  });
  EXPECT_GT(allocations, 0);
}

TEST_F(OutOfMemory, CreationWithAnUnreachableSensorGivesAnInstanceOrReturns1) {
  const PluginLibrary plugin;
  const unsigned short port = ClosedPort();
  const Creation first = Create(plugin, 0, "127.0.0.1", port);
  ASSERT_EQ(plugin.destroyIoInstance(first.handle), 0);
  const int allocations = FailEach([&](int nth) {
    const std::ptrdiff_t blocks = LiveAllocations();
    const Creation creation = Create(plugin, nth, "127.0.0.1", port);
    ExpectWholeOrRefused(creation);
    if (creation.result == 0) {
      EXPECT_EQ(plugin.readItem("/r#/int", creation.handle), 1);
      EXPECT_EQ(plugin.destroyIoInstance(creation.handle), 0);
    }
    ExpectNothingKept(blocks);
    return creation.failed;
  });
  EXPECT_GT(allocations, 20);
}

TEST_F(OutOfMemory, DestructionReturns0AndKeepsNothing) {
  const PluginLibrary plugin;
  ASSERT_EQ(plugin.destroyIoInstance(Create(plugin, 0).handle), 0);
  const int allocations = FailEach([&](int nth) {
    const std::ptrdiff_t blocks = LiveAllocations();
    const Creation creation = Create(plugin, 0);
    ExpectWorks(plugin, creation.handle);
    bool failed = false;
    {
      const FailingNew failing(nth);
      EXPECT_EQ(plugin.destroyIoInstance(creation.handle), 0);
      failed = failing.HasFailed();
    }
    ExpectNothingKept(blocks);
    return failed;
  });
  EXPECT_GT(allocations, 0);
}

// One instance on the simulator, and names that are new in each round, so that everything has to be made
// anew.
class OperationOutOfMemory : public OutOfMemory {
 protected:
  OperationOutOfMemory() : handle(Create(plugin, 0).handle) { NextRound(); }
  ~OperationOutOfMemory() override { EXPECT_EQ(plugin.destroyIoInstance(handle), 0); }

  void NextRound() {
    ++round;
    name = "/a resource of its own/" + std::to_string(round) + "#/with/an/int";
    other = "/a resource of its own/" + std::to_string(round) + "/and one more#/with/a/float";
  }

  // Runs operation with each of its allocations failing; check gets its result and whether one did fail.
  void FailEachOf(
      const std::function<int()>& operation, const std::function<void(int, bool)>& check = [](int, bool) {}) {
    const int allocations = FailEach([&](int nth) {
      NextRound();
      int result = -1;
      bool failed = false;
      {
        const FailingNew failing(nth);
        result = operation();
        failed = failing.HasFailed();
      }
      EXPECT_TRUE(result == 0 || (result == 1 && failed)) << result;
      check(result, failed);
      EXPECT_EQ(operation(), 0) << "the same call with memory";
      return failed;
    });
    EXPECT_GT(allocations, 1);
    ExpectWorks(plugin, handle);
  }

  const PluginLibrary plugin;
  void* const handle;
  int round = 0;
  std::string name;
  std::string other;
};

TEST_F(OperationOutOfMemory, ReadItemReturns0WithAValueOr1WithoutOne) {
  int before = 0;
  FailEachOf(
      [&] {
        before = host.values;
        return plugin.readItem(name.c_str(), handle);
      },
      [&](int result, bool) { EXPECT_EQ(host.values - before, result == 0 ? 1 : 0); });
}

TEST_F(OperationOutOfMemory, WriteItemReturns0Or1) {
  const ioDataValue value = TextValue("a text that is longer than what fits without memory");
  FailEachOf([&] { return plugin.writeItem(name.c_str(), &value, 0, handle); });
}

TEST_F(OperationOutOfMemory, SubscribeItemsAnswersForEachNameOrForNone) {
  constexpr int untouched = -77;
  int results[] = {untouched, untouched};
  FailEachOf(
      [&] {
        results[0] = results[1] = untouched;
        const char* const names[] = {name.c_str(), other.c_str()};
        return plugin.subscribeItems(86'400'000 + round, 2, names, results, handle);
      },
      [&](int result, bool) {
        if (result == 0) {
          EXPECT_EQ(results[0], 2);
          EXPECT_EQ(results[1], 2);
        } else if (results[0] != untouched) {
          // One name failed, and the other did not suffer from it.
          EXPECT_EQ(std::min(results[0], results[1]), 2);
          EXPECT_EQ(std::max(results[0], results[1]), 6);
        } else {
          EXPECT_EQ(results[1], untouched);
        }
      });
}

TEST_F(OperationOutOfMemory, UnsubscribeItemsReturns0Or1) {
  FailEachOf([&] {
    const char* const names[] = {name.c_str(), other.c_str()};
    return plugin.unsubscribeItems(2, names, handle);
  });
}

TEST_F(OperationOutOfMemory, UnsubscribeItemsOfSubscribedOnesReturns0Or1) {
  FailEach([&](int nth) {
    NextRound();
    const char* const names[] = {name.c_str(), other.c_str()};
    int results[2];
    EXPECT_EQ(plugin.subscribeItems(86'400'000, 2, names, results, handle), 0);
    bool failed = false;
    {
      const FailingNew failing(nth);
      const int result = plugin.unsubscribeItems(2, names, handle);
      failed = failing.HasFailed();
      EXPECT_TRUE(result == 0 || (result == 1 && failed)) << result;
    }
    EXPECT_EQ(plugin.unsubscribeItems(2, names, handle), 0);
    return failed;
  });
  ExpectWorks(plugin, handle);
}

TEST_F(OperationOutOfMemory, CallMethodReturns0WithAResponseOr1WithoutOne) {
  const std::string calls[][2] = {{"RunSensor", R"({"id": "a text that needs memory for itself"})"},
                                  {"StopSensor", "{}"},
                                  {"Read", R"({"uri":"/a resource of its own"})"},
                                  {"Update", R"({"uri":"/a resource of its own","args":"{\"v\":1}"})"},
                                  {"Create", R"({"uri":"/a resource of its own","args":"{\"v\":1}"})"},
                                  {"Delete", R"({"uri":"/a resource of its own"})"},
                                  {"Call", R"({"uri":"/a resource of its own","args":"{\"v\":1}"})"}};
  for (const auto& call : calls) {
    const std::string& method = call[0];
    const std::string& arguments = call[1];
    SCOPED_TRACE(method);
    int before = 0;
    FailEachOf(
        [&] {
          before = host.results;
          return plugin.callMethod(nullptr, nullptr, method.c_str(), arguments.c_str(), handle);
        },
        [&](int result, bool) { EXPECT_EQ(host.results - before, result == 0 ? 1 : 0); });
  }
}

}  // namespace
}  // namespace ZoTest
