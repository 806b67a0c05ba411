// Any one allocation of the calling thread fails, in the whole life of an instance: whichever it is, every
// call succeeds or raises, what was made is whole, nothing leaks and nothing ends the process.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "qapi/testing.h"
#include "tests/qapi/failingnew.h"
#include "tests/support/countinghost.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemfeed.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/knownresources.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoTest {
namespace {

using ZoIO::ItemManager;
using ZoIO::ZoVyrnClient;

// Lets each allocation of body fail in turn, until it gets through without. Returns how many there were.
int FailEach(const std::function<void()>& body) {
  constexpr int most = 20'000;
  for (int nth = 1; nth < most; ++nth) {
    bool failed = false;
    {
      const FailingNew failing(nth);
      body();
      failed = failing.HasFailed();
    }
    if (!failed) {
      return nth - 1;
    }
  }
  ADD_FAILURE() << "no end of allocations";
  return most;
}

int Try(const std::function<int()>& call) {
  try {
    return call();
  } catch (const std::exception&) {
    return 1;
  }
}

class Memory : public ::testing::Test {
 protected:
  Memory() : objects(qTest_LiveObjects()) {}
  ~Memory() override {
    EXPECT_TRUE(Eventually([this] { return qTest_LiveObjects() == objects; }));
  }

