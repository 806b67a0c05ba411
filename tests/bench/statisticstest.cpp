#include "bench/zobench/statistics.h"

#include <gtest/gtest.h>

namespace {

using namespace ZoBench;

TEST(Statistics, MedianOfAnEvenCountLiesBetweenTheMiddleTwo) {
  EXPECT_DOUBLE_EQ(Summarize({4, 1, 3, 2}).median, 2.5);
}

TEST(Statistics, QuartilesLieBetweenNeighboursByTheirDistance) {
  const Summary summary = Summarize({5, 1, 4, 2, 3, 10});
  EXPECT_DOUBLE_EQ(summary.lower, 2.25);
  EXPECT_DOUBLE_EQ(summary.median, 3.5);
  EXPECT_DOUBLE_EQ(summary.upper, 4.75);
  EXPECT_DOUBLE_EQ(summary.least, 1);
  EXPECT_DOUBLE_EQ(summary.most, 10);
  EXPECT_EQ(summary.count, 6U);
}

TEST(Statistics, OneValueIsAllOfItsSummary) {
  const Summary summary = Summarize({7});
  EXPECT_DOUBLE_EQ(summary.lower, 7);
  EXPECT_DOUBLE_EQ(summary.median, 7);
  EXPECT_DOUBLE_EQ(summary.upper, 7);
}

TEST(Statistics, NoValuesCountAsNoMeasurement) {
  EXPECT_EQ(Summarize({}).count, 0U);
  EXPECT_DOUBLE_EQ(Quantile({}, 0.5), 0);
}

TEST(Statistics, QuantilesBeyondTheEndsAreTheEnds) {
  EXPECT_DOUBLE_EQ(Quantile({1, 2, 3}, -1), 1);
  EXPECT_DOUBLE_EQ(Quantile({1, 2, 3}, 2), 3);
}

TEST(Statistics, RatiosPairTheRoundsAndLeaveOutWhatHasNoPartner) {
  EXPECT_EQ(Ratios({2, 9, 5}, {1, 3}), (std::vector<double>{2, 3}));
}

TEST(Statistics, RangesThatAreApartDiffer) {
  const Summary low = Summarize({1, 2, 3, 4, 5});
  const Summary high = Summarize({11, 12, 13, 14, 15});
  EXPECT_EQ(Compare(low, high), Verdict::Faster);
  EXPECT_EQ(Compare(high, low), Verdict::Slower);
}

TEST(Statistics, RangesThatOverlapOrTouchDoNotDiffer) {
  const Summary one = Summarize({1, 2, 3, 4, 5});
  EXPECT_EQ(Compare(one, Summarize({3, 4, 5, 6, 7})), Verdict::NoDifference);
  Summary touching = one;
  touching.lower = one.upper;
  touching.upper = one.upper + 1;
  EXPECT_EQ(Compare(one, touching), Verdict::NoDifference);
  EXPECT_EQ(Compare(touching, one), Verdict::NoDifference);
}

TEST(Statistics, OutliersAloneMakeNoDifference) {
  EXPECT_EQ(Compare(Summarize({1, 5, 5, 5, 5}), Summarize({5, 5, 5, 5, 9})), Verdict::NoDifference);
}

TEST(Statistics, WhatWasNotMeasuredDoesNotDiffer) {
  EXPECT_EQ(Compare(Summarize({}), Summarize({1})), Verdict::NoDifference);
}

}  // namespace
