#include "tools/zosensor/sendqueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace ZoSensor {
namespace {

Outgoing Item(Outgoing::Kind kind, const std::string& text, const std::string& uri = "") {
  Outgoing item;
  item.kind = kind;
  item.text = ShareText(text);
  item.uri = uri;
  return item;
}

bool Add(SendQueue& queue, Outgoing item, Time now = Time()) {
  return queue.Add(std::move(item), now);
}

std::vector<std::string> Drain(SendQueue& queue) {
  std::vector<std::string> texts;
  while (!queue.Empty()) {
    texts.push_back(*queue.Take().text);
    queue.Written();
  }
  return texts;
}

TEST(SendQueue, KeepsEverythingInOrderWhileLittleWaits) {
  SendQueue queue(1 << 20);
  EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Stream, "s1", "/a")));
  EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Answer, "a")));
  EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Stream, "s2", "/a")));
  EXPECT_EQ(Drain(queue), (std::vector<std::string>{"s1", "a", "s2"}));
  EXPECT_EQ(queue.Bytes(), 0U);
  EXPECT_EQ(queue.Dropped(), 0U);
}

TEST(SendQueue, NewStreamPushTakesThePlaceOfAStaleOneOfItsUriWhenMuchWaits) {
  SendQueue queue(8000);
  const std::string filler(3000, 'x');
  EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Answer, filler)));
  ASSERT_TRUE(queue.Congested());
  EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Stream, "a1", "/a")));
  EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Notification, "n1", "/a")));
  EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Stream, "b1", "/b")));
  for (int i = 2; i <= 1000; ++i) {
    EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Stream, "a" + std::to_string(i), "/a"))) << i;
  }
  EXPECT_EQ(queue.Dropped(), 999U);
  EXPECT_EQ(Drain(queue), (std::vector<std::string>{filler, "n1", "b1", "a1000"}));
  EXPECT_EQ(queue.Bytes(), 0U);
}

// All change more often than the client can take them.
TEST(SendQueue, EveryUriHasItsTurnThoughMuchWaits) {
  SendQueue queue(8000);
  constexpr int uris = 20;
  std::vector<int> sent(uris);
  for (int round = 0; round < 100; ++round) {
    for (int uri = 0; uri < uris; ++uri) {
      EXPECT_TRUE(Add(queue, Item(Outgoing::Kind::Stream, std::to_string(uri), "/" + std::to_string(uri))));
    }
    if (round < 4) {
      continue;  // until much waits
    }
    const Outgoing next = queue.Take();
    queue.Written();
    ++sent[static_cast<std::size_t>(std::stoi(*next.text))];
  }
  EXPECT_GT(queue.Dropped(), 1000U);
  EXPECT_GE(*std::min_element(sent.begin(), sent.end()), 3);
}

TEST(SendQueue, StreamPushNeverOvertakesWhatIsNone) {
  SendQueue queue(8000);
  const std::string filler(3000, 'x');
  Add(queue, Item(Outgoing::Kind::Answer, filler));
  Add(queue, Item(Outgoing::Kind::Stream, "a1", "/a"));
  Add(queue, Item(Outgoing::Kind::Stream, "b1", "/b"));
  Add(queue, Item(Outgoing::Kind::Stream, "a2", "/a"));
  Add(queue, Item(Outgoing::Kind::Answer, "answer"));
  Add(queue, Item(Outgoing::Kind::Stream, "a3", "/a"));
  Add(queue, Item(Outgoing::Kind::Stream, "c1", "/c"));
  Add(queue, Item(Outgoing::Kind::Stream, "a4", "/a"));
  EXPECT_EQ(Drain(queue), (std::vector<std::string>{filler, "b1", "answer", "a4", "c1"}));
  EXPECT_EQ(queue.Bytes(), 0U);
}

// A queue may be allowed to grow large, for answers; old values in it are of no use to anybody.
TEST(SendQueue, BehindWhatHasWaitedLongOnlyTheNewestOfAUriIsKept) {
  SendQueue queue(std::size_t{256} << 20);
  const std::string text = "n";
  Add(queue, Item(Outgoing::Kind::Notification, text));
  for (int i = 0; i < 300; ++i) {
    Add(queue, Item(Outgoing::Kind::Stream, std::to_string(i), "/a"), Time() + std::chrono::milliseconds(i));
  }
  const std::vector<std::string> kept = Drain(queue);
  ASSERT_EQ(kept.size(), 102U);  // "n", 0 to 99, and of the others, which came too late, the last
  EXPECT_EQ(kept[100], "99");
  EXPECT_EQ(kept[101], "299");
}

TEST(SendQueue, WhatIsBeingWrittenIsNotReplacedAndCounts) {
  SendQueue queue(4000);
  Add(queue, Item(Outgoing::Kind::Stream, std::string(1500, 'x'), "/a"));
  const Outgoing writing = queue.Take();
  EXPECT_TRUE(queue.Congested());
  Add(queue, Item(Outgoing::Kind::Stream, "second", "/a"));
  EXPECT_EQ(queue.Dropped(), 0U);
  queue.Written();
  EXPECT_FALSE(queue.Congested());
  EXPECT_EQ(Drain(queue), std::vector<std::string>{"second"});
}

TEST(SendQueue, ClearedQueueCountsOnlyWhatIsBeingWritten) {
  SendQueue queue(8000);
  Add(queue, Item(Outgoing::Kind::Answer, "a"));
  Add(queue, Item(Outgoing::Kind::Stream, "s", "/a"));
  queue.Take();
  queue.Clear();
  EXPECT_TRUE(queue.Empty());
  EXPECT_GT(queue.Bytes(), 0U);
  queue.Written();
  EXPECT_EQ(queue.Bytes(), 0U);
  Add(queue, Item(Outgoing::Kind::Stream, "t", "/a"));
  EXPECT_EQ(Drain(queue), std::vector<std::string>{"t"});
}

TEST(SendQueue, WhatMayNotBeDroppedFillsItUntilTheClientIsGivenUp) {
  SendQueue queue(4000);
  int added = 0;
  while (Add(queue, Item(Outgoing::Kind::Notification, std::string(100, 'n')))) {
    ASSERT_LT(++added, 1000);
  }
  EXPECT_GE(added, 10);
}

}  // namespace
}  // namespace ZoSensor
