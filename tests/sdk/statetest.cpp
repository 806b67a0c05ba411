// The link's decisions, at times that the tests choose.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "zovyrnsdk/link/backoff.h"
#include "zovyrnsdk/link/driver.h"
#include "zovyrnsdk/link/eventloop.h"
#include "zovyrnsdk/link/incoming.h"
#include "zovyrnsdk/link/linkstate.h"
#include "zovyrnsdk/link/outgoing.h"
#include "zovyrnsdk/link/pushqueue.h"
#include "zovyrnsdk/link/readbrake.h"
#include "zovyrnsdk/link/restorer.h"
#include "zovyrnsdk/link/watchdog.h"
#include "zovyrnsdk/zorequesterror.h"

namespace ZoSdk {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;

const Time start = Time{} + std::chrono::hours(1);

Push PushOf(const std::string& uri, int value) {
  Push push;
  push.document.Set("uri", uri);
  push.document.Set("payload", value);
  push.bytes = 100;
  return push;
}

std::vector<int> Values(const std::vector<Push>& pushes) {
  std::vector<int> values;
  for (const Push& push : pushes) {
    values.push_back(push.document.At("payload").Get<int>());
  }
  return values;
}

TEST(PushQueue, FirstPushIsDueAtOnceTheNextTwoMillisecondsLater) {
  PushQueue queue;
  queue.Offer("/a", PushOf("/a", 1), start);
  EXPECT_THAT(Values(queue.TakeDue(start, 9)), ElementsAre(1));
  queue.Offer("/a", PushOf("/a", 2), start + milliseconds(1));
  EXPECT_EQ(queue.NextDue(), start + milliseconds(2));
  EXPECT_THAT(Values(queue.TakeDue(start + milliseconds(1), 9)), ElementsAre());
  EXPECT_THAT(Values(queue.TakeDue(start + milliseconds(2), 9)), ElementsAre(2));
  EXPECT_EQ(queue.NextDue(), never);
}

TEST(PushQueue, OfThoseThatWaitTheNewestWins) {
  PushQueue queue;
  queue.Offer("/a", PushOf("/a", 1), start);
  queue.TakeDue(start, 9);
  for (int i = 2; i < 6; ++i) {
    queue.Offer("/a", PushOf("/a", i), start + milliseconds(1));
  }
  EXPECT_EQ(queue.Waiting(), 1U);
  EXPECT_EQ(queue.Bytes(), 100U + std::strlen("/a"));
  EXPECT_THAT(Values(queue.TakeDue(start + milliseconds(2), 9)), ElementsAre(5));
  EXPECT_EQ(queue.Bytes(), 0U);
}

TEST(PushQueue, ResourcesDoNotHoldEachOtherBack) {
  PushQueue queue;
  queue.Offer("/a", PushOf("/a", 1), start);
  queue.Offer("/b", PushOf("/b", 2), start);
  queue.Offer("/c", PushOf("/c", 3), start);
  EXPECT_THAT(Values(queue.TakeDue(start, 2)), ElementsAre(1, 2));
  EXPECT_THAT(Values(queue.TakeDue(start, 2)), ElementsAre(3));
}

// Whoever asked may not keep the answer, so the push still goes out; but it must not bring an older value.
TEST(PushQueue, AnswerTakesThePlaceOfWhatWaitsAndHoldsItBack) {
  PushQueue queue;
  queue.Offer("/a", PushOf("/a", 1), start);
  queue.AnswerArrived("/a", ZoJson::Of(2), 7, false, start);
  EXPECT_EQ(queue.Bytes(), 7U + std::strlen("/a"));
  EXPECT_EQ(queue.NextDue(), start + milliseconds(2));
  EXPECT_THAT(Values(queue.TakeDue(start + milliseconds(2), 9)), ElementsAre(2));
}

TEST(PushQueue, PushThatTakesAnAnswersContentTakesItsOrderToo) {
  PushQueue queue;
  Push push = PushOf("/a", 1);
  push.order = 1;
  queue.Offer("/a", std::move(push), start);
  queue.AnswerArrived("/a", ZoJson::Of(2), 7, false, start, 2);
  const std::vector<Push> due = queue.TakeDue(start + milliseconds(2), 9);
  ASSERT_EQ(due.size(), 1U);
  EXPECT_EQ(due[0].order, 2U);
}

TEST(PushQueue, AnswerHoldsBackWhatFollows) {
  PushQueue queue;
  queue.AnswerArrived("/a", ZoJson::Of(1), 7, false, start);
  EXPECT_EQ(queue.Waiting(), 0U) << "nothing waited, nothing does";
  queue.Offer("/a", PushOf("/a", 2), start + milliseconds(1));
  EXPECT_EQ(queue.NextDue(), start + milliseconds(2));
}

TEST(PushQueue, PushBehindAnAnswerKeepsItsDistanceAlsoWhenAnOlderOneWaited) {
  PushQueue queue;
  queue.Offer("/a", PushOf("/a", 1), start);
  queue.AnswerArrived("/a", ZoJson::Of(2), 7, true, start);
  queue.AnswerTaken("/a", start + milliseconds(3));
  queue.Offer("/a", PushOf("/a", 3), start + milliseconds(4));
  EXPECT_EQ(queue.NextDue(), start + milliseconds(5));
  EXPECT_THAT(Values(queue.TakeDue(start + milliseconds(5), 9)), ElementsAre(3));
}

TEST(PushQueue, PushesAndAnswersInTurnHoldNothingBackForever) {
  PushQueue queue;
  Time now = start;
  for (int i = 0; i < 100; ++i) {
    queue.Offer("/a", PushOf("/a", i), now);
    queue.AnswerArrived("/a", ZoJson::Of(i), 7, false, now);
    now += milliseconds(1);
  }
  EXPECT_LE(queue.NextDue(), start + milliseconds(50));
}

// What a handler was late to take in is what the next one must keep away from.
TEST(PushQueue, DistanceCountsFromWhenAPushWasHandedOn) {
  PushQueue queue;
  queue.Offer("/a", PushOf("/a", 1), start);
  queue.TakeDue(start, 9);
  queue.Offer("/a", PushOf("/a", 2), start + milliseconds(1));
  EXPECT_EQ(queue.NextDue(), start + milliseconds(2));
  queue.Delivered(start + milliseconds(5));
  EXPECT_EQ(queue.NextDue(), start + milliseconds(7));
}

TEST(PushQueue, AnswerThatIsAwaitedCountsFromWhenItWasTaken) {
  PushQueue queue;
  queue.AnswerArrived("/a", ZoJson::Of(1), 7, true, start);
  queue.Offer("/a", PushOf("/a", 2), start);
  EXPECT_EQ(queue.NextDue(), start + milliseconds(4)) << "not for ever";
  queue.AnswerTaken("/a", start + milliseconds(1));
  EXPECT_EQ(queue.NextDue(), start + milliseconds(3));
  queue.AnswerTaken("/a", start + milliseconds(3));
  EXPECT_EQ(queue.NextDue(), start + milliseconds(4)) << "at the latest";
}

TEST(PushQueue, ForgetsResourcesThatAreQuiet) {
  PushQueue queue;
  Time now = start;
  for (int i = 0; i < 100000; ++i) {
    now += milliseconds(1);
    const std::string uri = "/r" + std::to_string(i);
    queue.Offer(uri, PushOf(uri, i), now);
    EXPECT_THAT(Values(queue.TakeDue(now, 9)), ElementsAre(i));
    queue.Delivered(now);
  }
  EXPECT_LE(queue.Remembered(), 2048U);
}

TEST(PushQueue, ForgetsLongNamesSooner) {
  PushQueue queue;
  Time now = start;
  for (int i = 0; i < 100; ++i) {
    now += milliseconds(3);
    const std::string uri = "/r" + std::to_string(i) + std::string(std::size_t{1} << 20, 'x');
    queue.Offer(uri, PushOf(uri, i), now);
    EXPECT_THAT(Values(queue.TakeDue(now, 9)), ElementsAre(i));
    queue.Delivered(now);
    EXPECT_LE(queue.RememberedBytes(), std::size_t{6} << 20);
  }
  EXPECT_LE(queue.Remembered(), 5U);
  queue.Clear();
  EXPECT_EQ(queue.RememberedBytes(), 0U);
}

TEST(PushQueue, IsFullOfLongNamesToo) {
  PushQueue queue;
  int count = 0;
  while (!queue.Full()) {
    ASSERT_LT(++count, 64);
    const std::string uri = "/r" + std::to_string(count) + std::string(std::size_t{1} << 20, 'x');
    queue.Offer(uri, PushOf(uri, count), start);
  }
  EXPECT_GT(count, 16);
}

TEST(PushQueue, IsFullBeyondItsLimits) {
  PushQueue queue;
  Push large = PushOf("/a", 1);
  large.bytes = std::size_t{33} << 20;
  queue.Offer("/a", large, start);
  EXPECT_TRUE(queue.Full());
  queue.TakeDue(start, 1);
  EXPECT_TRUE(queue.Full()) << "its memory is still in use";
  queue.Delivered(start);
  EXPECT_FALSE(queue.Full());
}

TEST(ReadBrake, BrakesOnlyWhatNeverAnsweredAndProbesEveryFiveSeconds) {
  ReadBrake brake;
  EXPECT_EQ(brake.Read("/mute", start), ReadBrake::Ruling::Send);
  brake.ReadUnanswered("/mute", start);
  EXPECT_EQ(brake.Read("/mute", start + seconds(4)), ReadBrake::Ruling::Answer);
  EXPECT_EQ(brake.Read("/mute", start + seconds(5)), ReadBrake::Ruling::AnswerAndProbe);
  EXPECT_EQ(brake.Read("/mute", start + seconds(6)), ReadBrake::Ruling::Answer);
  EXPECT_EQ(brake.Read("/other", start), ReadBrake::Ruling::Send);
  brake.Answered("/mute");
  EXPECT_EQ(brake.Read("/mute", start + seconds(6)), ReadBrake::Ruling::Send);
  brake.ReadUnanswered("/mute", start + seconds(7));
  EXPECT_EQ(brake.Read("/mute", start + seconds(7)), ReadBrake::Ruling::Send) << "it has answered before";
}

TEST(ReadBrake, WordWithoutContentLiftsTheBrakeForNow) {
  ReadBrake brake;
  brake.ReadUnanswered("/a", start);
  brake.Spoken("/a");
  EXPECT_EQ(brake.Read("/a", start), ReadBrake::Ruling::Send);
  brake.ReadUnanswered("/a", start);
  EXPECT_EQ(brake.Read("/a", start), ReadBrake::Ruling::Answer);
}

TEST(ReadBrake, PushCountsAsAnswer) {
  ReadBrake brake;
  brake.ReadUnanswered("/a", start);
  brake.Pushed("/a");
  EXPECT_EQ(brake.Read("/a", start), ReadBrake::Ruling::Send);
  brake.ReadUnanswered("/a", start);
  EXPECT_EQ(brake.Read("/a", start), ReadBrake::Ruling::Send);
}

TEST(ReadBrake, NewSessionIsProbedAtOnce) {
  ReadBrake brake;
  brake.ReadUnanswered("/a", start);
  brake.SessionOpened();
  EXPECT_EQ(brake.Read("/a", start), ReadBrake::Ruling::AnswerAndProbe);
  EXPECT_EQ(brake.Read("/a", start), ReadBrake::Ruling::Answer);
}

TEST(ReadBrake, WhatTwoAnswersInARowEndedSessionsIsAskedEverMoreRarely) {
  ReadBrake brake;
  brake.Answered("/poison");
  brake.ReadEndedTheSession("/poison", start);
  EXPECT_EQ(brake.Read("/poison", start), ReadBrake::Ruling::Send) << "one may be chance";
  brake.ReadEndedTheSession("/poison", start);
  ZoSdk::Time asked = start;
  for (const int pause : {5, 10, 20, 40, 60, 60}) {
    brake.SessionOpened();
    EXPECT_EQ(brake.Read("/poison", asked + seconds(pause) - milliseconds(1)), ReadBrake::Ruling::Answer);
    asked += seconds(pause);
    EXPECT_EQ(brake.Read("/poison", asked), ReadBrake::Ruling::Send) << pause;
    EXPECT_EQ(brake.Read("/poison", asked), ReadBrake::Ruling::Answer);
    brake.ReadEndedTheSession("/poison", asked);
  }
  EXPECT_EQ(brake.Read("/other", asked), ReadBrake::Ruling::Send);
  brake.Pushed("/poison");
  EXPECT_EQ(brake.Read("/poison", asked), ReadBrake::Ruling::Answer) << "that says nothing of its answers";
  brake.ReadAnswered("/poison");
  EXPECT_EQ(brake.Read("/poison", asked), ReadBrake::Ruling::Send);
}

TEST(ReadBrake, OfThoseThatEndSessionsOneInFiveSecondsIsAsked) {
  ReadBrake brake;
  for (const char* const uri : {"/a", "/b"}) {
    brake.ReadEndedTheSession(uri, start);
    brake.ReadEndedTheSession(uri, start);
  }
  EXPECT_EQ(brake.Read("/a", start + seconds(5)), ReadBrake::Ruling::Send);
  EXPECT_EQ(brake.Read("/b", start + seconds(9)), ReadBrake::Ruling::Answer);
  EXPECT_EQ(brake.Read("/b", start + seconds(10)), ReadBrake::Ruling::Send);
  EXPECT_EQ(brake.Read("/a", start + seconds(10)), ReadBrake::Ruling::Answer);
  EXPECT_EQ(brake.Read("/a", start + seconds(15)), ReadBrake::Ruling::Send)
      << "a read that told nothing costs no long pause";
}

TEST(ReadBrake, WhatEndedTwoSessionsLongApartIsChance) {
  ReadBrake brake;
  brake.ReadEndedTheSession("/a", start);
  brake.ReadEndedTheSession("/a", start + seconds(65));
  EXPECT_FALSE(brake.EndsSessions("/a"));
  brake.ReadEndedTheSession("/a", start + seconds(129));
  EXPECT_TRUE(brake.EndsSessions("/a"));
}

TEST(ReadBrake, WhatEndedSessionsAndIsMuteNowIsProbed) {
  ReadBrake brake;
  brake.ReadEndedTheSession("/a", start);
  brake.ReadEndedTheSession("/a", start);
  brake.ReadUnanswered("/a", start);
  EXPECT_EQ(brake.Read("/a", start + seconds(5)), ReadBrake::Ruling::AnswerAndProbe);
}

TEST(ReadBrake, UsableAnswerBetweenTwoThatEndSessionsMakesThemChance) {
  ReadBrake brake;
  brake.ReadEndedTheSession("/a", start);
  brake.ReadAnswered("/a");
  brake.ReadEndedTheSession("/a", start);
  EXPECT_FALSE(brake.EndsSessions("/a"));
  EXPECT_EQ(brake.Read("/a", start), ReadBrake::Ruling::Send);
}

const Restorer::Key streamA{Restorer::Kind::Stream, "/a"};
const Restorer::Key streamB{Restorer::Kind::Stream, "/b"};
const Restorer::Key subA{Restorer::Kind::Subscription, "/a/*"};

TEST(Restorer, AsksInTheOrderOfGranting) {
  Restorer restorer;
  restorer.Granted(streamB, 1);
  restorer.Granted(subA, 2);
  restorer.Granted(streamA, 3);
  EXPECT_EQ(restorer.Next(start), std::nullopt);
  restorer.SessionLost(start);
  EXPECT_EQ(restorer.Next(start), streamB);
  EXPECT_EQ(restorer.Next(start), subA);
  EXPECT_EQ(restorer.Next(start), streamA);
  EXPECT_EQ(restorer.Next(start), std::nullopt);
}

TEST(Restorer, RefusedWishWaitsThreeSeconds) {
  Restorer restorer;
  restorer.Granted(streamA, 4);
  restorer.SessionLost(start);
  EXPECT_EQ(restorer.Next(start), streamA);
  restorer.Refused(streamA, start);
  EXPECT_EQ(restorer.NextDue(), start + seconds(3));
  EXPECT_EQ(restorer.Next(start + milliseconds(2999)), std::nullopt);
  EXPECT_EQ(restorer.Next(start + seconds(3)), streamA);
  EXPECT_TRUE(restorer.Restored(streamA));
  EXPECT_EQ(restorer.NextDue(), never);
}

TEST(Restorer, RefusalOfWhatIsNotAskedForChangesNothing) {
  Restorer restorer;
  EXPECT_EQ(restorer.Refused(streamA, start), std::nullopt);
  restorer.Granted(streamA, 4);
  EXPECT_EQ(restorer.Refused(streamA, start), std::nullopt);
  EXPECT_EQ(restorer.NextDue(), never);
  EXPECT_EQ(restorer.Cancel(streamA), Restorer::Cancelled::Active);
}

TEST(Restorer, RefusalEndsTheLatestOfSeveralUnheardRequests) {
  Restorer restorer;
  restorer.Unheard(streamA, 5, start);
  restorer.Unheard(streamA, 7, start);
  restorer.Unheard(streamA, 6, start);
  EXPECT_EQ(restorer.Next(start), streamA);
  EXPECT_EQ(restorer.Next(start), std::nullopt);
  EXPECT_EQ(restorer.Refused(streamA, start), 7U);
  EXPECT_EQ(restorer.Size(), 0U);
}

TEST(Restorer, LaterRefusalOfACallersRequestEndsAWishAndAnEarlierDoesNot) {
  Restorer restorer;
  restorer.Forget(streamA, 1);
  restorer.Granted(streamA, 5);
  restorer.Forget(streamA, 4);
  restorer.Forget(streamB, 6);
  EXPECT_EQ(restorer.Size(), 1U);
  restorer.Forget(streamA, 6);
  EXPECT_EQ(restorer.Size(), 0U);
}

TEST(Restorer, CancellingTellsWhetherTheSensorMustBeTold) {
  Restorer restorer;
  EXPECT_EQ(restorer.Cancel(streamA), Restorer::Cancelled::Nothing);
  restorer.Granted(streamA, 5);
  EXPECT_EQ(restorer.Cancel(streamA), Restorer::Cancelled::Active);
  restorer.Granted(streamA, 6);
  restorer.SessionLost(start);
  EXPECT_EQ(restorer.Cancel(streamA), Restorer::Cancelled::Waiting);
  EXPECT_EQ(restorer.Next(start), std::nullopt);
  restorer.Granted(streamA, 7);
  restorer.SessionLost(start);
  restorer.Next(start);
  EXPECT_EQ(restorer.Cancel(streamA), Restorer::Cancelled::Waiting);
  EXPECT_FALSE(restorer.Restored(streamA));
}

TEST(Restorer, WhatEndedTwoSessionsComesLastAndOnceAMinute) {
  Restorer restorer;
  restorer.Granted(streamA, 8);
  restorer.Granted(streamB, 9);
  restorer.Blame("/a");
  restorer.SessionLost(start);
  EXPECT_EQ(restorer.Next(start), streamA) << "once may be chance";
  restorer.Blame("/a");
  restorer.SessionLost(start + seconds(1));
  EXPECT_EQ(restorer.Next(start + seconds(1)), streamB);
  EXPECT_EQ(restorer.NextDue(), start + seconds(60));
  EXPECT_EQ(restorer.Next(start + seconds(60)), streamA);
  restorer.SessionLost(start + seconds(61));
  EXPECT_EQ(restorer.Next(start + seconds(61)), streamB);
  EXPECT_EQ(restorer.Next(start + seconds(61)), std::nullopt);
  restorer.SessionLost(start + seconds(200));
  EXPECT_EQ(restorer.Next(start + seconds(200)), streamB) << "last, also when it is due";
  EXPECT_EQ(restorer.Next(start + seconds(200)), streamA);
}

TEST(Restorer, PatternsNameTheirResources) {
  EXPECT_TRUE(PatternMatches("/a", "/a"));
  EXPECT_FALSE(PatternMatches("/a", "/a/b"));
  EXPECT_TRUE(PatternMatches("/a/*", "/a"));
  EXPECT_TRUE(PatternMatches("/a/*", "/a/b/c"));
  EXPECT_FALSE(PatternMatches("/a/*", "/ab"));
  EXPECT_TRUE(PatternMatches("*", "/x"));
  EXPECT_TRUE(PatternMatches("/*", "/x"));
  EXPECT_TRUE(PatternMatches("//*", "/x"));
}

TEST(Watchdog, PingsEachSecondAndGivesUpAfterThreeOfSilence) {
  Watchdog dog;
  dog.SessionOpened(start);
  EXPECT_EQ(dog.Step(start + milliseconds(999)), Watchdog::Verdict::Healthy);
  EXPECT_EQ(dog.Step(start + seconds(1)), Watchdog::Verdict::Ping);
  EXPECT_EQ(dog.Step(start + seconds(1)), Watchdog::Verdict::Healthy);
  EXPECT_EQ(dog.NextDue(), start + seconds(2));
  EXPECT_EQ(dog.Step(start + seconds(2)), Watchdog::Verdict::Ping);
  EXPECT_EQ(dog.Step(start + seconds(3)), Watchdog::Verdict::Silent);
  dog.BytesArrived(start + seconds(3));
  EXPECT_EQ(dog.Step(start + seconds(3)), Watchdog::Verdict::Ping);
  EXPECT_EQ(dog.Step(start + seconds(6)), Watchdog::Verdict::Silent);
}

TEST(Watchdog, TimeInWhichNobodyListenedDoesNotCount) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.Deaf(seconds(10), start + seconds(10));
  EXPECT_EQ(dog.Step(start + seconds(11)), Watchdog::Verdict::Ping);
  EXPECT_EQ(dog.Step(start + seconds(13)), Watchdog::Verdict::Silent);
}

