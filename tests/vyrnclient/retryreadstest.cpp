// The worker's reads, over requests that the test answers when it likes.
#include "zoiohandler/vyrnclient/retryreads.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zovyrnsdk/link/pendingrequest.h"

namespace ZoTest {
namespace {

class RetryReads : public ::testing::Test {
 protected:
  ZoTransaction Ask(const std::string& uri) {
    auto pending = std::make_shared<ZoPendingRequest>();
    if (quick) {
      Answer(*pending, uri);
    }
    asked[uri].push_back(pending);
    return {ZoRequest(ZoRequestMethod_Read, uri), pending};
  }

  static void Answer(ZoPendingRequest& pending, const std::string& uri) {
    ZoJson document;
    document.Set("status", 1);
    document.Set("payload", uri);
    pending.Answer(ZoRequestResponse(document));
  }

  // Answers whatever is open.
  void AnswerAll() {
    for (auto& [uri, requests] : asked) {
      for (auto& pending : requests) {
        Answer(*pending, uri);
      }
    }
  }

  // The payload of the answer, or nothing.
  std::string Read(const std::string& uri) {
    auto outcome = reads.Read(uri);
    return outcome ? outcome->request.GetResponse(0).Payload().Get<std::string>() : std::string();
  }

  bool quick = false;
  std::map<std::string, std::vector<std::shared_ptr<ZoPendingRequest>>> asked;
  std::set<std::string> found;
  ZoIO::RetryReads reads{[this](const std::string& uri) { return Ask(uri); },
                         [this](const std::string& uri) { return !found.contains(uri); }};
};

TEST_F(RetryReads, AnswerThatComesAtOnceIsThereForEveryItemOfItsResource) {
  quick = true;
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "/a");
  EXPECT_EQ(Read("/a"), "/a");
  EXPECT_EQ(asked["/a"].size(), 1u);
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "/a");
  EXPECT_EQ(asked["/a"].size(), 2u) << "each pass asks anew";
}

TEST_F(RetryReads, AnswerThatComesLateIsThereForTheNextPassAndForEveryItem) {
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "");
  EXPECT_EQ(Read("/a"), "");
  EXPECT_EQ(asked["/a"].size(), 1u) << "one request is enough";
  AnswerAll();
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "/a");
  EXPECT_EQ(Read("/a"), "/a");
  EXPECT_EQ(asked["/a"].size(), 2u) << "what may have changed meanwhile is asked for at once";
}

TEST_F(RetryReads, RequestStaysUnderWayOverPassesUntilItsAnswerComes) {
  for (int pass = 0; pass < 5; ++pass) {
    reads.BeginPass(true);
    EXPECT_EQ(Read("/a"), "");
  }
  EXPECT_EQ(asked["/a"].size(), 1u);
}

TEST_F(RetryReads, ResourceThatAPassDidNotAskForIsForgotten) {
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "");
  reads.BeginPass(true);
  reads.BeginPass(true);
  AnswerAll();
  EXPECT_EQ(Read("/a"), "");
  EXPECT_EQ(asked["/a"].size(), 2u);
}

TEST_F(RetryReads, AnswerOfOnePassIsNotGivenInTheNext) {
  quick = true;
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "/a");
  quick = false;
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "");
}

TEST_F(RetryReads, RequestWithoutAnswerIsAnOutcomeAfterThreeSecondsAndNotBefore) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds limit{3};
  reads.BeginPass(true);
  const Clock::time_point before = Clock::now();
  EXPECT_FALSE(reads.Read("/a").has_value());
  const Clock::time_point behind = Clock::now();
  while (Clock::now() < before + limit * 9 / 10) {
    reads.BeginPass(true);
    EXPECT_TRUE(!reads.Read("/a").has_value() || Clock::now() >= before + limit);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  std::this_thread::sleep_until(behind + limit);
  reads.BeginPass(true);
  EXPECT_TRUE(reads.Read("/a").has_value());
  EXPECT_EQ(asked["/a"].size(), 1u);
}

