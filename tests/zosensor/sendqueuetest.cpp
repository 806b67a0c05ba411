#include "tools/zosensor/sendqueue.h"

#include <gtest/gtest.h>

#include <string>
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
  EXPECT_TRUE(queue.Add(Item(Outgoing::Kind::Stream, "s1", "/a")));
  EXPECT_TRUE(queue.Add(Item(Outgoing::Kind::Answer, "a")));
  EXPECT_TRUE(queue.Add(Item(Outgoing::Kind::Stream, "s2", "/a")));
  EXPECT_EQ(Drain(queue), (std::vector<std::string>{"s1", "a", "s2"}));
  EXPECT_EQ(queue.Bytes(), 0U);
  EXPECT_EQ(queue.Dropped(), 0U);
}

TEST(SendQueue, NewStreamPushTakesThePlaceOfAStaleOneOfItsUriWhenMuchWaits) {
  SendQueue queue(8000);
  const std::string filler(3000, 'x');
  EXPECT_TRUE(queue.Add(Item(Outgoing::Kind::Answer, filler)));
  ASSERT_TRUE(queue.Congested());
  EXPECT_TRUE(queue.Add(Item(Outgoing::Kind::Stream, "a1", "/a")));
  EXPECT_TRUE(queue.Add(Item(Outgoing::Kind::Notification, "n1", "/a")));
  EXPECT_TRUE(queue.Add(Item(Outgoing::Kind::Stream, "b1", "/b")));
  for (int i = 2; i <= 1000; ++i) {
    EXPECT_TRUE(queue.Add(Item(Outgoing::Kind::Stream, "a" + std::to_string(i), "/a"))) << i;
  }
  EXPECT_EQ(queue.Dropped(), 999U);
  EXPECT_EQ(Drain(queue), (std::vector<std::string>{filler, "n1", "b1", "a1000"}));
  EXPECT_EQ(queue.Bytes(), 0U);
}

TEST(SendQueue, WhatIsBeingWrittenIsNotReplacedAndCounts) {
  SendQueue queue(4000);
  queue.Add(Item(Outgoing::Kind::Stream, std::string(1500, 'x'), "/a"));
  const Outgoing writing = queue.Take();
  EXPECT_TRUE(queue.Congested());
  queue.Add(Item(Outgoing::Kind::Stream, "second", "/a"));
  EXPECT_EQ(queue.Dropped(), 0U);
  queue.Written();
  EXPECT_FALSE(queue.Congested());
  EXPECT_EQ(Drain(queue), std::vector<std::string>{"second"});
}

TEST(SendQueue, ClearedQueueCountsOnlyWhatIsBeingWritten) {
  SendQueue queue(8000);
  queue.Add(Item(Outgoing::Kind::Answer, "a"));
  queue.Add(Item(Outgoing::Kind::Stream, "s", "/a"));
  queue.Take();
  queue.Clear();
  EXPECT_TRUE(queue.Empty());
  EXPECT_GT(queue.Bytes(), 0U);
  queue.Written();
  EXPECT_EQ(queue.Bytes(), 0U);
  queue.Add(Item(Outgoing::Kind::Stream, "t", "/a"));
  EXPECT_EQ(Drain(queue), std::vector<std::string>{"t"});
}

TEST(SendQueue, WhatMayNotBeDroppedFillsItUntilTheClientIsGivenUp) {
  SendQueue queue(4000);
  int added = 0;
  while (queue.Add(Item(Outgoing::Kind::Notification, std::string(100, 'n')))) {
    ASSERT_LT(++added, 1000);
  }
  EXPECT_GE(added, 10);
}

}  // namespace
}  // namespace ZoSensor