TEST(Watchdog, DeafTimeNeverReachesIntoTheFuture) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.BytesArrived(start + seconds(10));
  dog.Deaf(seconds(10), start + seconds(11));
  EXPECT_NE(dog.Step(start + milliseconds(13999)), Watchdog::Verdict::Silent);
  EXPECT_EQ(dog.Step(start + seconds(14)), Watchdog::Verdict::Silent);
}

TEST(Watchdog, PeerThatSpeaksButAnswersNoPingIsGivenUpThreeSecondsAfterThePing) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.AnswersPings();
  EXPECT_EQ(dog.Step(start + seconds(1)), Watchdog::Verdict::Ping);
  dog.PeerHears(start + milliseconds(1001));
  EXPECT_EQ(dog.Step(start + seconds(2)), Watchdog::Verdict::Ping);
  dog.PeerHears(start + milliseconds(1999));  // a sign from before the ping says nothing
  dog.BytesArrived(start + milliseconds(4998));
  EXPECT_EQ(dog.Step(start + milliseconds(4998)), Watchdog::Verdict::Ping);
  EXPECT_EQ(dog.NextDue(), start + seconds(5));
  EXPECT_EQ(dog.Step(start + milliseconds(4999)), Watchdog::Verdict::Healthy);
  EXPECT_EQ(dog.Step(start + seconds(5)), Watchdog::Verdict::Unheard);
  dog.PeerHears(start + milliseconds(2500));
  EXPECT_EQ(dog.Step(start + seconds(5)), Watchdog::Verdict::Healthy);
}

