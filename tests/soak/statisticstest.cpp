#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/soak/breaches.h"
#include "tests/soak/growth.h"
#include "tests/soak/histogram.h"

namespace ZoSoak {
namespace {

using std::chrono::nanoseconds;

TEST(Histogram, HasABucketForEveryValueAndItsUpperEndIsCloseAbove) {
  std::uint64_t value = 0;
  while (value < std::numeric_limits<std::uint64_t>::max() / 3) {
    const std::uint64_t upper = Histogram::Upper(Histogram::Bucket(value));
    EXPECT_GE(upper, value);
    EXPECT_LE(upper - value, value / 16) << value;
    EXPECT_EQ(Histogram::Bucket(upper), Histogram::Bucket(value));
    EXPECT_EQ(Histogram::Bucket(upper + 1), Histogram::Bucket(value) + 1);
    value = upper + 1 + value / 7;
  }
}

TEST(Histogram, QuantilesAreThoseOfTheValues) {
  Histogram histogram;
  for (int i = 1; i <= 1000; ++i) {
    histogram.Add(nanoseconds(i * 1000));
  }
  EXPECT_EQ(histogram.Count(), 1000u);
  EXPECT_GE(histogram.Quantile(0.5), nanoseconds(500'000));
  EXPECT_LE(histogram.Quantile(0.5), nanoseconds(500'000 * 17 / 16));
  EXPECT_GE(histogram.Quantile(0.99), nanoseconds(990'000));
  EXPECT_LE(histogram.Quantile(0.99), histogram.Most());
  EXPECT_EQ(histogram.Most(), nanoseconds(1'000'000));
  EXPECT_EQ(histogram.Quantile(1), nanoseconds(1'000'000));
}

TEST(Histogram, WithoutValuesSaysNothing) {
  const Histogram histogram;
  EXPECT_EQ(histogram.Quantile(0.5), nanoseconds(0));
  EXPECT_EQ(histogram.Most(), nanoseconds(0));
}

TEST(Histogram, LosesNothingThatSeveralThreadsAdd) {
  Histogram histogram;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&histogram, i] {
      for (int k = 0; k < 10'000; ++k) {
        histogram.Add(nanoseconds(k * 4 + i));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(histogram.Count(), 40'000u);
  EXPECT_EQ(histogram.Most(), nanoseconds(39'999));
}

Series Of(int count, std::int64_t perSecond, std::int64_t first = 0) {
  Series series(1000);
  for (int i = 0; i < count; ++i) {
    series.Add(first + perSecond * i);
  }
  return series;
}

TEST(Growth, OfALeakIsItsPaceOverHalfTheRun) {
  EXPECT_EQ(Of(400, 10).Growth(), 10 * 200);
}

TEST(Growth, OfALevelIsNothingAndOneHighValueChangesNothing) {
  Series series(1000);
  for (int i = 0; i < 100; ++i) {
    series.Add(i == 90 ? 1'000'000 : 50);
  }
  EXPECT_EQ(series.Growth(), 0);
  EXPECT_EQ(series.Most(), 1'000'000);
}

TEST(Growth, DoesNotCountTheFirstQuarter) {
  Series series(1000);
  for (int i = 0; i < 100; ++i) {
    series.Add(i < 25 ? i : 25);
  }
  EXPECT_EQ(series.Growth(), 0);
}

TEST(Growth, OfTooFewValuesIsNothing) {
  EXPECT_EQ(Of(7, 100).Growth(), 0);
  EXPECT_EQ(Of(0, 0).Most(), 0);
}

TEST(Growth, KeepsToItsCapacity) {
  Series series(3);
  for (int i = 0; i < 10; ++i) {
    series.Add(i);
  }
  EXPECT_EQ(series.Count(), 3u);
  EXPECT_EQ(series.Most(), 2);
}

TEST(Breaches, AreCountedByKindAndPrintedWithSeedAndReason) {
  std::ostringstream out;
  Breaches breaches(42, out);
  breaches.Report("stuck call", "ReadItem");
  breaches.Report("stuck call", "WriteItem");
  breaches.Report("growth", "memory");
  EXPECT_EQ(breaches.Count(), 3u);
  EXPECT_EQ(breaches.ByKind().at("stuck call"), 2u);
  EXPECT_NE(out.str().find("BREACH seed 42, 0."), std::string::npos) << out.str();
  EXPECT_NE(out.str().find(" s: stuck call: WriteItem\n"), std::string::npos) << out.str();
}

TEST(Breaches, OfOneKindDoNotFloodTheOutputButAreCounted) {
  std::ostringstream out;
  Breaches breaches(1, out);
  for (int i = 0; i < 1000; ++i) {
    breaches.Report("growth", "memory");
  }
  EXPECT_EQ(breaches.Count(), 1000u);
  EXPECT_LT(out.str().size(), 2000u);
}

}  // namespace
}  // namespace ZoSoak