TEST_F(RetryReads, ManyResourcesTakeTurns) {
  constexpr int count = 300;
  constexpr std::size_t window = 128;
  const auto uri = [](int i) { return "/r" + std::to_string(i); };
  std::size_t before = 0;
  for (int pass = 0; pass < 3; ++pass) {
    reads.BeginPass(true);
    for (int i = 0; i < count; ++i) {
      Read(uri(i));
    }
    std::size_t requests = 0;
    for (const auto& [each, pendings] : asked) {
      EXPECT_LE(pendings.size(), 1u) << "none is asked twice before all were asked";
      requests += pendings.size();
    }
    EXPECT_LE(requests - before, window);
    before = requests;
    AnswerAll();
  }
  EXPECT_EQ(asked.size(), std::size_t{count}) << "and none is left out";
  reads.BeginPass(true);
  for (int i = 0; i < count; ++i) {
    Read(uri(i));
  }
  EXPECT_EQ(asked[uri(0)].size(), 2u) << "then it is the first one's turn again";
}

TEST_F(RetryReads, FailureIsAnOutcomeLikeAnAnswer) {
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "");
  asked["/a"][0]->Fail("The link to the sensor broke.");
  reads.BeginPass(true);
  auto outcome = reads.Read("/a");
  ASSERT_TRUE(outcome.has_value());
  EXPECT_THROW(outcome->request.GetResponse(0), std::runtime_error);
}

TEST_F(RetryReads, OutcomeIsKnownToAllButTheFirstWhoAskInAPass) {
  quick = true;
  for (int pass = 0; pass < 2; ++pass) {
    reads.BeginPass(true);
    for (const bool known : {false, true, true}) {
      const auto outcome = reads.Read("/a");
      ASSERT_TRUE(outcome.has_value());
      EXPECT_EQ(outcome->known, known);
    }
  }
}

TEST_F(RetryReads, WhatThePassBeforeLookedForIsAskedAnewBeforeAPass) {
  quick = true;
  reads.BeginPass(true);
  for (const char* uri : {"/a", "/b", "/a"}) {
    Read(uri);
  }
  reads.BeginPass(true);
  EXPECT_EQ(asked["/a"].size(), 2u);
  EXPECT_EQ(asked["/b"].size(), 2u);
  EXPECT_EQ(Read("/b"), "/b");
  EXPECT_EQ(asked["/b"].size(), 2u);
  // It was not looked for again.
  reads.BeginPass(true);
  EXPECT_EQ(asked["/a"].size(), 2u);
  EXPECT_EQ(asked["/b"].size(), 3u);
}

TEST_F(RetryReads, WhatWasFoundMeanwhileIsNotAskedAgain) {
  quick = true;
  reads.BeginPass(true);
  Read("/a");
  Read("/b");
  found.insert("/a");
  reads.BeginPass(true);
  EXPECT_EQ(asked["/a"].size(), 1u);
  EXPECT_EQ(asked["/b"].size(), 2u);
}

TEST_F(RetryReads, SensorThatIsAwayIsNotAskedBeforeAPass) {
  quick = true;
  reads.BeginPass(true);
  Read("/a");
  reads.BeginPass(false);
  EXPECT_EQ(asked["/a"].size(), 1u);
}

TEST_F(RetryReads, ForgottenRequestsLeaveRoomForOthers) {
  constexpr int window = 128;
  reads.BeginPass(true);
  for (int i = 0; i < window; ++i) {
    Read("/r" + std::to_string(i));
  }
  Read("/beyond");
  EXPECT_EQ(asked.count("/beyond"), 0u);
  reads.BeginPass(true);
  reads.BeginPass(true);
  for (int i = 0; i < window; ++i) {
    Read("/s" + std::to_string(i));
  }
  EXPECT_EQ(asked.size(), 2u * window);
}

TEST_F(RetryReads, RaiseOnceTheyAreGivenUp) {
  quick = true;
  reads.BeginPass(true);
  EXPECT_EQ(Read("/a"), "/a");
  reads.GiveUp();
  EXPECT_THROW(reads.Read("/a"), std::runtime_error);
  EXPECT_THROW(reads.Read("/b"), std::runtime_error);
  EXPECT_THROW(reads.BeginPass(true), std::runtime_error);
  EXPECT_EQ(asked.count("/b"), 0u);
}

}  // namespace
}  // namespace ZoTest