TEST(Watchdog, PeerThatHasNotAnsweredAPingInThisSessionNeedNot) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.AnswersPings();
  dog.SessionOpened(start + seconds(10));
  for (int second = 11; second < 20; ++second) {
    dog.BytesArrived(start + seconds(second));
    EXPECT_EQ(dog.Step(start + seconds(second)), Watchdog::Verdict::Ping);
  }
}

TEST(Watchdog, PongsThatNobodyCouldHearAreNotMissed) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.AnswersPings();
  EXPECT_EQ(dog.Step(start + seconds(1)), Watchdog::Verdict::Ping);
  dog.Deaf(seconds(10), start + seconds(11));
  dog.BytesArrived(start + seconds(13));
  EXPECT_NE(dog.Step(start + milliseconds(13999)), Watchdog::Verdict::Unheard);
  EXPECT_EQ(dog.Step(start + seconds(14)), Watchdog::Verdict::Unheard);
}

TEST(Watchdog, TwoUnansweredRequestsInARowAskForASignWithinASecond) {
  Watchdog dog;
  dog.SessionOpened(start);
  EXPECT_FALSE(dog.RequestUnanswered());
  dog.AnswerArrived();
  EXPECT_FALSE(dog.RequestUnanswered()) << "not in a row";
  EXPECT_TRUE(dog.RequestUnanswered());
  EXPECT_FALSE(dog.RequestUnanswered()) << "asked already";
  EXPECT_NE(dog.Step(start), Watchdog::Verdict::Mute);
  dog.HealthAsked(start);
  EXPECT_NE(dog.Step(start + milliseconds(999)), Watchdog::Verdict::Mute);
  EXPECT_EQ(dog.Step(start + seconds(1)), Watchdog::Verdict::Mute);
  dog.AnswerArrived();
  EXPECT_NE(dog.Step(start + seconds(1)), Watchdog::Verdict::Mute);
}

TEST(Watchdog, AnswerAboutItselfThatNobodyCouldHearIsNotMissed) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.RequestUnanswered();
  EXPECT_TRUE(dog.RequestUnanswered());
  dog.HealthAsked(start);
  dog.Deaf(seconds(10), start + seconds(10));
  EXPECT_NE(dog.Step(start + milliseconds(10999)), Watchdog::Verdict::Mute);
  EXPECT_EQ(dog.Step(start + seconds(11)), Watchdog::Verdict::Mute);
}

TEST(Watchdog, AnswerAboutItselfMayWaitBehindAMessageThatGrows) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.MessageGrows(start);
  dog.RequestUnanswered();
  EXPECT_TRUE(dog.RequestUnanswered());
  dog.HealthAsked(start);
  dog.MessageGrows(start + milliseconds(900));
  dog.BytesArrived(start + milliseconds(900));
  EXPECT_NE(dog.Step(start + milliseconds(1899)), Watchdog::Verdict::Mute);
  EXPECT_EQ(dog.Step(start + milliseconds(1900)), Watchdog::Verdict::Mute);
}

TEST(Watchdog, AnswerAboutItselfWaitsForHalfAMinuteAtMost) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.RequestUnanswered();
  dog.RequestUnanswered();
  dog.HealthAsked(start);
  for (int second = 0; second < 40; ++second) {
    dog.MessageGrows(start + seconds(second));
    dog.BytesArrived(start + seconds(second));
  }
  EXPECT_NE(dog.Step(start + milliseconds(30999)), Watchdog::Verdict::Mute);
  EXPECT_EQ(dog.Step(start + seconds(31)), Watchdog::Verdict::Mute);
}

TEST(Watchdog, AnswerAboutItselfIsNotMissedWhileNobodyListens) {
  Watchdog dog;
  dog.SessionOpened(start);
  dog.Paused(start);
  dog.RequestUnanswered();
  dog.RequestUnanswered();
  dog.HealthAsked(start);
  dog.Paused(start + seconds(60));
  EXPECT_NE(dog.Step(start + milliseconds(60999)), Watchdog::Verdict::Mute);
  EXPECT_EQ(dog.Step(start + seconds(61)), Watchdog::Verdict::Mute);
}

TEST(Backoff, FirstAtOnceThenDoublingToThreeSecondsWithJitter) {
  Duration shortest = seconds(3);
  Duration longest{};
  for (std::uint32_t seed = 1; seed < 50; ++seed) {
    Backoff backoff(seed);
    EXPECT_EQ(backoff.Next(), Duration::zero());
    for (const int full : {100, 200, 400, 800, 1600, 3000, 3000, 3000}) {
      const Duration pause = backoff.Next();
      EXPECT_LE(pause, milliseconds(full));
      EXPECT_GE(pause, milliseconds(full - full / 4));
      shortest = full == 3000 ? std::min(shortest, pause) : shortest;
      longest = std::max(longest, pause);
    }
    backoff.SessionLasted(seconds(9));
    EXPECT_GE(backoff.Next(), milliseconds(2250));
    backoff.SessionLasted(seconds(10));
    EXPECT_EQ(backoff.Next(), Duration::zero());
  }
  // The whole quarter is made use of, so that the clients of one sensor do not come back together.
  EXPECT_LT(shortest, milliseconds(2350));
  EXPECT_GT(longest, milliseconds(2900));
}

TEST(Outgoing, TellsUtf8FromOtherBytes) {
  for (const char* good : {"", "plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xED\x9F\xBF",
                           "\xEF\xBF\xBF", "\xF4\x8F\xBF\xBF", "\xE0\xA0\x80"}) {
    EXPECT_TRUE(IsUtf8(good)) << good;
  }
  for (const char* bad : {"\x80", "\xC3", "\xC3(", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE2\x82",
                          "\xED\xA0\x80", "\xF0\x80\x80\x80", "\xF0\x9F(\x80", "\xF0\x9F\x98(",
                          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "ok\xFE"}) {
    EXPECT_FALSE(IsUtf8(bad)) << bad;
  }
}

TEST(Outgoing, APayloadThatNoJsonCanHoldIsRefused) {
  const ZoJson payload = ZoJson::Of(std::numeric_limits<double>::infinity());
  const OutgoingText refused = ComposeRequest(ZoRequestMethod_Update, "/res", &payload);
  EXPECT_EQ(refused.status, -400);
  EXPECT_THAT(refused.error, HasSubstr("The payload cannot be written as JSON"));
  EXPECT_EQ(refused.tail, "");
}

TEST(Incoming, MessageThatCostsMoreMemoryThanAClientHasForItIsTooLarge) {
  ZoJsonShapes shapes;
  const auto message = [](std::size_t elements) {
    std::string text = R"({"id":1,"payload":[0)";
    for (std::size_t i = 1; i < elements; ++i) {
      text += ",0";
    }
    return text + "]}";
  };
  EXPECT_EQ(ReadIncoming(message(1'000'000), shapes).kind, Incoming::Kind::Answer);
  const std::string large = message(5'000'000);
  std::size_t memory = std::size_t{256} << 20;
  EXPECT_NO_THROW(ZoJson::ParseString(large, memory)) << "with twice as much";
  EXPECT_EQ(ReadIncoming(large, shapes).kind, Incoming::Kind::TooLarge);
}

TEST(Incoming, PushThatLacksWhatAPushHasIsUnknown) {
  ZoJsonShapes shapes;
  EXPECT_EQ(ReadIncoming(R"({"event":"stream","uri":"/s","payload":1})", shapes).kind,
            Incoming::Kind::Stream);
  for (const char* text : {R"({"event":"stream","payload":1})", R"({"event":"stream","uri":5,"payload":1})",
                           R"({"event":"stream","uri":"/s"})", R"({"event":"other","uri":"/s","payload":1})",
                           R"({"event":5})"}) {
    const Incoming message = ReadIncoming(text, shapes);
    EXPECT_EQ(message.kind, Incoming::Kind::Unknown) << text;
    EXPECT_EQ(message.uri, "") << text;
  }
}

