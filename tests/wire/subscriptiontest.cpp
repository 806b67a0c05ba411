// Subscriptions over the wire: which requests they make, which values arrive, and what ends them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/sdk/fakesensor.h"
#include "tests/wire/emulator.h"
#include "tests/wire/wiretest.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

constexpr const char* subscribeName = "ZoIO::ZoVyrnClient::Subscribe";
constexpr const char* unsubscribeName = "ZoIO::ZoVyrnClient::Unsubscribe";

class Subscribed : public WireTest {
 protected:
  static constexpr const char* Resources = R"({"resources": {
    "/plant/drive": {"rate_hz": 50, "content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
    "/plant/door": {"stream": false, "content": {"open": 0}, "writable": true},
    "/plant/flap": {"stream": false, "content": {"open": 0}, "writable": true},
    "/door": {"stream": false, "content": {"open": 0}, "writable": true}}})";

  Emulator sensor{Resources};
  void* handle = Connect(sensor.Port());
};

TEST_F(Subscribed, AStreamedResourceBringsItsValues) {
  recorder.Clear();
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, {"/plant/drive#/n"}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(2));
  EXPECT_THAT(MessagesOf(subscribeName),
              ElementsAre("Subscribing items.", "Starting stream /plant/drive",
                          "Attempting to stream resource /plant/drive", "Resource streamed successfully."));
  EXPECT_TRUE(WaitForChange("/plant/drive#/n"));
}

TEST_F(Subscribed, AResourceWithoutStreamFallsBackToNotifications) {
  recorder.Clear();
  EXPECT_EQ(Subscribe(handle, {"/plant/door#/open"}), 0);
  EXPECT_THAT(MessagesOf(subscribeName), ElementsAre("Subscribing items.", "Starting stream /plant/door",
                                                     "Attempting to stream resource /plant/door",
                                                     "Stream attempt failed.Attempting to subscribe.",
                                                     "Resource subscribed successfully."));
  for (int value = 1; value <= 3; ++value) {
    sensor.Patch("/plant/door", "{\"open\":" + std::to_string(value) + "}");
    EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/plant/door#/open", value))) << value;
  }
}

TEST_F(Subscribed, APatternIsMadeOfTheNameEvenWhereItsSlashBelongsToThePointer) {
  EXPECT_EQ(Subscribe(handle, {"/door#/open", "door#/open"}), 0);
  sensor.Patch("/door", R"({"open":1})");
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/door#/open", 1)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("door#/open", 1)));
}

TEST_F(Subscribed, OnePatternServesSeveralResources) {
  recorder.Clear();
  EXPECT_EQ(Subscribe(handle, {"/plant/door#/open", "/plant/flap#/open"}), 0);
  EXPECT_EQ(recorder.CountMessages("Resource subscribed successfully."), 1u);
  EXPECT_EQ(recorder.CountMessages("Resource already subscribed.Skipping."), 1u);
  sensor.Patch("/plant/flap", R"({"open":3})");
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/plant/flap#/open", 3)));
}

TEST_F(Subscribed, AResourceThatDeniesBothIsAWarning) {
  recorder.Clear();
  std::vector<int> codes;
  EXPECT_EQ(Subscribe(handle, {"/no*thing/res#/v"}, 100, &codes), 0);
  EXPECT_THAT(codes, ElementsAre(2));
  EXPECT_THAT(recorder.LogLines(),
              IsSupersetOf({LogLine(4, subscribeName, "Could not subscribe resource."),
                            LogLine(2, subscribeName, "Stream attempt failed.Attempting to subscribe.")}));
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("/no*thing/res#/v", enumtype_invalid)));
}

TEST_F(Subscribed, AnItemWhoseResourceAppearsLaterBecomesValid) {
  const std::string late = "/plant/late#/v";
  EXPECT_EQ(Read(handle, late), 1);
  EXPECT_EQ(recorder.CountMessages(late + " does not exists."), 1u);
  sensor.Put("/plant/late", R"({"v":42})");
  EXPECT_TRUE(WaitReadable(handle, late));
  EXPECT_EQ(ValueOf(handle, late), "2:42");
}

TEST_F(Subscribed, ASubscribedItemWhoseResourceAppearsLaterDelivers) {
  const std::string late = "/plant/late#/v";
  EXPECT_EQ(Subscribe(handle, {late}), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType(late, enumtype_invalid)));
  sensor.Put("/plant/late", R"({"v":42})");
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger(late, 42)));
  sensor.Patch("/plant/late", R"({"v":43})");
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger(late, 43)));
}

TEST_F(Subscribed, AMemberThatAppearsLaterBecomesValid) {
  const std::string late = "/plant/door#/extra";
  EXPECT_EQ(Subscribe(handle, {"/plant/door#/open", late}), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType(late, enumtype_invalid)));
  EXPECT_EQ(Call(handle, "Delete", R"({"uri":"/plant/door"})"), 0);
  sensor.Put("/plant/door", R"({"open":1,"extra":5})");
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger(late, 5)));
}