  const std::uint64_t objects;
};

TEST_F(Memory, ConstructionRaisesOrSucceeds) {
  const std::string address = "simulator";
  const int allocations = FailEach([&] {
    CountingHost host;
    try {
      ZoVyrnClient client(address, 0, host.Param());
    } catch (const std::bad_alloc&) {
    } catch (const std::exception&) {
      // The base library's own word for it, as an exception of its own.
    }
  });
  EXPECT_GT(allocations, 20);
}

TEST_F(Memory, ConstructionWithALongAddressRaisesOrSucceeds) {
  const std::string address(300, 'x');
  const int allocations = FailEach([&] {
    CountingHost host;
    try {
      ZoVyrnClient client(address, 0, host.Param());
    } catch (const std::exception&) {
    }
  });
  EXPECT_GT(allocations, 20);
}

// Its last lines need memory when its monitor is there already, and a destructor that would end that one never runs.
TEST_F(Memory, ConstructionThatRaisesHasEndedItsThreads) {
  int raised = 0;
  FailEach([&] {
    CountingHost host;
    qTest_FailOperationIn("ZoVyrnClient::Monitor::Thread", qOperation::ThreadSleep, 0, qStatus_Success);
    try {
      ZoVyrnClient client("simulator", 0, host.Param());
      return;
    } catch (const std::exception&) {
      ++raised;
    }
    EXPECT_LE(qTest_CallCount(), 1u) << "it goes on while it is waited for";
    EXPECT_EQ(qTest_LiveObjects(), objects);
  });
  qTest_Reset();
  EXPECT_GT(raised, 20);
}

TEST_F(Memory, OperationsReturnOrRaiseAndLeaveAWorkingInstance) {
  CountingHost host;
  ZoVyrnClient client("simulator", 0, host.Param());
  int round = 0;
  const auto fresh = [&] { return "/a resource of its own/" + std::to_string(round) + "#/with/an/int"; };
  // Names and intervals of their own, so that everything has to be made anew each time.
  std::string name;
  const std::function<int()> operations[] = {
      [&] { return client.Read(name); },
      [&] {
        ioDataValue value{};
        value.type = enumtype_string;
        value.value.text = "a text that is longer than what fits without memory";
        return client.Write(name, 0, value);
      },
      [&] {
        const char* const names[] = {name.c_str()};
        int result = 0;
        return client.Subscribe(std::chrono::hours(24 + round), names, &result, 1);
      },
      [&] { return client.Call(nullptr, "Read", R"({"uri":"/a resource of its own"})"); },
      [&] {
        const char* const names[] = {name.c_str()};
        return client.Unsubscribe(names, 1);
      }};
  for (const auto& operation : operations) {
    int allocations = 0;
    for (bool failed = true; failed; ++allocations) {
      ASSERT_LT(allocations, 5000);
      ++round;
      name = fresh();
      const FailingNew failing(allocations + 1);
      const int result = Try(operation);
      failed = failing.HasFailed();
      if (!failed) {
        EXPECT_EQ(result, 0);
      }
    }
    EXPECT_GT(allocations, 1);
  }
  // All groups that were made, whole or not, pass the monitor.
  const int before = host.values;
  const char* const names[] = {"/int#/v"};
  int result = -1;
  EXPECT_EQ(client.Subscribe(std::chrono::milliseconds(0), names, &result, 1), 0);
  EXPECT_TRUE(Eventually([&] { return host.values > before + 2; }));
  EXPECT_EQ(client.Read("/r#"), 0);
}

TEST_F(Memory, DestructionSurvivesAndEndsEveryThread) {
  int destructions = 0;
  for (bool failed = true; failed; ++destructions) {
    ASSERT_LT(destructions, 1000);
    CountingHost host;
    auto client = std::make_unique<ZoVyrnClient>("simulator", 0, host.Param());
    const FailingNew failing(destructions + 1);
    client.reset();
    failed = failing.HasFailed();
  }
  EXPECT_EQ(qTest_LiveObjects(), objects);
}

TEST_F(Memory, ItemNameThatCannotBeParsedForWantOfMemoryIsAnItemError) {
  const std::string name = "/a resource with a long name/sub#/a%20place/with/a/long/name";
  int errors = 0;
  const int allocations = FailEach([&] {
    try {
      const ZoIO::ItemInfo info = ItemManager::CreateItem(name);
      EXPECT_EQ(info.name, name);
    } catch (const ZoIO::ItemError& error) {
      EXPECT_STREQ(error.what(), "Invalid identifier.");
      ++errors;
    }
  });
  EXPECT_GT(allocations, 5);
  EXPECT_EQ(errors, allocations);
}

TEST_F(Memory, ItemErrorLeavesTheRegistryAsItWasBehindOneLine) {
  Recorder host;
  FakeSensorManager sensor(std::make_shared<ZoIO::Logger>(&host, &Recorder::HandleLog));
  ItemManager& registry = *sensor.PLC();
  int errors = 0;
  bool failed = true;
  for (int nth = 1; failed; ++nth) {
    ASSERT_LT(nth, 5000);
    // A name of its own, as one that gets through is known from then on.
    const std::string name = "/a resource with a long name/" + std::to_string(nth) + "#/a%20place/deep";
    const std::size_t items = registry.Items().size();
    const std::vector<std::string> waiting = registry.InvalidItems();
    host.Clear();
    std::string error;
    {
      const FailingNew failing(nth);
      try {
        registry.Item(name);
      } catch (const ZoIO::ItemError& e) {
        error = e.what();
      } catch (const std::exception&) {
        // Of what is not parsing.
      }
      failed = failing.HasFailed();
    }
    if (!error.empty()) {
      ++errors;
      EXPECT_EQ(error, "Invalid identifier.");
      EXPECT_EQ(host.LogLines(), std::vector<std::string>{"2 ZoIO::ItemManager::Item: " + name +
                                                          " does not exist. Creating."});
      EXPECT_EQ(registry.Items().size(), items);
      EXPECT_EQ(registry.InvalidItems(), waiting);
      // With memory the name is as good as any.
      EXPECT_EQ(registry.Item(name).name, name);
    }
  }
  EXPECT_GT(errors, 5);
}

TEST_F(Memory, EveryNameThatWaitsHasARecordWhateverFails) {
  CountingHost host;
  const ioHandlerParam param = host.Param();
  FakeSensorManager sensor(std::make_shared<ZoIO::Logger>(param.context, param.log));
  std::vector<std::string> names;
  for (int i = 0; i < 1000; ++i) {
    names.push_back("/a resource that nobody knows/" + std::to_string(i) + "#/x");
  }
  std::size_t round = 0;
  const int allocations = FailEach([&] {
    try {
      sensor.PLC()->Item(names.at(round++));
    } catch (const std::exception&) {
    }
  });
  EXPECT_GT(allocations, 10);
  const std::vector<std::string> waiting = sensor.PLC()->InvalidItems();
  EXPECT_EQ(waiting.size(), sensor.PLC()->Items().size());
  for (const std::string& each : waiting) {
    EXPECT_TRUE(sensor.PLC()->Items().contains(each)) << each;
  }
  EXPECT_NO_THROW(sensor.PLC()->RetryInvalidItems());
}

TEST_F(Memory, CacheKeepsItsValuesWhenAnAddFails) {
  ZoIO::CacheManager cache(5000);
  const long long now = ZoIO::CacheManager::TimeInMills();
  const std::string key = "/a key that is longer than what fits without memory";
  cache.AddAt(key, ZoJson::Of(1), now);
  int round = 0;
  FailEach([&] {
    ++round;
    try {
      cache.AddAt(key, ZoJson::Of(2), now + round);
      cache.AddAt(key + std::to_string(round), ZoJson::Of(3), now);
    } catch (const std::bad_alloc&) {
    }
  });
  EXPECT_GT(round, 2);
  EXPECT_EQ(cache.GetAt(key, 100'000, now), ZoJson::Of(1));
  EXPECT_EQ(cache.GetAt(key, 0, now + round), ZoJson::Of(2));
}

TEST_F(Memory, StrangerThatCannotBeRememberedTakesNoRoom) {
  constexpr std::size_t half = std::size_t{32} << 20;
  ZoIO::KnownResources resources;
  const std::string uri = "/a name that is longer than what fits without memory";
  int refused = 0;
  FailEach([&] {
    try {
      resources.Admits(uri + std::to_string(refused), half - 4096);
    } catch (const std::bad_alloc&) {
      ++refused;
    }
  });
  EXPECT_GT(refused, 1);
  EXPECT_TRUE(resources.Admits("/another", half - 4096));
}

TEST_F(Memory, ItemKeepsItsTypeAndItsValueTogetherWhenAnUpdateFails) {
  CountingHost host;
  const auto parameters = std::make_shared<const ioHandlerParam>(host.Param());
  const auto logger = std::make_shared<ZoIO::Logger>(parameters->context, parameters->log);
  const auto sensor = std::make_shared<FakeSensorManager>(logger);
  ZoIO::ItemFeed feed(parameters, nullptr, logger);
  feed.SetSensor(sensor);
  const std::string text = "a text that is longer than what fits without memory";
  sensor->Cache()->Add("/r", ZoJson::ParseString("{\"a\":\"" + text + "\"}"));
  ZoIO::ItemInfo item = ZoIO::ItemManager::CreateItem("/r#/a");
  int kept = 0;
  const int allocations = FailEach([&] {
    item.type = enumtype_double;
    item.value = xhmi::variant_value(0.5);
    try {
      feed.UpdateItemFromCache(item);
    } catch (const std::bad_alloc&) {
      // Of the copy that it returns.
    }
    if (item.type == enumtype_double) {
      EXPECT_EQ(item.value, xhmi::variant_value(0.5));
      ++kept;
    } else {
      EXPECT_EQ(item.type, enumtype_string);
      EXPECT_EQ(item.value.text(), text);
    }
  });
  EXPECT_GT(allocations, 1);
  EXPECT_GT(kept, 0);
  EXPECT_LT(kept, allocations + 1);
}

}  // namespace
}  // namespace ZoTest