TEST(Incoming, SuspectOfAnEndlessNumberOrAnOpenTextIsNobody) {
  EXPECT_EQ(SuspectOf(R"({"id":99999999999999999999,"payload":)").id, std::nullopt);
  EXPECT_EQ(SuspectOf(R"({"uri":"/a)").uri, std::nullopt);
  EXPECT_EQ(SuspectOf(R"({"uri":17})").uri, std::nullopt);
}

TEST(Incoming, SuspectIsNamedAtEitherEndOfTheMessage) {
  const std::string filler(100000, 'x');
  const Suspect first = SuspectOf("{\"uri\":\"/a\",\"payload\":\"" + filler);
  EXPECT_EQ(first.uri, "/a");
  const Suspect last = SuspectOf("{\"payload\":[\"" + filler + "\",{\"uri\":\"/inner\"}],\"uri\" : \"/b\"}}");
  EXPECT_EQ(last.uri, "/b");
  EXPECT_EQ(last.id, std::nullopt);
  EXPECT_EQ(SuspectOf("{\"payload\":1,\"id\":17").id, 17U);
  EXPECT_EQ(SuspectOf(filler).uri, std::nullopt);
}

TEST(Incoming, SuspectPushIsNoAnswerWhateverItHolds) {
  const Suspect push = SuspectOf(R"({"event":"stream","uri":"/s","payload":{"id":7,"d":[[[)");
  EXPECT_EQ(push.id, std::nullopt);
  EXPECT_EQ(push.uri, "/s");
  EXPECT_EQ(SuspectOf(R"({"id":7,"uri":"/a","payload":{"event":[[[)").id, 7U);
}

TEST(Driver, FaultOfTheLoopLeavesItFitToBeDriven) {
  EventLoop loop;
  int faults = 0;
  Driver driver(
      loop, [] {}, [&] { ++faults; });
  std::atomic<bool> done{false};
  const auto fail = [] { throw std::bad_alloc(); };
  loop.Post(fail);
  EXPECT_THROW(driver.Await(done, Clock::now() + seconds(60)), std::bad_alloc);
  EXPECT_EQ(faults, 1);
  loop.Post([&] { done = true; });
  driver.Notify();
  driver.Await(done, Clock::now() + seconds(60));
  EXPECT_TRUE(done);
}

TEST(Driver, FaultInTheOwnThreadsTurnLeavesItFitToBeDriven) {
  EventLoop loop;
  int faults = 0;
  Driver driver(
      loop, [] {}, [&] { ++faults; });
  loop.Post([] { throw std::bad_alloc(); });
  EXPECT_THROW(driver.Serve(Clock::now() + seconds(60)), std::bad_alloc);
  EXPECT_EQ(faults, 1);
  std::atomic<bool> done{false};
  loop.Post([&] { done = true; });
  driver.Await(done, Clock::now() + seconds(60));
  EXPECT_TRUE(done);
}

TEST(Driver, FaultAtTakeOverLeavesItFitToBeDriven) {
  EventLoop loop;
  bool fail = true;
  int faults = 0;
  Driver driver(
      loop,
      [&] {
        if (std::exchange(fail, false)) {
          throw std::bad_alloc();
        }
      },
      [&] { ++faults; });
  std::atomic<bool> done{false};
  loop.Post([&] { done = true; });
  EXPECT_THROW(driver.Await(done, Clock::now() + seconds(60)), std::bad_alloc);
  driver.Await(done, Clock::now() + seconds(60));
  EXPECT_TRUE(done);
}

// The whole state, as the connection uses it.
class State : public testing::Test {
 protected:
  using Pending = std::shared_ptr<ZoPendingRequest>;

  Pending Ask(ZoRequestMethod method, const std::string& uri) {
    auto pending = std::make_shared<ZoPendingRequest>();
    state.Request(method, uri, ComposeRequest(method, uri, nullptr), pending, now);
    return pending;
  }

  std::vector<std::string> Sent() {
    std::vector<std::string> messages;
    while (auto message = state.NextMessage(now)) {
      messages.push_back(std::move(*message));
    }
    return messages;
  }

  void Receive(const std::string& text) { state.Receive(ReadIncoming(text, shapes), now); }

  static std::string Outcome(const Pending& pending) {
    if (!pending->Settled()) {
      return "pending";
    }
    try {
      return pending->Take().Raw().ToString();
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  LinkState state;
  ZoJsonShapes shapes;
  Time now = start;
};

TEST_F(State, RequestsGoOutInOrderWithRisingIds) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_Read, "/a");
  Ask(ZoRequestMethod_Delete, "/b\"");
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":1,\"method\":\"read\",\"uri\":\"/a\"}",
                                  "{\"id\":2,\"method\":\"delete\",\"uri\":\"/b\\\"\"}"));
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  Ask(ZoRequestMethod_Read, "/c");
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":3,\"method\":\"read\",\"uri\":\"/c\"}"));
}

TEST_F(State, UnsentRequestsOutliveTheSessionAndSentOnesDoNot) {
  state.SessionOpened(now);
  const Pending sent = Ask(ZoRequestMethod_Read, "/sent");
  Sent();
  const Pending waiting = Ask(ZoRequestMethod_Read, "/waiting");
  state.SessionLost("cut", now);
  EXPECT_THAT(Outcome(sent), HasSubstr("broke before the answer came: cut."));
  EXPECT_EQ(Outcome(waiting), "pending");
  state.SessionOpened(now);
  EXPECT_EQ(Sent().size(), 1U);
}

TEST_F(State, OutageCostsNoMemory) {
  state.SessionOpened(now);
  state.SessionLost("cut", now);
  for (int i = 0; i < 10000; ++i) {
    const Pending pending = Ask(ZoRequestMethod_Update, "/r" + std::to_string(i));
    now += std::chrono::microseconds(250);
    state.TimeOut(pending, 1000, now);
    EXPECT_THAT(Outcome(pending), HasSubstr("was down for 0.001 s"));
  }
  EXPECT_EQ(state.Requests().Size(), 0U);
  EXPECT_LE(state.Requests().QueueLength(), 128U);
  for (int i = 0; i < 100; ++i) {
    Ask(ZoRequestMethod_Update, "/nobody_waits");
  }
  now += seconds(4);
  state.Step(now);
  EXPECT_EQ(state.Requests().Size(), 0U);
}

// A host that makes a long row of calls would freeze for a whole time-out with each.
TEST_F(State, OnceSomebodyHasWaitedForTheLinkInVainOthersFailAtOnceUntilItIsBack) {
  state.SessionOpened(now);
  state.SessionLost("cut", now);
  const Pending first = Ask(ZoRequestMethod_StartStream, "/a");
  const Pending second = Ask(ZoRequestMethod_StartStream, "/b");
  now += seconds(3);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Update, "/c")), "pending");
  state.TimeOut(first, 3000000, now);
  EXPECT_EQ(Outcome(first), "The link to the sensor was down for 3 s.");
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Update, "/d")), "The link to the sensor is down.");
  EXPECT_EQ(Outcome(second), "pending") << "who waits already has its own time";
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Read, "/e")), "The link to the sensor is down.");
  EXPECT_THAT(Outcome(Ask(ZoRequestMethod_Read, "/e")), HasSubstr("-599"));
  state.SessionOpened(now);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Update, "/d")), "pending");
  state.SessionLost("cut", now);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Update, "/d")), "pending") << "a new outage";
}

TEST_F(State, ShortPatienceInAShortOutageLeavesOthersTheirTime) {
  state.SessionOpened(now);
  state.SessionLost("cut", now);
  const Pending hasty = Ask(ZoRequestMethod_Update, "/a");
  now += seconds(2);
  state.TimeOut(hasty, 2000000, now);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Update, "/b")), "pending");
}

// Or whoever reads it again and again, such as a search for missing items, would end each session.
TEST_F(State, ReadWhoseAnswersEndedTwoSessionsIsAnsweredHereButForOneAfterAWhile) {
  const auto endSession = [this](int id) {
    state.MessageUnusable("{\"id\":" + std::to_string(id) + ",\"status\":1,\"payload\":[[[", true, now);
    state.SessionLost("bad message", now);
    state.SessionOpened(now);
  };
  state.SessionOpened(now);
  for (int id = 1; id <= 2; ++id) {
    EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Read, "/a")), "pending");
    Sent();
    endSession(id);
  }
  EXPECT_THAT(Outcome(Ask(ZoRequestMethod_Read, "/a")), HasSubstr("end the session"));
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Update, "/a")), "pending") << "reads alone are made again and again";
  Sent();
  now += seconds(5);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Read, "/a")), "pending");
  EXPECT_THAT(Outcome(Ask(ZoRequestMethod_Read, "/a")), HasSubstr("-599"));
  ASSERT_EQ(Sent().size(), 1U);
  Receive("{\"id\":4,\"status\":-404,\"uri\":\"/a\",\"payload\":null}");
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Read, "/a")), "pending");
}

TEST_F(State, ReadOfAResourceThatHadContentFailsSoThatTheContentStays) {
  state.SessionOpened(now);
  const Pending good = Ask(ZoRequestMethod_Read, "/a");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"payload\":5}");
  for (int id = 2; id <= 3; ++id) {
    Ask(ZoRequestMethod_Read, "/a");
    Sent();
    state.MessageUnusable("{\"id\":" + std::to_string(id) + ",\"status\":1,\"payload\":[[[", true, now);
    state.SessionLost("bad message", now);
    state.SessionOpened(now);
  }
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Read, "/a")),
            "The sensor's answers about this resource end the session; it is asked ever more rarely.");
}

TEST_F(State, AnswerToAReadThatEndsSessionsSaysNothingOfItsStream) {
  state.SessionOpened(now);
  const Pending stream = Ask(ZoRequestMethod_StartStream, "/a");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"payload\":5}");
  for (int i = 0; i < 2; ++i) {
    const Pending read = Ask(ZoRequestMethod_Read, "/a");
    const std::vector<std::string> sent = Sent();
    ASSERT_EQ(sent.size(), 1U);
    const int id = ZoJson::ParseString(sent.back()).At("id").Get<int>();
    state.MessageUnusable("{\"id\":" + std::to_string(id) + ",\"payload\":[[[", true, now);
    state.SessionLost("bad message", now);
    state.SessionOpened(now);
    ASSERT_EQ(Sent().size(), 1U) << "the stream is asked for again at once";
  }
}

