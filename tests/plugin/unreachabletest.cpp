// Instances whose sensor cannot be reached: they exist, say why, and refuse everything silently.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/plugin/loopback.h"
#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using Unreachable = PluginTest;

TEST_F(Unreachable, CreationSucceedsAndTellsTheReason) {
  const unsigned short port = ClosedPort();
  Create("127.0.0.1", port);
  const auto lines = recorder.LogLines();
  EXPECT_THAT(
      lines,
      ElementsAre("2 ZoIO::ZoVyrnClient::ZoVyrnClient: Creating ZoIoHandler instance.",
                  "2 ZoIO::ZoVyrnClient::ZoVyrnClient: Creating sensor manager.",
                  "2 ZoIO::SensorManager::UpdateSensorState: System is not connected. Connecting...",
                  StartsWith("5 ZoIO::SensorManager::UpdateSensorState: "),
                  "2 ZoIO::ZoVyrnClient::ZoVyrnClient: Sensor manager created.",
                  "3 ZoIO::ZoVyrnClient::ZoVyrnClient: ZoIoHandler instance created.",
                  "3 ZoIO::ZoVyrnClient::ZoVyrnClient: Sensor  IP address: 127.0.0.1",
                  "3 ZoIO::ZoVyrnClient::ZoVyrnClient: Sensor  control port: " + std::to_string(port)));
  ASSERT_GT(lines.size(), 3u);
  EXPECT_THAT(lines[3], HasSubstr("127.0.0.1"));
  EXPECT_THAT(lines[3], HasSubstr(std::to_string(port)));
}

TEST_F(Unreachable, DestructionTellsNoDisconnect) {
  void* handle = Create("127.0.0.1", ClosedPort());
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

TEST_F(Unreachable, EverythingIsRefusedSilently) {
  void* handle = Create("127.0.0.1", ClosedPort());
  recorder.Clear();
  std::vector<int> results;
  EXPECT_EQ(Read(handle, "res#/a"), 1);
  EXPECT_EQ(Write(handle, "res#/a", IntegerValue(1)), 1);
  EXPECT_EQ(Subscribe(handle, {"res#/a", "res#/b"}, 100, &results), 1);
  EXPECT_THAT(results, ElementsAre(-1, -1));
  EXPECT_EQ(Unsubscribe(handle, {"res#/a"}), 1);
  for (const char* method :
       {"RunSensor", "StopSensor", "Read", "Create", "Update", "Delete", "Call", "unknown"}) {
    EXPECT_EQ(Call(handle, method, "{\"uri\":\"res\",\"args\":\"1\"}"), 1) << method;
  }
  EXPECT_EQ(Subscribe(handle, {}), 1);
  EXPECT_EQ(Unsubscribe(handle, {}), 1);
  EXPECT_EQ(recorder.Size(), 0u);
}

// Only the exact text means the simulator; and a text that is no address makes an instance all the same.
class AddressText : public PluginTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(AddressText, OtherThanSimulatorIsTakenForASensor) {
  const std::string address = GetParam();
  void* handle = Create(address, ClosedPort());
  const auto logs = recorder.Logs();
  EXPECT_EQ(recorder.CountMessages("Creating sensor manager."), 1u);
  EXPECT_EQ(recorder.CountMessages("Creating simulator."), 0u);
  EXPECT_EQ(recorder.CountMessages("Sensor  IP address: " + address), 1u);
  EXPECT_EQ(std::count_if(logs.begin(), logs.end(), [](const Entry& log) { return log.level == 5; }), 1);
  EXPECT_EQ(Read(handle, "res#"), 1);
  EXPECT_EQ(recorder.CountValues("res#"), 0u);
  EXPECT_EQ(Destroy(handle), 0);
}

INSTANTIATE_TEST_SUITE_P(Texts, AddressText,
                         ::testing::Values("Simulator", "SIMULATOR", "simulator ", " simulator", "simulator2",
                                           "simulato", "", " ", "no address", "127.0.0.1.2", "300.0.0.1",
                                           "::1", "127.0.0.1", "\xff\xfe", "127.0.0.1:80"));

TEST_F(Unreachable, AddressThatDoesNotParseMakesAnInstanceWhoseConnectionFailsForThatReasonAtError) {
  const unsigned short port = ClosedPort();
  for (const char* address : {"", " ", "Simulator", "no address", "127.0.0.1.2", "300.0.0.1", "127.0.0.1:80",
                              "localhost", "fe80::1%", "\xff\xfe"}) {
    SCOPED_TRACE(testing::PrintToString(std::string(address)));
    recorder.Clear();
    void* handle = Create(address, port);
    std::vector<std::string> lines;
    for (const Entry& entry : recorder.Logs()) {
      if (entry.function.find("SensorManager") != std::string::npos || entry.level > 3) {
        lines.push_back(LogLine(entry.level, entry.function, entry.message));
      }
    }
    const std::string function = "ZoIO::SensorManager::UpdateSensorState";
    EXPECT_THAT(lines, ElementsAre(LogLine(2, function, "System is not connected. Connecting..."),
                                   LogLine(5, function,
                                           "Cannot connect to the sensor at (no address), port " +
                                               std::to_string(port) + ": this is no IP address.")));
    EXPECT_EQ(Destroy(handle), 0);
  }
}

TEST_F(Unreachable, APeerThatSaysNothingDelaysCreationByThreeSecondsAtMost) {
  const MutePeer peer;
  const Stopwatch watch;
  void* handle = Create("127.0.0.1", peer.Port());
  EXPECT_LT(watch.Milliseconds().count(), 3000 + 1500);
  EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level == 5; }), 1u);
  EXPECT_EQ(Read(handle, "res#"), 1);
  const Stopwatch destroying;
  EXPECT_EQ(Destroy(handle), 0);
  EXPECT_LT(destroying.Milliseconds().count(), 500);
}

TEST_F(Unreachable, DoesNotTryAgain) {
  void* handle = Create("127.0.0.1", ClosedPort());
  void* simulated = Create();
  recorder.Clear();
  // Three passes of the simulator: three seconds in which a retry would have shown.
  Subscribe(simulated, {"res#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 2)));
  EXPECT_EQ(recorder.CountMessages("System is not connected. Connecting..."), 0u);
  EXPECT_EQ(Read(handle, "res#"), 1);
}

}  // namespace
}  // namespace ZoTest
