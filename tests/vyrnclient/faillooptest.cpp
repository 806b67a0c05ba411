// Any one base-library operation fails, in the whole life of an instance: whichever it is, every call
// succeeds or raises, nothing leaks and nothing hangs.
#include "tests/support/recorder.h"
#include "tests/vyrnclient/faulttest.h"
#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;
using ZoIO::ZoVyrnClient;

class FailLoop : public FaultTest {
 protected:
  // Runs one call of an instance, which may fail like any.
  template <typename Operation>
  void Try(const Operation& operation) {
    try {
      const int result = operation();
      EXPECT_TRUE(result == 0 || result == 1);
    } catch (const Zo::Exception& exception) {
      EXPECT_NE(exception.Status(), qStatus_Success);
    }
  }

  void LiveOnce() {
    Recorder recorder;
    std::unique_ptr<ZoVyrnClient> client;
    try {
      client = std::make_unique<ZoVyrnClient>("simulator", 1, recorder.Param());
    } catch (const Zo::Exception& exception) {
      EXPECT_NE(exception.Status(), qStatus_Success);
      return;
    }
    Try([&] { return client->Read("/r#/int"); });
    Try([&] { return client->Write("/r#/int", 0, IntegerValue(5)); });
    Try([&] { return Subscribe(*client, {"/r#/int", "/s#/float"}, nullptr, 0ms); });
    Try([&] { return client->Call(nullptr, "RunSensor", "{}"); });
    Try([&] { return client->Call(nullptr, "Read", R"({"uri":"/r"})"); });
    Try([&] { return Unsubscribe(*client, {"/r#/int"}); });
    Try([&] { return client->Read("/s#/float"); });
    Try([&] { return client->Write("/s#/float", 0, IntegerValue(5)); });
    Try([&] { return Unsubscribe(*client, {"/s#/float"}); });
    client.reset();
  }
};

TEST_F(FailLoop, AnInstanceSurvivesTheFailureOfAnyOperation) {
  constexpr std::uint64_t most = 5000;
  std::uint64_t nth = 1;
  for (;; ++nth) {
    ASSERT_LT(nth, most);
    qTest_FailOperation(qOperation::Any, nth, qStatus_System);
    LiveOnce();
    const bool failed = qTest_FailureCount() != 0;
    qTest_Reset();
    ASSERT_TRUE(NothingIsLeft()) << "operation " << nth;
    if (!failed) {
      break;
    }
  }
  // The calling thread alone makes more than these; how many the workers add is a matter of time.
  RecordProperty("operations", static_cast<int>(nth));
  EXPECT_GT(nth, 50u);
}

TEST_F(FailLoop, AnInstanceSurvivesWhenEverythingFailsFromAnyOperationOn) {
  for (std::uint64_t nth = 1; nth <= 60; ++nth) {
    // Enough failures in a row to end the instance among them; then the workers get to their end.
    qTest_FailOperation(qOperation::Any, nth, qStatus_System, 50);
    LiveOnce();
    qTest_Reset();
    ASSERT_TRUE(NothingIsLeft()) << "operation " << nth;
  }
}

}  // namespace
}  // namespace ZoTest