TEST_F(State, WantOfMemoryForAnAnswerIsNotTheResources) {
  state.SessionOpened(now);
  for (int id = 1; id <= 2; ++id) {
    Ask(ZoRequestMethod_Read, "/a");
    Sent();
    state.MessageUnusable("{\"id\":" + std::to_string(id) + ",\"payload\":[[[", false, now);
    state.SessionLost("bad message", now);
    state.SessionOpened(now);
  }
  EXPECT_FALSE(state.Brake().EndsSessions("/a"));
}

TEST_F(State, LateAnswersOfAReadThatEndSessionsCountToo) {
  state.SessionOpened(now);
  const Pending read = Ask(ZoRequestMethod_Read, "/a");
  Sent();
  state.TimeOut(read, 3000000, now);
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(state.Brake().EndsSessions("/a"));
    state.MessageUnusable("{\"id\":1,\"status\":1,\"uri\":\"/a\",\"payload\":[[[", true, now);
    state.MessageUnusable("{\"id\":1,\"status\":1,\"uri\":\"/b\",\"payload\":[[[", true, now);
  }
  EXPECT_TRUE(state.Brake().EndsSessions("/a"));
  EXPECT_FALSE(state.Brake().EndsSessions("/b")) << "it was never asked about";
}

TEST_F(State, PushThatNobodyAskedForIsDroppedAndLiftsTheBrake) {
  state.SessionOpened(now);
  const Pending mute = Ask(ZoRequestMethod_Read, "/a");
  Sent();
  state.TimeOut(mute, 1, now);
  ASSERT_EQ(state.Brake().BrakedCount(), 1U);
  Receive("{\"event\":\"notification\",\"uri\":\"/a\",\"payload\":1}");
  EXPECT_EQ(state.Pushes().Waiting(), 0U);
  EXPECT_EQ(state.Brake().BrakedCount(), 0U);
}

TEST_F(State, PushesCountFromTheRequestOnUntilItsEndIsAskedFor) {
  const std::string push = "{\"event\":\"stream\",\"uri\":\"/a\",\"payload\":1}";
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/a");
  Sent();
  Receive(push);
  EXPECT_EQ(state.Pushes().TakeDue(now + seconds(1), 9).size(), 1U);
  Ask(ZoRequestMethod_StopStream, "/a");
  Receive(push);
  EXPECT_EQ(state.Pushes().Waiting(), 0U);
  Ask(ZoRequestMethod_StartStream, "/a");
  Sent();
  Receive("{\"id\":2,\"status\":1}");
  Receive(push);
  EXPECT_EQ(state.Pushes().Waiting(), 1U) << "the answer to the stop is older than the new start";
}

TEST_F(State, PushesOfARefusedStreamAreDropped) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/a");
  Sent();
  Receive("{\"id\":1,\"status\":-405,\"payload\":null}");
  EXPECT_EQ(state.Interests().Size(), 0U);
  Receive("{\"event\":\"stream\",\"uri\":\"/a\",\"payload\":1}");
  EXPECT_EQ(state.Pushes().Waiting(), 0U);
}

// Whoever started a stream goes by its first content; pushes that are dropped for a status would leave it with that.
TEST_F(State, StreamWithAFirstContentCountsAsGrantedWhateverItsStatus) {
  state.SessionOpened(now);
  for (const char* const status : {"\"status\":2,", "\"status\":-7,"}) {
    Ask(ZoRequestMethod_StartStream, "/a");
    const auto sent = Sent();
    ASSERT_FALSE(sent.empty());
    const std::string id = std::to_string(ZoJson::ParseString(sent.back()).At("id").Get<int>());
    Receive("{\"id\":" + id + "," + status + "\"payload\":{\"v\":1}}");
    Receive("{\"event\":\"stream\",\"uri\":\"/a\",\"payload\":{\"v\":2}}");
    EXPECT_EQ(state.Pushes().TakeDue(now + seconds(1), 9).size(), 1U) << status;
    EXPECT_EQ(state.Wishes().Size(), 1U) << status;
    Ask(ZoRequestMethod_StopStream, "/a");
    Sent();
  }
}

TEST_F(State, RestoredStreamWithAFirstContentCountsAsGrantedWhateverItsStatus) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/a");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"payload\":{\"v\":1}}");
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  EXPECT_EQ(Sent().size(), 1U);
  Receive("{\"id\":2,\"status\":2,\"payload\":{\"v\":2}}");
  EXPECT_EQ(state.Pushes().TakeDue(now + seconds(1), 9).size(), 1U);
  now += seconds(10);
  state.BytesArrived(now);
  state.Step(now);
  EXPECT_EQ(Sent().size(), 0U) << "it is not asked for again";
}

// Whoever asked for it takes an empty content for none.
TEST_F(State, StreamWithAnEmptyFirstContentIsGrantedByItsStatusAlone) {
  state.SessionOpened(now);
  for (const char* const payload : {"{}", "[]", "null"}) {
    const std::size_t before = state.Wishes().Size();
    Ask(ZoRequestMethod_StartStream, "/a");
    auto sent = Sent();
    ASSERT_FALSE(sent.empty());
    const std::string id = std::to_string(ZoJson::ParseString(sent.back()).At("id").Get<int>());
    Receive("{\"id\":" + id + ",\"status\":2,\"payload\":" + payload + "}");
    EXPECT_EQ(state.Wishes().Size(), before) << payload;
  }
}

TEST_F(State, RequestThatNobodyWaitsForAndCannotBeSentIsToldSo) {
  state.SessionOpened(now);
  const Pending unsent = Ask(ZoRequestMethod_Read, "/a");
  now += seconds(4);
  state.BytesArrived(now);
  state.Step(now);
  EXPECT_EQ(Outcome(unsent), "The request could not be sent to the sensor, and nobody waited for it.");
}

TEST_F(State, StreamWhoseAnswerHasNoStatusIsNotGranted) {
  state.SessionOpened(now);
  const Pending started = Ask(ZoRequestMethod_StartStream, "/a");
  Sent();
  Receive("{\"id\":1,\"payload\":{\"v\":1}}");
  EXPECT_EQ(Outcome(started), "The sensor's answer carries no status.");
  EXPECT_EQ(state.Wishes().Size(), 0U);
}

TEST_F(State, AnswerTellsWhetherAPushCameShortlyBefore) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_Sub, "/a");
  Sent();
  const auto read = [this] {
    const Pending pending = Ask(ZoRequestMethod_Read, "/a");
    Receive("{\"id\":" + std::to_string(ZoJson::ParseString(Sent().back()).At("id").Get<int>()) +
            ",\"status\":1,\"payload\":1}");
    return pending->Take().Arrival().closeToPush;
  };
  EXPECT_FALSE(read());
  now += seconds(1);
  Receive("{\"event\":\"notification\",\"uri\":\"/a\",\"payload\":1}");
  EXPECT_FALSE(read()) << "what waits is older, and gives way";
  EXPECT_EQ(state.Pushes().TakeDue(now + seconds(1), 9).size(), 1U);
  EXPECT_TRUE(read()) << "it is being handed on";
  state.Pushes().Delivered(now);
  now += milliseconds(1);
  EXPECT_TRUE(read());
  now += milliseconds(1);
  EXPECT_FALSE(read());
}

TEST_F(State, FirstContentOfAStreamThatTakesAWaitingPushesPlaceIsAsNewAsItIs) {
  state.SessionOpened(now);
  const Pending started = Ask(ZoRequestMethod_StartStream, "/a");
  Ask(ZoRequestMethod_Read, "/a");
  Sent();
  Receive("{\"event\":\"stream\",\"uri\":\"/a\",\"payload\":{\"v\":1}}");
  Receive("{\"id\":2,\"status\":1,\"payload\":{\"v\":2}}");
  Receive("{\"id\":1,\"status\":1,\"payload\":{\"v\":3}}");
  const std::vector<Push> due = state.Pushes().TakeDue(now + seconds(1), 9);
  ASSERT_EQ(due.size(), 1U);
  EXPECT_EQ(due[0].document.At("payload").ToString(), "{\"v\":3}");
  EXPECT_EQ(due[0].order, started->Take().Arrival().order);
}

TEST(Interest, KnowsPatternsAndBothSpellings) {
  using Kind = Restorer::Kind;
  struct Row {
    Kind kind;
    const char* asked;
    std::vector<const char*> covered;
    std::vector<const char*> others;
  };
  const std::vector<Row> rows = {
      {Kind::Stream, "/res", {"/res", "res"}, {"/", "", "/res/sub", "/re", "/rest"}},
      {Kind::Stream, "res", {"/res", "res"}, {"/res/sub"}},
      {Kind::Stream, "/res/*", {"/res/*", "res/*"}, {"/res", "/res/sub"}},
      {Kind::Stream, "*", {"*", "/*"}, {"/res"}},
      {Kind::Subscription, "/res", {"/res", "res"}, {"/res/sub"}},
      {Kind::Subscription,
       "/res/*",
       {"/res", "res", "/res/sub", "res/sub/er", "/res/"},
       {"/rest", "/re", "/", ""}},
      {Kind::Subscription, "a/b/*", {"/a/b", "a/b/c"}, {"/a", "/a/bc", "/b"}},
      {Kind::Subscription, "*", {"/", "", "/res", "res/sub"}, {}},
      {Kind::Subscription, "/*", {"/", "", "/res", "res/sub"}, {}}};
  for (const Row& row : rows) {
    Interest interest;
    interest.Asked({row.kind, row.asked}, 1);
    for (const char* uri : row.covered) {
      EXPECT_TRUE(interest.Covers(uri)) << row.asked << " " << uri;
    }
    for (const char* uri : row.others) {
      EXPECT_FALSE(interest.Covers(uri)) << row.asked << " " << uri;
    }
    interest.Ended({row.kind, row.asked});
    EXPECT_EQ(interest.Size(), 0U) << row.asked;
    for (const char* uri : row.covered) {
      EXPECT_FALSE(interest.Covers(uri)) << row.asked << " " << uri;
    }
  }
}

