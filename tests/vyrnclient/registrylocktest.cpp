// A validation keeps the registry to itself: whoever needs it meanwhile waits, except for one who takes the
// map itself.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "qapi/testing.h"
#include "qapi/thread.h"
#include "tests/support/recorder.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/vyrnclient/fakesensormanager.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;

constexpr const char* askingThread = "RegistryLock::Asker";
constexpr const char* workerThread = "ItemManager::ManageInvalidItems::Thread";

// How long one that does not wait has to show it. It can only hide a fault, not make one.
constexpr auto aWhile = 200ms;

class RegistryLock : public ::testing::Test {
 protected:
  RegistryLock() {
    // From here on the worker's name is that of the registry under test.
    sensor.PLC()->Shutdown();
    recorder.Clear();
    ZoIO::ItemManager::Source source;
    source.begin = [this] { beforePass.Wait(); };
    source.read = [this](const std::string&) {
      ++retries;
      return ZoJson(R"({"status":-404,"payload":null})");
    };
    source.keep = [](const std::string&, const ZoJson&) {};
    registry = std::make_unique<ZoIO::ItemManager>(sensor, false, source);
    EXPECT_FALSE(registry->Item("/waiting#/a").valid);
    sensor.SetResource("/quick", R"({"a":1})");
    sensor.SetScript("Read", [this](const FakeSensorManager::Request& request) {
      if (request.uri == "/slow") {
        answer.Wait();
      }
      return ZoJson(R"({"status":1,"payload":{"a":1}})");
    });
    validating = std::thread([this] { EXPECT_TRUE(registry->Item("/slow#/a").valid); });
    EXPECT_TRUE(answer.WaitForArrivals());
  }
  ~RegistryLock() override {
    beforePass.Open();
    Answer();
    registry.reset();
    qTest_Reset();
  }

  void Answer() {
    answer.Open();
    if (validating.joinable()) {
      validating.join();
    }
  }

  Recorder recorder;
  FakeSensorManager sensor{std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog)};
  Gate beforePass;
  Gate answer;
  std::atomic<int> retries = 0;
  std::unique_ptr<ZoIO::ItemManager> registry;
  std::thread validating;
};

TEST_F(RegistryLock, OfAValidationIsWaitedForByAnItemOfAnotherName) {
  qTest_FailOperationIn(askingThread, qOperation::LockEnter, 0, qStatus_System);
  std::thread asker([this] {
    qThread_NameCurrent(askingThread);
    EXPECT_TRUE(registry->Item("/quick#/a").valid);
  });
  EXPECT_TRUE(Eventually([] { return qTest_CallCount() >= 1; }));
  // From there it needs but the lock for its line.
  EXPECT_FALSE(recorder.WaitForMessage("/quick#/a does not exist. Creating.", 1, aWhile));
  Answer();
  asker.join();
  EXPECT_EQ(recorder.CountMessages("Adding item /quick#/a"), 1u);
}

TEST_F(RegistryLock, OfAValidationIsWaitedForByTheWorkersPass) {
  EXPECT_TRUE(beforePass.WaitForArrivals());
  qTest_FailOperationIn(workerThread, qOperation::LockEnter, 0, qStatus_System);
  beforePass.Open();
  EXPECT_TRUE(Eventually([] { return qTest_CallCount() >= 1; }));
  // From there it needs but the lock for its read.
  EXPECT_FALSE(Eventually([this] { return retries > 0; }, aWhile));
  Answer();
  EXPECT_TRUE(Eventually([this] { return retries > 0; }));
}

TEST_F(RegistryLock, OfAValidationIsNotWaitedForByWhoTakesTheMapItself) {
  std::atomic<bool> returned = false;
  const void* map = nullptr;
  const void* constantMap = nullptr;
  std::thread asker([&] {
    map = &registry->Items();
    constantMap = &std::as_const(*registry).Items();
    returned = true;
  });
  EXPECT_TRUE(Eventually([&] { return returned.load(); }));
  EXPECT_EQ(recorder.CountMessages("Adding item /slow#/a"), 0u) << "the validation was not over";
  Answer();
  asker.join();
  EXPECT_EQ(map, &registry->Items());
  EXPECT_EQ(constantMap, map);
  EXPECT_EQ(recorder.CountMessages("Adding item /slow#/a"), 1u);
}

}  // namespace
}  // namespace ZoTest
