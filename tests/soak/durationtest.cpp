#include "tests/soak/duration.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace ZoSoak {
namespace {

using std::chrono::seconds;

std::string ObjectionTo(std::string_view text) {
  try {
    const seconds duration = ParseDuration(text);
    return "taken as " + std::to_string(duration.count());
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

TEST(Duration, IsANumberWithItsUnit) {
  EXPECT_EQ(ParseDuration("1s"), seconds(1));
  EXPECT_EQ(ParseDuration("90s"), seconds(90));
  EXPECT_EQ(ParseDuration("10m"), seconds(600));
  EXPECT_EQ(ParseDuration("1h"), seconds(3600));
  EXPECT_EQ(ParseDuration("168h"), seconds(7 * 24 * 3600));
}

TEST(Duration, NonsenseIsRefusedWithASentenceThatQuotesIt) {
  for (const char* text :
       {"", "s", "10", "10 s", " 10s", "10x", "10sec", "ten", "1.5h", "10ms", "1h30m", "0x10s", "+1s"}) {
    EXPECT_EQ(ObjectionTo(text), "\"" + std::string(text) +
                                     "\" is no duration: write a number and s, m or h, such as 90s or 10m");
  }
}

TEST(Duration, OutOfRangeIsSaidToBeSo) {
  for (const char* text :
       {"0s", "-1s", "0h", "169h", "604801s", "99999999999999999999s", "2562047788015216h"}) {
    EXPECT_EQ(ObjectionTo(text), "\"" + std::string(text) + "\" is out of range: from 1s to 168h");
  }
}

TEST(Duration, IsWrittenWithoutEmptyUnits) {
  EXPECT_EQ(DurationText(seconds(0)), "0s");
  EXPECT_EQ(DurationText(seconds(90)), "1m 30s");
  EXPECT_EQ(DurationText(seconds(3600)), "1h");
  EXPECT_EQ(DurationText(seconds(3661)), "1h 1m 1s");
}

}  // namespace
}  // namespace ZoSoak
