// The soak as a program: what it refuses, and that it notices whatever wrong thing is planted in it.
#include <gtest/gtest.h>

#include <ostream>

#include "tests/support/deadline.h"
#include "tests/zohost/program.h"

namespace {

Result Soak(const std::vector<std::string>& arguments) {
  std::vector<std::string> all{ZOSOAK_PATH};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return RunProgram(all);
}

Result SmallSoak(const std::string& duration, const std::vector<std::string>& more) {
  std::vector<std::string> arguments{duration, "--seed",       "5", "--sensors", "1", "--instances",
                                     "1",      "--simulators", "0", "--threads", "1"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return Soak(arguments);
}

TEST(SoakProgram, RefusesADurationThatIsNone) {
  const Result result = Soak({"10minutes"});
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.err.find("\"10minutes\" is no duration: write a number and s, m or h"), std::string::npos)
      << result.err;
}

TEST(SoakProgram, WantsADuration) {
  EXPECT_EQ(Soak({}).status, 2);
}

TEST(SoakProgram, SaysItsSeedFirstAndEndsWithoutABreach) {
  const Result result = SmallSoak("2s", {});
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_TRUE(result.out.starts_with("seed 5, 2s: 1 sensors, 1 instances,")) << result.out;
  EXPECT_NE(result.out.find("breaches                                              0"), std::string::npos)
      << result.out;
}

struct Planted {
  const char* what;
  const char* kind;
  const char* duration;

  friend std::ostream& operator<<(std::ostream& out, const Planted& planted) { return out << planted.what; }
};

class PlantedBreach : public testing::TestWithParam<Planted> {};

TEST_P(PlantedBreach, IsNoticedAndMakesTheSoakFail) {
  if (ZoTest::kSanitized && std::string(GetParam().what) == "silence") {
    GTEST_SKIP() << "with a sanitizer the limit is nearly as long as this test waits for the program";
  }
  const Result result = SmallSoak(GetParam().duration, {"--plant", GetParam().what});
  EXPECT_EQ(result.status, 1) << result.out << result.err;
  EXPECT_NE(result.err.find("BREACH seed 5, "), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(std::string(" s: ") + GetParam().kind + ": "), std::string::npos) << result.err;
}

// A value that stands still is noticed after the limit for it, growth over quarters of at least two seconds.
INSTANTIATE_TEST_SUITE_P(All, PlantedBreach,
                         testing::Values(Planted{"value", "impossible value", "1s"},
                                         Planted{"order", "value out of order", "1s"},
                                         Planted{"record", "bad record", "1s"},
                                         Planted{"late", "callback after destruction", "1s"},
                                         Planted{"stuck", "stuck call", "3s"},
                                         Planted{"growth", "growth", "10s"},
                                         Planted{"silence", "subscription stands still", "1s"}),
                         [](const auto& instance) { return std::string(instance.param.what); });

}  // namespace
