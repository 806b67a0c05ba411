// The instance's operations hold the monitor's passes off from their beginning to their end.
#include <gtest/gtest.h>

#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {
namespace {

using namespace std::chrono_literals;

// Several periods of the monitor, so that a pass which is not held off pushes meanwhile. It can only hide a
// fault, not make one.
constexpr auto severalPasses = 400ms;

class InstanceLock : public FakeInstanceTest {
 protected:
  InstanceLock() {
    sensor->SetResource("/r", R"({"a":1,"b":2})");
    sensor->SetResource("/s", R"({"c":3})");
    for (const char* name : {"/r#/a", "/r#/b", "/s#/c"}) {
      Item(name);
    }
    Subscribe(*client, {pushed}, nullptr, 0ms);
    EXPECT_TRUE(recorder.WaitForValue(pushed));
  }

  // Stays as long as several passes take, and notes whether one of them pushed. On the operation's thread.
  void Stay() {
    ++stays;
    const std::size_t before = recorder.CountValues(pushed);
    pushedMeanwhile |= recorder.WaitForValue(pushed, before + 1, severalPasses);
  }

  void StayIn(const std::string& verb) {
    sensor->SetScript(verb, [this](const auto&) {
      Stay();
      return ZoJson(R"({"status":1,"payload":{"b":2}})");
    });
  }

  // After the operation: it came by once, held the monitor off, and let it go on.
  void ExpectHeldOff() {
    EXPECT_EQ(stays, 1);
    EXPECT_FALSE(pushedMeanwhile);
    EXPECT_TRUE(recorder.WaitForValue(pushed, recorder.CountValues(pushed) + 1));
  }

  static constexpr const char* pushed = "/r#/a";
  int stays = 0;
  bool pushedMeanwhile = false;
};

TEST_F(InstanceLock, IsHeldByACallDuringTheMethodResultCallback) {
  recorder.OnResult([this](const Entry&) { Stay(); });
  EXPECT_EQ(client->Call(nullptr, "RunSensor", "{}"), 0);
  ExpectHeldOff();
}

TEST_F(InstanceLock, IsHeldByACallDuringTheSensorsPart) {
  StayIn("Start");
  EXPECT_EQ(client->Call(nullptr, "RunSensor", "{}"), 0);
  ExpectHeldOff();
}

TEST_F(InstanceLock, IsHeldByAReadDuringTheItemValueCallback) {
  recorder.OnValue([this](const Entry& entry) {
    if (entry.item == "/r#/b") {
      Stay();
    }
  });
  EXPECT_EQ(client->Read("/r#/b"), 0);
  ExpectHeldOff();
}

TEST_F(InstanceLock, IsHeldByAWriteDuringTheSensorsUpdate) {
  StayIn("Update");
  EXPECT_EQ(client->Write("/r#/b", 0, IntegerValue(5)), 0);
  ExpectHeldOff();
}

TEST_F(InstanceLock, IsHeldByASubscriptionDuringTheSensorsStream) {
  StayIn("Stream");
  EXPECT_EQ(Subscribe(*client, {"/s#/c"}), 0);
  ExpectHeldOff();
}

TEST_F(InstanceLock, IsHeldByAnUnsubscriptionDuringTheEndOfTheStream) {
  Subscribe(*client, {"/s#/c"});
  StayIn("StopStream");
  EXPECT_EQ(Unsubscribe(*client, {"/s#/c"}), 0);
  ExpectHeldOff();
}

}  // namespace
}  // namespace ZoTest
