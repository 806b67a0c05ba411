// What the sensor manager has its instance do with the registry's items once it is connected.
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/hostvalue.h"
#include "tests/wire/sensormanagertest.h"
#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoTest {
namespace {

using testing::ElementsAre;
using ZoIO::ItemInfo;
using ZoIO::SensorManager;
using Access = ZoIO::SensorManagerAccess;

const std::string notRunning = "3 ZoIO::SensorManager::RecreateSubscriptions: Client is not running.";

// An instance whose end can be held up where it runs no more but is all there.
class EndingClient {
 public:
  EndingClient() {
    host.OnLog([this](const Entry& entry) {
      if (entry.message == "ZoVyrnClient::Monitor thread joined.") {
        gate.Wait();
      }
    });
  }
  EndingClient(const EndingClient&) = delete;
  EndingClient& operator=(const EndingClient&) = delete;
  ~EndingClient() {
    gate.Open();
    if (ending.joinable()) {
      ending.join();
    }
    owner.reset();  // which still comes to the gate
  }

  ZoIO::ZoVyrnClient& Client() { return client; }

  void Stop() {
    ending = std::thread([this] { owner.reset(); });
    EXPECT_TRUE(gate.WaitForArrivals());
    EXPECT_FALSE(client.IsRunning());
  }

  Recorder host;
  std::shared_ptr<FakeSensorManager> sensor =
      std::make_shared<FakeSensorManager>(std::make_shared<ZoIO::Logger>(&host, &Recorder::HandleLog));

 private:
  std::unique_ptr<ZoIO::ZoVyrnClient> owner =
      std::make_unique<ZoIO::ZoVyrnClient>(sensor, sensor, host.Param());
  ZoIO::ZoVyrnClient& client = *owner;  // while it ends, too
  Gate gate;
  std::thread ending;
};

class Recreation : public SensorManagerTest {
 protected:
  static void AddItems(SensorManager& manager, const std::vector<const char*>& names) {
    for (const char* name : names) {
      manager.PLC()->Item(name);
    }
  }

  // The registry's names in its own order.
  static std::vector<std::string> NamesOf(SensorManager& manager) {
    std::vector<std::string> names;
    for (const auto& [name, item] : manager.PLC()->Items()) {
      names.push_back(name);
    }
    return names;
  }

  void Note(const std::string& step) { steps.push_back(step); }