TEST_F(Subscribed, UnsubscribingWhatHasVanishedLeavesANeighboursSubscription) {
  EXPECT_EQ(Subscribe(handle, {"/plant/drive#/n", "/plant/door#/open"}), 0);
  EXPECT_EQ(Call(handle, "Delete", R"({"uri":"/plant/drive"})"), 0);
  recorder.Clear();
  EXPECT_EQ(Unsubscribe(handle, {"/plant/drive#/n"}), 0);
  EXPECT_THAT(MessagesOf(unsubscribeName),
              ElementsAre("Unsubscribing items.", "Stopping stream /plant/drive"));
  sensor.Patch("/plant/door", R"({"open":7})");
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/plant/door#/open", 7)));
}

// What reaches the sensor, which here grants everything with {"value": 1}.
class SubscriptionRequests : public WireTest {
 protected:
  // Denies streams from now on.
  void DenyStreams() {
    sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
      if (request.method == "startStream") {
        peer.Send(FakeSensor::Answer(request, R"("status":-405,"payload":null,"error":"no stream")"));
      } else if (request.method == "stopStream") {
        peer.Send(FakeSensor::Answer(request, ""));
      } else {
        FakeSensor::Grant(peer, request);
      }
    });
  }

  FakeSensor sensor;
  void* handle = Connect(sensor.Port());
};

TEST_F(SubscriptionRequests, TwoItemsOfOneResourceShareItsStream) {
  EXPECT_EQ(Subscribe(handle, {"/r/a#/value", "/r/a#/other"}), 0);
  EXPECT_EQ(sensor.CountRequests("startStream", "/r/a"), 1u);
  EXPECT_EQ(sensor.CountRequests("read", "/r/a"), 1u);
  recorder.Clear();
  EXPECT_EQ(Unsubscribe(handle, {"/r/a#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("stopStream", "/r/a"), 0u);
  EXPECT_EQ(Unsubscribe(handle, {"/r/a#/other"}), 0);
  EXPECT_EQ(sensor.CountRequests("stopStream", "/r/a"), 1u);
  EXPECT_THAT(MessagesOf(unsubscribeName),
              ElementsAre("Unsubscribing items.", "Unsubscribing items.", "Stopping stream /r/a"));
  EXPECT_EQ(sensor.CountRequests("unsub", "/r/*"), 0u);
}

TEST_F(SubscriptionRequests, AnItemThatIsSubscribedTwiceIsUnsubscribedTwice) {
  EXPECT_EQ(Subscribe(handle, {"/r/a#/value"}), 0);
  EXPECT_EQ(Subscribe(handle, {"/r/a#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("startStream", "/r/a"), 1u);
  EXPECT_EQ(Unsubscribe(handle, {"/r/a#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("stopStream", "/r/a"), 0u);
  EXPECT_EQ(Unsubscribe(handle, {"/r/a#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("stopStream", "/r/a"), 1u);
  EXPECT_EQ(Subscribe(handle, {"/r/a#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("startStream", "/r/a"), 2u);
}

TEST_F(SubscriptionRequests, APatternIsSubscribedOnceAndGivenUpWithItsLastResource) {
  DenyStreams();
  EXPECT_EQ(Subscribe(handle, {"/r/a#/value", "/r/b#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("sub", "/r/*"), 1u);
  EXPECT_EQ(Unsubscribe(handle, {"/r/a#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("unsub", "/r/*"), 0u);
  EXPECT_EQ(Unsubscribe(handle, {"/r/b#/value"}), 0);
  EXPECT_EQ(sensor.CountRequests("unsub", "/r/*"), 1u);
}

TEST_F(SubscriptionRequests, PatternsFollowFromNames) {
  DenyStreams();
  EXPECT_EQ(Subscribe(handle, {"/res/sub#/value", "/other#/value", "plain#/value", "/deep/er/still", "x"}),
            0);
  for (const char* pattern : {"/res/*", "/other/*", "plain/*", "/deep/er/still/*", "x/*"}) {
    EXPECT_EQ(sensor.CountRequests("sub", pattern), 1u) << pattern;
  }
}

TEST_F(SubscriptionRequests, PushesOfAStreamAreWhatTheTickDelivers) {
  EXPECT_EQ(Subscribe(handle, {"/r/a#/value"}), 0);
  for (int value = 2; value < 6; ++value) {
    EXPECT_TRUE(
        sensor.Push(R"({"event":"stream","uri":"/r/a","payload":{"value":)" + std::to_string(value) + "}}"));
    EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/r/a#/value", value))) << value;
  }
}

}  // namespace
}  // namespace ZoTest
