// The fixture of tests that tick one subscription group.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tests/vyrnclient/feedtest.h"
#include "zoiohandler/vyrnclient/subscriptiongroup.h"

namespace ZoTest {

class GroupTest : public FeedTest {
 protected:
  // "name type:value" of every value since the last call, in order.
  std::vector<std::string> Pushed() {
    std::vector<std::string> texts;
    for (const Entry& entry : recorder.All()) {
      if (entry.kind == Entry::Kind::Value) {
        texts.push_back(entry.item + " " + Describe(entry));
      }
    }
    recorder.Clear();
    return texts;
  }

  // What the host gets from one tick.
  std::vector<std::string> Tick() {
    recorder.Clear();
    group.Tick();
    return Pushed();
  }

  ZoIO::SubscriptionGroup group{feed, std::chrono::milliseconds(1000)};
};

}  // namespace ZoTest
