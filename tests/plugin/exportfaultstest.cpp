// What an export answers when the instance's operation raises, past every handler of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "qapi/thread.h"
#include "tests/support/hostvalue.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/faulttest.h"
#include "xhmi/iohandler.h"

namespace ZoTest {
namespace {

constexpr const char* hostThread = "ExportFaults::Host";
constexpr const char* item = "/r#/int";
constexpr int untouched = -77;

struct Export {
  const char* name;
  std::function<int(void* handle)> call;
};

const ioDataValue value = IntegerValue(5);
const char* const names[] = {item};
int result = untouched;

const Export exports[] = {
    {"ReadItem", [](void* handle) { return ReadItem(item, handle); }},
    {"WriteItem", [](void* handle) { return WriteItem(item, &value, 0, handle); }},
    {"SubscribeItems", [](void* handle) { return SubscribeItems(86'400'000, 1, names, &result, handle); }},
    {"UnsubscribeItems", [](void* handle) { return UnsubscribeItems(1, names, handle); }},
    {"CallMethod",
     [](void* handle) { return CallMethod(nullptr, nullptr, "Read", R"({"uri":"/r"})", handle); }}};

class ExportFaults : public FaultTest {
 protected:
  // The base library's handle comes with the first call and stays.
  static void SetUpTestSuite() { GetIoInfo(); }

  ExportFaults() {
    // What is to fail are calls of this thread, not of the instance's own.
    qThread_NameCurrent(hostThread);
    const ioHandlerParam param = recorder.Param();
    EXPECT_EQ(CreateIoInstance("simulator", 0, &param, &handle), 0);
    recorder.Clear();
  }
  ~ExportFaults() override {
    qTest_Reset();
    EXPECT_EQ(DestroyIoInstance(handle), 0);
  }

  Recorder recorder;
  void* handle = nullptr;
};

// The instance lock is the first of the base library's locks that such a call enters, and nothing in the instance
// handles its failure: an operation that could say so would log the text.
TEST_F(ExportFaults, OperationThatRaisesIsAnsweredWith1AndTheNextCallGoesWell) {
  for (const Export& each : exports) {
    SCOPED_TRACE(each.name);
    recorder.Clear();
    result = untouched;
    qTest_FailOperationIn(hostThread, qOperation::LockEnter, 1, qStatus_System);
    EXPECT_EQ(each.call(handle), 1);
    EXPECT_EQ(qTest_FailureCount(), 1u);
    qTest_Reset();
    EXPECT_THAT(recorder.LogLines(), testing::IsEmpty());
    EXPECT_EQ(recorder.Size(), 0u);
    EXPECT_EQ(result, untouched);
    EXPECT_EQ(each.call(handle), 0);
  }
}

// Unsubscribing handles nothing of what happens within it either.
TEST_F(ExportFaults, BatchThatRaisesHalfWayIsAnsweredWith1AndLogsNothingOfIt) {
  EXPECT_EQ(exports[2].call(handle), 0);
  recorder.Clear();
  qTest_FailOperationIn(hostThread, qOperation::LockEnter, 2, qStatus_System);
  EXPECT_EQ(exports[3].call(handle), 1);
  EXPECT_EQ(qTest_FailureCount(), 1u);
  qTest_Reset();
  EXPECT_THAT(recorder.LogLines(),
              testing::ElementsAre("2 ZoIO::ZoVyrnClient::Unsubscribe: Unsubscribing items."));
  EXPECT_EQ(exports[3].call(handle), 0);
}

// One failure of making an instance: at the nth call of operation, of which the registry's and the cache's own come first.
struct Making {
  const char* name;
  const char* address;
  qOperation operation;
  std::uint64_t nth;
  std::vector<std::string> lines;
};

const std::string creating = "2 ZoIO::ZoVyrnClient::ZoVyrnClient: ";
const std::string registry = "3 ZoIO::ItemManager::~ItemManager: ";
const std::vector<std::string> begun = {creating + "Creating ZoIoHandler instance.",
                                        creating + "Creating simulator."};
const std::vector<std::string> sensorless = {begun[0], begun[1], registry + "Destroying item manager.",
                                             registry + "Item manager destroyed."};
const std::vector<std::string> monitorless = {begun[0], begun[1], creating + "Simulator created.",
                                              sensorless[2], sensorless[3]};

const Making makings[] = {
    {"the registry's lock", "simulator", qOperation::LockConstruct, 1, begun},
    {"the registry's thread", "simulator", qOperation::ThreadStart, 1, begun},
    {"the cache's lock", "simulator", qOperation::LockConstruct, 2, sensorless},
    {"the cache's thread", "simulator", qOperation::ThreadStart, 2, sensorless},
    {"the instance's lock", "simulator", qOperation::LockConstruct, 3, monitorless},
    {"the monitor thread", "simulator", qOperation::ThreadConstruct, 3, monitorless},
    {"the monitor thread's name", "simulator", qOperation::ThreadSetName, 3, monitorless},
    {"the monitor thread's start", "simulator", qOperation::ThreadStart, 3, monitorless},
    {"a sensor manager's lock",
     "no address",
     qOperation::LockConstruct,
     1,
     {begun[0], creating + "Creating sensor manager."}}};

// What the class logs on its way out is all that is logged: the export adds nothing.
TEST_F(ExportFaults, InstanceWhoseMakingRaisesIsAnsweredWith1AndLeavesEverythingElseAsItWas) {
  EXPECT_EQ(SubscribeItems(0, 1, names, &result, handle), 0);
  ASSERT_TRUE(recorder.WaitForValue(item));
  const std::uint64_t before = qTest_LiveObjects();
  for (const Making& making : makings) {
    SCOPED_TRACE(making.name);
    Recorder host;
    const ioHandlerParam param = host.Param();
    void* made = &host;  // no handle, but not null either
    qTest_FailOperationIn(hostThread, making.operation, making.nth, qStatus_System);
    EXPECT_EQ(CreateIoInstance(making.address, 0, &param, &made), 1);
    EXPECT_EQ(qTest_FailureCount(), 1u);
    qTest_Reset();
    EXPECT_EQ(made, &host);
    EXPECT_EQ(host.LogLines(), making.lines);
    EXPECT_EQ(host.Size(), making.lines.size());
    EXPECT_TRUE(Eventually([&] { return qTest_LiveObjects() == before; }));

    // The others go on, by themselves and when they are called.
    EXPECT_TRUE(recorder.WaitForValue(item, recorder.CountValues(item) + 2));
    for (const Export& each : exports) {
      EXPECT_EQ(each.call(handle), 0) << each.name;
    }
    EXPECT_EQ(SubscribeItems(0, 1, names, &result, handle), 0);

    // And the next one is made.
    EXPECT_EQ(CreateIoInstance("simulator", 0, &param, &made), 0);
    EXPECT_NE(made, &host);
    EXPECT_EQ(ReadItem(item, made), 0);
    EXPECT_EQ(host.CountValues(item), 1u);
    EXPECT_EQ(DestroyIoInstance(made), 0);
  }
}

}  // namespace
}  // namespace ZoTest