TEST(Interest, EachKindAndSpellingEndsForItself) {
  using Kind = Restorer::Kind;
  const std::vector<Restorer::Key> keys = {
      {Kind::Stream, "/r"}, {Kind::Stream, "r"}, {Kind::Subscription, "/r"}, {Kind::Subscription, "r"}};
  Interest interest;
  for (const Restorer::Key& key : keys) {
    interest.Asked(key, 1);
  }
  for (const Restorer::Key& key : keys) {
    EXPECT_TRUE(interest.Covers("/r"));
    interest.Ended(key);
    interest.Ended(key);
  }
  EXPECT_FALSE(interest.Covers("/r"));
}

TEST(Interest, EachPatternForEverythingEndsForItself) {
  using Kind = Restorer::Kind;
  const std::vector<Restorer::Key> keys = {
      {Kind::Subscription, "*"}, {Kind::Subscription, "/*"}, {Kind::Subscription, "//*"}};
  Interest interest;
  for (const Restorer::Key& key : keys) {
    interest.Asked(key, 1);
  }
  for (const Restorer::Key& key : keys) {
    EXPECT_TRUE(interest.Covers("/r")) << key.second;
    interest.Ended(key);
  }
  EXPECT_FALSE(interest.Covers("/r"));
  EXPECT_EQ(interest.Size(), 0U);
}

// Were each beginning of the name looked up, this would take minutes, and with the link's lock held.
TEST(Interest, NamesOfAMillionSlashesAreLookedAtAtOnce) {
  Interest interest;
  const std::string slashes(std::size_t{1} << 20, '/');
  interest.Asked({Restorer::Kind::Subscription, "/res/*"}, 1);
  interest.Asked({Restorer::Kind::Subscription, "/deep///*"}, 2);
  const auto began = std::chrono::steady_clock::now();
  EXPECT_FALSE(interest.Covers("x" + slashes));
  EXPECT_TRUE(interest.Covers("/res" + slashes));
  EXPECT_TRUE(interest.Covers("/deep" + slashes));
  EXPECT_LT(std::chrono::steady_clock::now() - began, seconds(1));
}

TEST(Interest, PatternsOfOneLengthEndForThemselves) {
  Interest interest;
  interest.Asked({Restorer::Kind::Subscription, "/aaa/*"}, 1);
  interest.Asked({Restorer::Kind::Subscription, "/bbb/*"}, 2);
  interest.Ended({Restorer::Kind::Subscription, "/aaa/*"});
  EXPECT_FALSE(interest.Covers("/aaa/x"));
  EXPECT_TRUE(interest.Covers("/bbb/x"));
  EXPECT_TRUE(interest.Covers("/bbb"));
  EXPECT_FALSE(interest.Covers("/bbbb"));
  interest.Ended({Restorer::Kind::Subscription, "/ccc/*"});
  EXPECT_TRUE(interest.Covers("/bbb/x")) << "the end of what nobody asked for";
  interest.Ended({Restorer::Kind::Subscription, "/bbb/*"});
  EXPECT_FALSE(interest.Covers("/bbb/x"));
}

TEST(Interest, RefusalOfAnOlderRequestChangesNothing) {
  Interest interest;
  interest.Asked({Restorer::Kind::Stream, "/r"}, 5);
  interest.Refused({Restorer::Kind::Stream, "/r"}, 4);
  EXPECT_TRUE(interest.Covers("/r"));
  interest.Refused({Restorer::Kind::Stream, "/r"}, 5);
  EXPECT_FALSE(interest.Covers("/r"));
}

TEST_F(State, SensorThatLeavesRequestsUnansweredIsAskedAfter) {
  state.SessionOpened(now);
  for (const char* uri : {"/a", "/b"}) {
    const Pending pending = Ask(ZoRequestMethod_Read, uri);
    Sent();
    state.TimeOut(pending, 1, now);
  }
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":3,\"method\":\"read\",\"uri\":\"/system\"}"));
  now += milliseconds(500);
  EXPECT_EQ(state.Step(now), Watchdog::Verdict::Healthy);
  now += milliseconds(500);
  EXPECT_EQ(state.Step(now), Watchdog::Verdict::Mute);
}

TEST_F(State, SensorHasASecondFromWhenItIsAskedAfterItselfAndNotFromWhenThatIsDecided) {
  state.SessionOpened(now);
  for (const char* uri : {"/a", "/b"}) {
    const Pending pending = Ask(ZoRequestMethod_Read, uri);
    Sent();
    state.TimeOut(pending, 1, now);
  }
  now += milliseconds(1500);  // in which a large message went out
  state.BytesArrived(now);
  EXPECT_NE(state.Step(now), Watchdog::Verdict::Mute);
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":3,\"method\":\"read\",\"uri\":\"/system\"}"));
  now += milliseconds(999);
  EXPECT_NE(state.Step(now), Watchdog::Verdict::Mute);
  now += milliseconds(1);
  EXPECT_EQ(state.Step(now), Watchdog::Verdict::Mute);
}

TEST_F(State, QuestionAboutTheSensorThatWasNeverSentIsAskedAnew) {
  state.SessionOpened(now);
  std::vector<Pending> pending;
  for (const char* uri : {"/a", "/b", "/c"}) {
    pending.push_back(Ask(ZoRequestMethod_Read, uri));
  }
  EXPECT_EQ(Sent().size(), 3U);
  state.TimeOut(pending[0], 1, now);
  state.TimeOut(pending[1], 1, now);
  EXPECT_EQ(state.Requests().Count(RequestRole::Health), 1U);
  now += seconds(3);  // in which nothing could be sent
  state.BytesArrived(now);
  EXPECT_NE(state.Step(now), Watchdog::Verdict::Mute);
  EXPECT_EQ(state.Requests().Count(RequestRole::Health), 0U);
  state.TimeOut(pending[2], 1, now);
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":5,\"method\":\"read\",\"uri\":\"/system\"}"));
  now += seconds(1);
  EXPECT_EQ(state.Step(now), Watchdog::Verdict::Mute);
}

TEST_F(State, RefusedReadMayBeBrakedLater) {
  state.SessionOpened(now);
  const Pending refused = Ask(ZoRequestMethod_Read, "/typo");
  Sent();
  Receive("{\"id\":1,\"status\":-404,\"uri\":\"/typo\",\"payload\":null}");
  const Pending unanswered = Ask(ZoRequestMethod_Read, "/typo");
  Sent();
  state.TimeOut(unanswered, 1, now);
  EXPECT_THAT(Outcome(Ask(ZoRequestMethod_Read, "/typo")), HasSubstr("-599"));
}

TEST_F(State, ReadThatBroughtContentIsNeverBraked) {
  state.SessionOpened(now);
  const Pending answered = Ask(ZoRequestMethod_Read, "/a");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"uri\":\"/a\",\"payload\":1}");
  const Pending unanswered = Ask(ZoRequestMethod_Read, "/a");
  Sent();
  state.TimeOut(unanswered, 1, now);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Read, "/a")), "pending");
}

TEST_F(State, RefusedReadLeavesAWaitingPushAlone) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_Sub, "/a");
  const Pending read = Ask(ZoRequestMethod_Read, "/a");
  Sent();
  Receive("{\"event\":\"notification\",\"uri\":\"/a\",\"payload\":2}");
  Receive("{\"id\":2,\"status\":-503,\"payload\":null}");
  const std::vector<Push> due = state.Pushes().TakeDue(now, 9);
  ASSERT_EQ(due.size(), 1U);
  EXPECT_EQ(due[0].document.At("/payload").ToString(), "2");
}

TEST_F(State, PushThatTakesTheContentOfAnAnswerIsAsNewAsTheAnswer) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_Sub, "/a");
  Ask(ZoRequestMethod_Sub, "/b");
  const Pending read = Ask(ZoRequestMethod_Read, "/a");
  const Pending stream = Ask(ZoRequestMethod_StartStream, "/b");
  Sent();
  Receive("{\"event\":\"notification\",\"uri\":\"/a\",\"payload\":1}");
  Receive("{\"event\":\"notification\",\"uri\":\"/b\",\"payload\":1}");
  Receive("{\"id\":3,\"status\":1,\"uri\":\"/a\",\"payload\":2}");
  Receive("{\"id\":4,\"status\":1,\"uri\":\"/b\",\"payload\":3}");
  const std::vector<Push> due = state.Pushes().TakeDue(now + seconds(1), 9);
  EXPECT_THAT(Values(due), ElementsAre(2, 3));
  ASSERT_EQ(due.size(), 2U);
  EXPECT_EQ(due[0].order, read->Take().Arrival().order);
  EXPECT_EQ(due[1].order, stream->Take().Arrival().order);
  EXPECT_LT(due[0].order, due[1].order);
}

TEST_F(State, StreamThatIsGrantedTooLateForItsCallerIsRestoredAllTheSame) {
  state.SessionOpened(now);
  const Pending late = Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  state.TimeOut(late, 3000000, now);
  EXPECT_THAT(Outcome(late), HasSubstr("did not answer"));
  Receive("{\"id\":1,\"status\":1,\"uri\":\"/s\",\"payload\":1}");
  EXPECT_EQ(state.Wishes().Size(), 1U);
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":2,\"method\":\"startStream\",\"uri\":\"/s\"}"));
}

TEST_F(State, StopWhoseAnswerIsStillOutKeepsAnEarlierStartFromBeingRestored) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/s");
  Ask(ZoRequestMethod_StopStream, "/s");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"uri\":\"/s\",\"payload\":1}");
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  EXPECT_TRUE(Sent().empty());
}

TEST_F(State, StopOfAStreamWhoseRestoreWasNotAnsweredIsToldToTheSensor) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"uri\":\"/s\",\"payload\":1}");
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  EXPECT_EQ(Sent().size(), 1U);
  now += seconds(3);
  state.BytesArrived(now);
  state.Step(now);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_StopStream, "/s")), "{\"status\":1,\"uri\":\"/s\"}");
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":3,\"method\":\"stopStream\",\"uri\":\"/s\"}"));
}

TEST_F(State, BeforeTheFirstSessionEverybodyMayWait) {
  const Pending hasty = Ask(ZoRequestMethod_Update, "/a");
  now += seconds(10);
  state.TimeOut(hasty, 1000, now);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Update, "/b")), "pending");
}

