#include "tools/zosensor/waveform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "tools/zosensor/descriptionerror.h"

namespace ZoSensor {
namespace {

std::unique_ptr<Waveform> Make(std::string_view text) {
  return MakeWaveform(ZoJson::ParseString(text), ZoJsonPointer());
}

std::string At(Waveform& wave, double seconds, std::uint64_t index = 0, std::uint64_t seed = 1) {
  return wave.Sample({seconds, index, seed, nullptr}).ToString();
}

double NumberAt(Waveform& wave, double seconds, std::uint64_t index = 0, std::uint64_t seed = 1) {
  return wave.Sample({seconds, index, seed, nullptr}).Get<double>();
}

TEST(Waveform, SineStartsAtItsOffsetAndPeaksAfterAQuarter) {
  const auto wave = Make(R"({"wave":"sine","amplitude":2,"offset":10,"period_s":8})");
  EXPECT_NEAR(NumberAt(*wave, 0), 10, 1e-9);
  EXPECT_NEAR(NumberAt(*wave, 2), 12, 1e-9);
  EXPECT_NEAR(NumberAt(*wave, 6), 8, 1e-9);
  EXPECT_NEAR(NumberAt(*Make(R"({"wave":"sine","period_s":8,"phase":0.25})"), 0), 1, 1e-9);
}

TEST(Waveform, RampTriangleAndSquareRunBetweenTheirBounds) {
  const auto ramp = Make(R"({"wave":"ramp","from":10,"to":20,"period_s":10})");
  EXPECT_NEAR(NumberAt(*ramp, 5), 15, 1e-9);
  EXPECT_NEAR(NumberAt(*ramp, 12), 12, 1e-9);
  const auto triangle = Make(R"({"wave":"triangle","from":0,"to":1,"period_s":10})");
  EXPECT_NEAR(NumberAt(*triangle, 2.5), 0.5, 1e-9);
  EXPECT_NEAR(NumberAt(*triangle, 5), 1, 1e-9);
  EXPECT_NEAR(NumberAt(*triangle, 7.5), 0.5, 1e-9);
  const auto square = Make(R"({"wave":"square","from":0,"to":5,"period_s":10,"duty":0.2,"integer":true})");
  EXPECT_EQ(At(*square, 1.9), "5");
  EXPECT_EQ(At(*square, 2.1), "0");
}

TEST(Waveform, WalkStaysWithinItsBoundsAndMovesInSmallSteps) {
  const auto wave = Make(R"({"wave":"walk","from":20,"to":80,"period_s":10})");
  double previous = NumberAt(*wave, 0);
  double lowest = previous;
  double highest = previous;
  for (int i = 1; i < 10000; ++i) {
    const double value = NumberAt(*wave, i * 0.1);
    EXPECT_LT(std::abs(value - previous), 6) << i;
    previous = value;
    lowest = std::min(lowest, value);
    highest = std::max(highest, value);
  }
  EXPECT_GE(lowest, 20);
  EXPECT_LE(highest, 80);
  EXPECT_GT(highest - lowest, 20);
}

TEST(Waveform, RandomnessRepeatsWithTheSeedAndDiffersWithAnother) {
  for (const char* text : {R"({"wave":"walk"})", R"({"wave":"noise"})"}) {
    EXPECT_EQ(At(*Make(text), 3.3, 33, 5), At(*Make(text), 3.3, 33, 5)) << text;
    EXPECT_NE(At(*Make(text), 3.3, 33, 5), At(*Make(text), 3.3, 33, 6)) << text;
  }
}

TEST(Waveform, CounterCountsSamplesBeyondSignedNumbers) {
  EXPECT_EQ(At(*Make(R"({"wave":"counter"})"), 0.5, 5), "5");
  EXPECT_EQ(At(*Make(R"({"wave":"counter","start":9223372036854775808,"step":2})"), 0, 3),
            "9223372036854775814");
  EXPECT_EQ(At(*Make(R"({"wave":"counter","modulo":10})"), 0, 23), "3");
}

TEST(Waveform, CycleGivesValuesOfAnyKindInTurn) {
  const auto wave = Make(R"({"wave":"cycle","each_s":2,"values":[true,"text",[1],{"a":null}]})");
  EXPECT_EQ(At(*wave, 0), "true");
  EXPECT_EQ(At(*wave, 3.9), R"("text")");
  EXPECT_EQ(At(*wave, 4), "[1]");
  EXPECT_EQ(At(*wave, 6), R"({"a":null})");
  EXPECT_EQ(At(*wave, 8), "true");
}

TEST(Waveform, FollowApproachesItsSource) {
  const auto wave = Make(R"({"wave":"follow","source":"set","at":"/v","lag_s":2,"gain":2,"offset":1})");
  EXPECT_EQ(wave->Source(), "/set");
  double setPoint = 10;
  const std::function<std::optional<double>(const std::string&, const ZoJsonPointer&)> lookup =
      [&](const std::string& path, const ZoJsonPointer& at) -> std::optional<double> {
    EXPECT_EQ(path, "/set");
    EXPECT_EQ(at.ToString(), "/v");
    return setPoint;
  };
  const auto value = [&](double seconds) { return wave->Sample({seconds, 0, 1, &lookup}).Get<double>(); };
  EXPECT_NEAR(value(0), 0, 1e-9);
  EXPECT_NEAR(value(2), 21 * (1 - std::exp(-1)), 1e-9);
  EXPECT_NEAR(value(100), 21, 1e-6);
  setPoint = 0;
  EXPECT_NEAR(value(102), 1 + 20 * std::exp(-1), 1e-6);
}

TEST(Waveform, PresentsAsRoundedIntegerOrArray) {
  EXPECT_EQ(At(*Make(R"({"wave":"ramp","to":10,"period_s":3,"digits":2})"), 1), "3.33");
  EXPECT_EQ(At(*Make(R"({"wave":"ramp","to":10,"period_s":3,"integer":true})"), 1), "3");
  EXPECT_EQ(At(*Make(R"({"wave":"ramp","to":10,"period_s":10,"count":3,"spacing_s":1,"integer":true})"), 1),
            "[1,2,3]");
}

TEST(Waveform, AbsurdParametersStillGiveJson) {
  for (const char* text : {R"({"wave":"sine","amplitude":1.7e308,"offset":1.7e308,"period_s":4,"digits":3})",
                           R"({"wave":"ramp","from":-1.7e308,"to":1.7e308,"integer":true})",
                           R"({"wave":"walk","from":-1.7e308,"to":1.7e308})"}) {
    EXPECT_NO_THROW(At(*Make(text), 1)) << text;
  }
}

TEST(Waveform, WrongDescriptionsNameThePlaceAndTheReason) {
  struct {
    const char* text;
    const char* where;
    const char* reason;
  } const cases[] = {
      {R"(5)", "", "a waveform must be an object"},
      {R"({})", "", "\"wave\" is missing"},
      {R"({"wave":"sinus"})", "/wave", "there is no waveform \"sinus\""},
      {R"({"wave":"sine","amplitud":1})", "/amplitud", "unknown member \"amplitud\""},
      {R"({"wave":"sine","period_s":0})", "/period_s", "\"period_s\" must lie between"},
      {R"({"wave":"sine","period_s":"1"})", "/period_s", "\"period_s\" must be a number"},
      {R"({"wave":"square","duty":2})", "/duty", "\"duty\" must lie between 0 and 1"},
      {R"({"wave":"cycle"})", "/values", "at least one value"},
      {R"({"wave":"counter","start":-1})", "/start", "whole number"},
      {R"({"wave":"follow"})", "", "\"source\" is missing"},
      {R"({"wave":"walk","phase":0.5})", "/phase", "unknown member \"phase\""},
      {R"({"wave":"noise","phase":0.5})", "/phase", "unknown member \"phase\""},
      {R"({"wave":"noise","period_s":5})", "/period_s", "unknown member \"period_s\""},
      {R"({"wave":"sine","integer":1})", "/integer", "true or false"},
  };
  for (const auto& each : cases) {
    try {
      Make(each.text);
      ADD_FAILURE() << each.text;
    } catch (const DescriptionError& error) {
      EXPECT_EQ(error.Where().ToString(), each.where) << each.text;
      EXPECT_NE(std::string(error.what()).find(each.reason), std::string::npos) << error.what();
    }
  }
}

}  // namespace
}  // namespace ZoSensor
