// What an export answers when the instance's operation raises, past every handler of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

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

}  // namespace
}  // namespace ZoTest