TEST_F(State, AnswerThatNobodyTakesDropsNoPush) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/a");
  Pending read = Ask(ZoRequestMethod_Read, "/a");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"uri\":\"/a\",\"payload\":1}");
  Receive("{\"event\":\"stream\",\"uri\":\"/a\",\"payload\":2}");
  read.reset();
  Receive("{\"id\":2,\"status\":1,\"uri\":\"/a\",\"payload\":1}");
  EXPECT_EQ(state.Pushes().Waiting(), 1U);
  const Pending kept = Ask(ZoRequestMethod_Read, "/a");
  Sent();
  Receive("{\"id\":3,\"status\":1,\"uri\":\"/a\",\"payload\":3}");
  const std::vector<Push> due = state.Pushes().TakeDue(now + seconds(1), 9);
  ASSERT_EQ(due.size(), 1U);
  EXPECT_EQ(due[0].document.At("/payload").ToString(), "3") << "the newer one";
}

TEST_F(State, RequestStuckBehindOthersOnALiveLinkIsNoOutage) {
  state.SessionOpened(now);
  const Pending stuck = Ask(ZoRequestMethod_Read, "/a");
  now += seconds(2);
  state.TimeOut(stuck, 2000000, now);
  EXPECT_EQ(Outcome(stuck), "The request could not be sent to the sensor within 2 s.");
  EXPECT_EQ(state.Brake().BrakedCount(), 0U);
  EXPECT_EQ(Outcome(Ask(ZoRequestMethod_Read, "/a")), "pending");
}

// Whether the stream comes back with the next session.
class StreamOrder : public State {
 protected:
  StreamOrder() { state.SessionOpened(now); }
  void Answer(int id) {
    Receive("{\"id\":" + std::to_string(id) + ",\"status\":1,\"uri\":\"/s\",\"payload\":1}");
  }
  std::size_t Restored() {
    state.SessionLost("cut", now);
    state.SessionOpened(now);
    return Sent().size();
  }
};

TEST_F(StreamOrder, StopAfterStartEndsItWhicheverIsAnsweredFirst) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Ask(ZoRequestMethod_StopStream, "/s");
  Sent();
  Answer(2);
  Answer(1);
  EXPECT_EQ(state.Wishes().Size(), 0U);
  EXPECT_EQ(Restored(), 0U);
}

TEST_F(StreamOrder, StartAfterStopKeepsItWhicheverIsAnsweredFirst) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Ask(ZoRequestMethod_StopStream, "/s");
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  Answer(3);
  Answer(2);
  Answer(1);
  EXPECT_EQ(Restored(), 1U);
}

TEST_F(StreamOrder, RefusalOfAnEarlierStartDoesNotEndALaterOne) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  Answer(2);
  Receive("{\"id\":1,\"status\":-503,\"payload\":null}");
  EXPECT_EQ(Restored(), 1U);
}

TEST_F(State, LateAnswerLiftsTheBrake) {
  state.SessionOpened(now);
  const Pending unanswered = Ask(ZoRequestMethod_Read, "/slow");
  Sent();
  state.TimeOut(unanswered, 1, now);
  EXPECT_EQ(state.Brake().BrakedCount(), 1U);
  Receive("{\"id\":9,\"status\":1,\"uri\":\"/slow\",\"payload\":1}");
  EXPECT_EQ(state.Brake().BrakedCount(), 1U) << "no such request was made";
  Receive("{\"id\":1,\"status\":1,\"uri\":\"/slow\",\"payload\":1}");
  EXPECT_EQ(state.Brake().BrakedCount(), 0U);
}

TEST_F(State, LateAnswerThatDoesNotSayOfWhatItIsLiftsNoBrake) {
  state.SessionOpened(now);
  const Pending unanswered = Ask(ZoRequestMethod_Read, "");
  Sent();
  state.TimeOut(unanswered, 1, now);
  EXPECT_EQ(state.Brake().BrakedCount(), 1U);
  Receive("{\"id\":1,\"status\":-503,\"payload\":null}");
  Receive("{\"id\":1,\"status\":1,\"uri\":7,\"payload\":1}");
  EXPECT_EQ(state.Brake().BrakedCount(), 1U);
  Receive("{\"id\":1,\"status\":1,\"uri\":\"\",\"payload\":1}");
  EXPECT_EQ(state.Brake().BrakedCount(), 0U);
}

TEST_F(State, UnansweredRestoresCountAsSilenceOfTheSensor) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_Sub, "/s");
  Ask(ZoRequestMethod_Sub, "/t");
  Sent();
  Receive("{\"id\":1,\"status\":1}");
  Receive("{\"id\":2,\"status\":1}");
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  EXPECT_EQ(Sent().size(), 2U);
  now += seconds(3);
  state.BytesArrived(now);
  state.Step(now);
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":5,\"method\":\"read\",\"uri\":\"/system\"}"));
  now += seconds(1);
  EXPECT_EQ(state.Step(now), Watchdog::Verdict::Mute);
}

TEST_F(State, RestoredStreamDeliversItsContentAsAPush) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"uri\":\"/s\",\"payload\":1}");
  state.SessionLost("cut", now);
  now += seconds(1);
  state.SessionOpened(now);
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":2,\"method\":\"startStream\",\"uri\":\"/s\"}"));
  Receive("{\"id\":2,\"status\":1,\"uri\":\"/s\",\"payload\":7}");
  const std::vector<Push> due = state.Pushes().TakeDue(now, 9);
  ASSERT_EQ(due.size(), 1U);
  EXPECT_EQ(due[0].document.ToString(), "{\"event\":\"stream\",\"uri\":\"/s\",\"payload\":7}");
}

TEST_F(State, StreamStoppedWhileItIsBeingRestoredIsStoppedAtTheSensorToo) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"payload\":1}");
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  Sent();
  const Pending stop = Ask(ZoRequestMethod_StopStream, "/s");
  EXPECT_EQ(Outcome(stop), "{\"status\":1,\"uri\":\"/s\"}");
  Receive("{\"id\":2,\"status\":1,\"payload\":1}");
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":3,\"method\":\"stopStream\",\"uri\":\"/s\"}"));
  EXPECT_EQ(state.Pushes().Waiting(), 0U);
  EXPECT_EQ(state.Wishes().Size(), 0U);
}

TEST_F(State, RestoresAreWindowedAndDoNotHoldCallersUp) {
  state.SessionOpened(now);
  for (int i = 0; i < 100; ++i) {
    Ask(ZoRequestMethod_Sub, "/s" + std::to_string(i));
  }
  Sent();
  for (int i = 1; i <= 100; ++i) {
    Receive("{\"id\":" + std::to_string(i) + ",\"status\":1}");
  }
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  Ask(ZoRequestMethod_Read, "/mine");
  const std::vector<std::string> first = Sent();
  ASSERT_EQ(first.size(), 33U);
  EXPECT_THAT(first[0], HasSubstr("/mine"));
  Receive("{\"id\":102,\"status\":1}");
  EXPECT_EQ(Sent().size(), 1U);
}

TEST_F(State, UnansweredRestoreIsTriedAgain) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_Sub, "/s");
  Sent();
  Receive("{\"id\":1,\"status\":1}");
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  EXPECT_EQ(Sent().size(), 1U);
  now += seconds(3);
  state.BytesArrived(now);
  state.Step(now);
  EXPECT_EQ(Sent().size(), 0U);
  now += seconds(3);
  EXPECT_EQ(Sent().size(), 1U);
}

// Starts whose answer was lost with the session that they were sent in.
class Unheard : public State {
 protected:
  Unheard() { state.SessionOpened(now); }

  // A granted stream, with the id 1.
  void GrantOther() {
    Ask(ZoRequestMethod_StartStream, "/other");
    Sent();
    Receive("{\"id\":1,\"status\":1,\"payload\":1}");
  }
  // The requests of the next session, which begins after the end of this one, as "method uri".
  std::vector<std::string> Restores() {
    state.SessionLost("cut", now);
    now += milliseconds(1);
    state.SessionOpened(now);
    return Asked();
  }
  std::vector<std::string> Asked() {
    std::vector<std::string> asked;
    for (const std::string& text : Sent()) {
      const ZoJson message = ZoJson::ParseString(text);
      lastId = message.At("id").Get<int>();
      asked.push_back(message.At("method").Get<std::string>() + " " + message.At("uri").Get<std::string>());
    }
    return asked;
  }
  void AnswerLast(const std::string& members) {
    Receive("{\"id\":" + std::to_string(lastId) + "," + members + "}");
  }
  // A time in which the sensor says nothing of use.
  void Pass(Duration time) {
    now += time;
    state.BytesArrived(now);
    state.Step(now);
  }

  int lastId = 0;
};

TEST_F(Unheard, StartIsAskedForInTheNextSessionAndItsPushesCount) {
  const Pending stream = Ask(ZoRequestMethod_StartStream, "/s");
  const Pending subscription = Ask(ZoRequestMethod_Sub, "/n/*");
  Sent();
  EXPECT_THAT(Restores(), ElementsAre("startStream /s", "sub /n/*"));
  EXPECT_THAT(Outcome(stream), HasSubstr("broke before the answer came")) << "whoever asked was told so";
  EXPECT_THAT(Outcome(subscription), HasSubstr("broke before the answer came"));
  AnswerLast("\"status\":1");
  Receive("{\"event\":\"notification\",\"uri\":\"/n/1\",\"payload\":1}");
  EXPECT_EQ(state.Pushes().Waiting(), 1U);
  EXPECT_THAT(Restores(), ElementsAre("sub /n/*", "startStream /s")) << "what is granted comes first";
}

TEST_F(Unheard, StartThatRanOutOfTimeBeforeItsSessionEndedIsAskedForToo) {
  const Pending late = Ask(ZoRequestMethod_Sub, "/n/*");
  Sent();
  now += seconds(3);
  state.TimeOut(late, 3000000, now);
  EXPECT_THAT(Restores(), ElementsAre("sub /n/*"));
}

TEST_F(Unheard, StartComesBehindWhatWasGranted) {
  Ask(ZoRequestMethod_StartStream, "/first");
  Sent();
  Restores();  // it waits for its answer
  Ask(ZoRequestMethod_StartStream, "/granted");
  ASSERT_THAT(Asked(), ElementsAre("startStream /granted"));
  AnswerLast("\"status\":1,\"payload\":1");
  EXPECT_THAT(Restores(), ElementsAre("startStream /granted", "startStream /first"));
}