  std::vector<std::string> steps;
};

TEST_F(Recreation, ItemIsSubscribedIfItWasThenReadTakenFromTheCacheAndShownWithStatus0) {
  const auto manager = Make(sensor.Port());
  AddItems(*manager, {"/a#/value", "/b#/value", "/c#/value", "/none#/at/all"});
  for (const char* name : {"/a#/value", "/none#/at/all"}) {
    manager->PLC()->Item(name).subscribed = true;
  }
  for (const char* uri : {"/a", "/b", "/c"}) {
    other->SetResource(uri, std::string(R"({"value":")") + uri + R"("})");
  }
  for (const char* verb : {"Stream", "Read"}) {
    other->SetScript(verb, [this](const FakeSensorManager::Request& request) {
      Note(request.Text());
      return ZoJson(R"({"status":1,"payload":{"value":")" + request.uri + R"("}})");
    });
  }
  host.OnValue([this](const Entry& entry) {
    Note(entry.item + " " + Describe(entry) + " status " + std::to_string(entry.value.status));
  });

  std::vector<std::string> expected;
  for (auto& [name, item] : manager->PLC()->Items()) {
    if (item.subscribed) {
      expected.push_back("Stream " + item.uri);
    }
    expected.push_back("Read " + item.uri);
    expected.push_back(name + (item.uri == "/none" ? " 5:INVALID" : " 0:" + item.uri) + " status 0");
  }
  recorder.Clear();
  Access::RecreateSubscriptions(*manager);
  host.OnValue({});
  EXPECT_EQ(expected.size(), 10u);
  EXPECT_EQ(steps, expected);
  EXPECT_THAT(Lines(), testing::IsEmpty());
}

TEST_F(Recreation, PatternsThatTheInstanceHadSubscribedAreAskedForAnew) {
  const auto manager = Make(sensor.Port());
  AddItems(*manager, {"/a#/value"});
  ItemInfo& item = manager->PLC()->Item("/a#/value");
  client.Subscribe(item);
  client.Subscribe(item);
  EXPECT_THAT(other->CallTexts(), ElementsAre("Stream /a", "Subscribe /a/*", "Stream /a"));
  other->ClearCalls();
  Access::RecreateSubscriptions(*manager);
  EXPECT_THAT(other->CallTexts(), ElementsAre("Stream /a", "Subscribe /a/*", "Read /a"));
}

TEST_F(Recreation, PatternsAreForgottenEvenWithoutItems) {
  const auto manager = Make(sensor.Port());
  ItemInfo item = ZoIO::ItemManager::CreateItem("/a#/value");
  client.Subscribe(item);
  Access::RecreateSubscriptions(*manager);
  client.Subscribe(item);
  EXPECT_EQ(other->CallCount("Subscribe"), 2u);
}

TEST_F(Recreation, InstanceThatDoesNotRunIsAskedForNothingAndThatIsSaidOnce) {
  EndingClient ending;
  SensorManager manager(ending.Client(), "127.0.0.1", sensor.Port(), logger);
  ending.Stop();
  recorder.Clear();
  ending.sensor->ClearCalls();
  Access::RecreateSubscriptions(manager);
  EXPECT_THAT(Lines(), testing::IsEmpty()) << "without items there is nobody to leave out";
  AddItems(manager, {"/a#/value", "/b#/value"});
  manager.PLC()->Item("/a#/value").subscribed = true;
  manager.PLC()->Item("/b#/value").subscribed = true;
  recorder.Clear();
  Access::RecreateSubscriptions(manager);
  EXPECT_THAT(Lines(), ElementsAre(notRunning));
  EXPECT_THAT(ending.sensor->CallTexts(), testing::IsEmpty());
  EXPECT_EQ(ending.host.Count([](const Entry& entry) { return entry.kind == Entry::Kind::Value; }), 0u);
}

TEST_F(Recreation, StandsBetweenTheUpdatesLinesOfItsBeginAndItsEnd) {
  const auto manager = Make(sensor.Port());
  AddItems(*manager, {"/a#/value", "/b#/value"});
  manager->PLC()->Item("/a#/value").subscribed = true;
  for (const char* verb : {"Stream", "Read"}) {
    other->SetScript(verb, [this](const FakeSensorManager::Request& request) {
      Note(request.Text());
      return ZoJson(R"({"status":1,"payload":{"value":1}})");
    });
  }
  host.OnValue([this](const Entry& entry) { Note(entry.item); });
  recorder.OnLog([this](const Entry& entry) { Note(entry.message); });

  std::vector<std::string> expected = {"Updating sensor status.", "Sensor status updated successfully",
                                       "Recreating subscriptions."};
  for (const std::string& name : NamesOf(*manager)) {
    if (name == "/a#/value") {
      expected.emplace_back("Stream /a");
    }
    expected.push_back("Read " + manager->PLC()->Item(name).uri);
    expected.push_back(name);
  }
  expected.emplace_back("Subscriptions recreated.");
  Access::UpdateSensorState(*manager);
  recorder.OnLog({});
  host.OnValue({});
  EXPECT_EQ(expected.size(), 9u);
  EXPECT_EQ(steps, expected);
}

// An instance that ends wants none; that is no failure of the update.
TEST_F(Recreation, InstanceThatDoesNotRunEndsTheUpdateAsAnyOtherDoes) {
  EndingClient ending;
  SensorManager manager(ending.Client(), "127.0.0.1", sensor.Port(), logger);
  AddItems(manager, {"/a#/value", "/b#/value"});
  ending.Stop();
  recorder.Clear();
  Access::UpdateSensorState(manager);
  const std::string update = "2 ZoIO::SensorManager::UpdateSensorState: ";
  EXPECT_THAT(
      Lines(),
      ElementsAre(update + "Updating sensor status.", update + "Sensor status updated successfully",
                  update + "Recreating subscriptions.", notRunning, update + "Subscriptions recreated."));
}

TEST_F(Recreation, InstanceThatStopsMeanwhileGetsItsItemAndNoFurtherOne) {
  EndingClient ending;
  SensorManager manager(ending.Client(), "127.0.0.1", sensor.Port(), logger);
  AddItems(manager, {"/a#/value", "/b#/value", "/c#/value"});
  recorder.Clear();
  ending.host.OnValue([&ending](const Entry&) {
    if (ending.Client().IsRunning()) {
      ending.Stop();
    }
  });
  Access::RecreateSubscriptions(manager);
  ending.host.OnValue({});
  EXPECT_THAT(Lines(), ElementsAre(notRunning));
  const std::string first = NamesOf(manager).front();
  EXPECT_EQ(ending.host.CountValues(first), 1u);
  EXPECT_EQ(ending.host.Count([](const Entry& entry) { return entry.kind == Entry::Kind::Value; }), 1u);
  EXPECT_THAT(ending.sensor->CallTexts(), ElementsAre("Read " + manager.PLC()->Item(first).uri));
}

}  // namespace
}  // namespace ZoTest