// A batch that subscribes goes on when the link goes down for long, and its host is told of success.
TEST_F(Unheard, SubscriptionsThatCouldNotBeSentAreAskedForWhenTheLinkIsBack) {
  state.SessionLost("cut", now);
  const Pending first = Ask(ZoRequestMethod_Sub, "/a/*");
  now += seconds(3);
  state.TimeOut(first, 3000000, now);
  const Pending second = Ask(ZoRequestMethod_Sub, "/b/*");
  EXPECT_EQ(Outcome(first), "The link to the sensor was down for 3 s.");
  EXPECT_EQ(Outcome(second), "The link to the sensor is down.");
  now += seconds(60);
  state.SessionOpened(now);
  EXPECT_THAT(Asked(), ElementsAre("sub /a/*", "sub /b/*"));
  AnswerLast("\"status\":1");
  Receive("{\"event\":\"notification\",\"uri\":\"/b\",\"payload\":1}");
  EXPECT_EQ(state.Pushes().Waiting(), 1U);
}

TEST_F(Unheard, SubscriptionThatCouldNotBeSentIsNotAskedForOnceItsEndWas) {
  state.SessionLost("cut", now);
  const Pending first = Ask(ZoRequestMethod_Sub, "/a/*");
  now += seconds(3);
  state.TimeOut(first, 3000000, now);
  const Pending end = Ask(ZoRequestMethod_UnSub, "/a/*");
  EXPECT_EQ(Outcome(end), "The link to the sensor is down.");
  state.SessionOpened(now);
  EXPECT_THAT(Asked(), ElementsAre());
}

TEST_F(Unheard, StreamThatWasNeverSentIsForgottenWithItsCall) {
  state.SessionLost("cut", now);
  const Pending unsent = Ask(ZoRequestMethod_StartStream, "/s");
  now += seconds(3);
  state.TimeOut(unsent, 3000000, now);
  state.SessionOpened(now);
  EXPECT_THAT(Asked(), ElementsAre());
  EXPECT_EQ(state.Wishes().Size(), 0U);
}

TEST_F(Unheard, StartThatALaterStopUndidIsNotAskedFor) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Ask(ZoRequestMethod_StopStream, "/s");
  Sent();
  EXPECT_THAT(Restores(), ElementsAre());
  EXPECT_EQ(state.Wishes().Size(), 0U);
}

TEST_F(Unheard, StartThatIsRefusedInTheNextSessionIsForgotten) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  EXPECT_THAT(Restores(), ElementsAre("startStream /s"));
  AnswerLast("\"status\":-405,\"payload\":null");
  EXPECT_EQ(state.Wishes().Size(), 0U);
  EXPECT_EQ(state.Interests().Size(), 0U) << "its pushes are nobody's";
}

TEST_F(Unheard, RefusalDoesNotTouchALaterRequest) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  EXPECT_THAT(Restores(), ElementsAre("startStream /s"));
  const int restore = lastId;
  Ask(ZoRequestMethod_StartStream, "/s");
  Asked();
  Receive("{\"id\":" + std::to_string(restore) + ",\"status\":-503,\"payload\":null}");
  AnswerLast("\"status\":1,\"payload\":1");
  EXPECT_EQ(state.Interests().Size(), 1U);
  EXPECT_THAT(Restores(), ElementsAre("startStream /s"));
}

TEST_F(Unheard, StartThatThreeMoreSessionsLeaveUnansweredIsForgotten) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  for (int session = 0; session < 3; ++session) {
    EXPECT_THAT(Restores(), ElementsAre("startStream /s")) << session;
  }
  EXPECT_THAT(Restores(), ElementsAre());
  EXPECT_EQ(state.Wishes().Size(), 0U);
}

TEST_F(Unheard, StartThatASensorNeverAnswersIsForgotten) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  EXPECT_THAT(Restores(), ElementsAre("startStream /s"));
  for (int again = 0; again < 2; ++again) {
    Pass(seconds(3));  // unanswered
    EXPECT_EQ(state.Wishes().Size(), 1U);
    Pass(seconds(3));
    const std::vector<std::string> asked = Asked();
    EXPECT_EQ(std::count(asked.begin(), asked.end(), "startStream /s"), 1) << again;
  }
  Pass(seconds(3));
  EXPECT_EQ(state.Wishes().Size(), 0U);
}

TEST_F(Unheard, SessionsThatEndBeforeItWasAskedForDoNotCount) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  for (int session = 0; session < 10; ++session) {
    state.SessionLost("cut", now);
    state.SessionOpened(now);
  }
  EXPECT_THAT(Restores(), ElementsAre("startStream /s"));
}

TEST_F(Unheard, StartWhoseAnswerEndedTheSessionIsNotAskedForAgain) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  state.MessageUnusable("{\"id\":1,\"status\":1,\"payload\":[[[", true, start);
  EXPECT_THAT(Restores(), ElementsAre());
  Ask(ZoRequestMethod_Sub, "/n/*");
  Sent();
  state.MessageUnusable("{\"event\":\"notification\",\"uri\":\"/n/1\",\"payload\":[[[", true, start);
  EXPECT_THAT(Restores(), ElementsAre());
}

TEST_F(Unheard, StartWhoseRestoreEndsTheSessionIsForgotten) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  EXPECT_THAT(Restores(), ElementsAre("startStream /s"));
  state.MessageUnusable("{\"id\":" + std::to_string(lastId) + ",\"payload\":[[[", true, start);
  EXPECT_THAT(Restores(), ElementsAre());
}

// Whoever asks for the end goes by the sensor's word whether there was a stream.
TEST_F(Unheard, StopIsSentToTheSensor) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  state.SessionLost("cut", now);
  const Pending stop = Ask(ZoRequestMethod_StopStream, "/s");
  state.SessionOpened(now);
  EXPECT_THAT(Asked(), ElementsAre("stopStream /s"));
  Receive("{\"id\":" + std::to_string(lastId) + "}");
  EXPECT_EQ(Outcome(stop), "{}");
  EXPECT_EQ(state.Wishes().Size(), 0U);
}

TEST_F(Unheard, StopFollowsARestoreThatIsUnderWay) {
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  EXPECT_THAT(Restores(), ElementsAre("startStream /s"));
  Ask(ZoRequestMethod_StopStream, "/s");
  EXPECT_THAT(Asked(), ElementsAre("stopStream /s"));
  Receive("{\"id\":2,\"status\":1,\"payload\":1}");
  EXPECT_EQ(state.Pushes().Waiting(), 0U);
  EXPECT_EQ(state.Wishes().Size(), 0U);
}

TEST_F(Unheard, StopOfAGrantedStreamSucceedsWithTheEndOfItsSession) {
  GrantOther();
  const Pending stop = Ask(ZoRequestMethod_StopStream, "/other");
  Sent();
  state.SessionLost("cut", now);
  EXPECT_EQ(Outcome(stop), "{\"status\":1,\"uri\":\"/other\"}");
  state.SessionOpened(now);
  EXPECT_THAT(Asked(), ElementsAre());
}

TEST_F(Unheard, StopOfAGrantedStreamThatWasNotSentBeforeTheSessionEndedSucceeds) {
  GrantOther();
  const Pending stop = Ask(ZoRequestMethod_StopStream, "/other");
  state.SessionLost("cut", now);
  EXPECT_EQ(Outcome(stop), "{\"status\":1,\"uri\":\"/other\"}");
  state.SessionOpened(now);
  EXPECT_THAT(Asked(), ElementsAre());
}

TEST_F(Unheard, StopOfAGrantedStreamSucceedsThoughItsAnswerIsLate) {
  GrantOther();
  const Pending stop = Ask(ZoRequestMethod_StopStream, "/other");
  Sent();
  now += seconds(3);
  state.TimeOut(stop, 3000000, now);
  EXPECT_EQ(Outcome(stop), "{\"status\":1,\"uri\":\"/other\"}");
}

// With its resource, say.
TEST_F(Unheard, StopOfAGrantedStreamThatHadEndedByItselfSucceeds) {
  GrantOther();
  const Pending stop = Ask(ZoRequestMethod_StopStream, "/other");
  Sent();
  Receive("{\"id\":2}");
  EXPECT_EQ(Outcome(stop), "{\"status\":1,\"uri\":\"/other\"}");
}

TEST_F(Unheard, StopThatCannotBeSentInTimeIsSentLater) {
  GrantOther();
  const Pending stop = Ask(ZoRequestMethod_StopStream, "/other");
  now += seconds(3);
  state.TimeOut(stop, 3000000, now);
  EXPECT_EQ(Outcome(stop), "{\"status\":1,\"uri\":\"/other\"}");
  Pass(seconds(10));
  EXPECT_THAT(Asked(), ElementsAre("stopStream /other"));
  Pass(seconds(61));
  EXPECT_EQ(state.Requests().Size(), 0U) << "nor is it kept for ever";
}

TEST_F(Unheard, StopOfWhatWasNeverGrantedFailsWithItsSession) {
  const Pending stop = Ask(ZoRequestMethod_StopStream, "/s");
  Sent();
  state.SessionLost("cut", now);
  EXPECT_THAT(Outcome(stop), HasSubstr("broke before the answer came"));
}

// Its own stop went no further than to this link, which knew of no stream at the sensor.
TEST_F(State, StreamThatWasStartedAnewAndStoppedWhileItIsBeingRestoredIsStoppedAtTheSensor) {
  state.SessionOpened(now);
  Ask(ZoRequestMethod_StartStream, "/s");
  Sent();
  Receive("{\"id\":1,\"status\":1,\"payload\":1}");
  state.SessionLost("cut", now);
  state.SessionOpened(now);
  EXPECT_EQ(Sent().size(), 1U);
  Ask(ZoRequestMethod_StartStream, "/s");
  EXPECT_EQ(Sent().size(), 1U);
  Ask(ZoRequestMethod_StopStream, "/s");
  Receive("{\"id\":2,\"status\":1,\"payload\":1}");
  EXPECT_THAT(Sent(), ElementsAre("{\"id\":4,\"method\":\"stopStream\",\"uri\":\"/s\"}"));
}

TEST_F(State, CloseSettlesEverything) {
  const Pending waiting = Ask(ZoRequestMethod_Read, "/a");
  state.SessionOpened(now);
  Sent();
  const Pending unsent = Ask(ZoRequestMethod_Read, "/b");
  state.Close();
  EXPECT_EQ(Outcome(waiting), "The system was disconnected.");
  EXPECT_EQ(Outcome(unsent), "The system was disconnected.");
  EXPECT_EQ(state.NextDue(true), state.NextDue(false));
}

}  // namespace
}  // namespace ZoSdk
