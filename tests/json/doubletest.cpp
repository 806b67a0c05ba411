#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <random>
#include <string>

#include "zovyrnsdk/json/zojson.h"

namespace {

// How many numbers each test draws: the full count where the code is optimised and not watched by a
// sanitizer.
#if defined(NDEBUG) && defined(__OPTIMIZE__)
constexpr std::size_t draws = 10'000'000;
constexpr std::size_t halfwayDraws = 200'000;
#else
constexpr std::size_t draws = 200'000;
constexpr std::size_t halfwayDraws = 5'000;
#endif

class ZoJsonDoubles : public testing::Test {
 protected:
  ZoJsonDoubles() : seed(std::random_device()()), random(seed) { std::cout << "seed " << seed << std::endl; }

  double AnyFinite() {
    for (;;) {
      const auto number = std::bit_cast<double>(random());
      if (std::isfinite(number)) {
        return number;
      }
    }
  }

  std::uint64_t seed;
  std::mt19937_64 random;
};

std::uint64_t Bits(double number) {
  return std::bit_cast<std::uint64_t>(number);
}

double Read(const std::string& text) {
  return ZoJson::ParseString(text).Get<double>();
}

TEST_F(ZoJsonDoubles, AnyPatternPrintedWith17DigitsReadsBackTheSame) {
  for (std::size_t i = 0; i < draws; ++i) {
    const double number = AnyFinite();
    char text[40];
    std::snprintf(text, sizeof text, "%.16e", number);
    ASSERT_EQ(Bits(Read(text)), Bits(number)) << text;
  }
}

TEST_F(ZoJsonDoubles, AnyPatternPrintedShortestReadsBackTheSame) {
  for (std::size_t i = 0; i < draws; ++i) {
    const double number = AnyFinite();
    const std::string text = ZoJson::Of(number).ToString();
    const ZoJson back = ZoJson::ParseString(text);
    ASSERT_TRUE(back.IsFloat()) << text;
    ASSERT_EQ(Bits(back.Get<double>()), Bits(number)) << text;
  }
}

TEST_F(ZoJsonDoubles, OrdinaryNumbersPrintedShortestReadBackTheSame) {
  std::uniform_real_distribution<double> ordinary(-1e6, 1e6);
  for (std::size_t i = 0; i < draws / 10; ++i) {
    const double number = i % 2 == 0 ? ordinary(random) : std::round(ordinary(random) * 100) / 100;
    ASSERT_EQ(Bits(Read(ZoJson::Of(number).ToString())), Bits(number));
  }
}

// All the digits of a number that is wider than a double.
std::string Expansion(long double number) {
  char text[900];
  std::snprintf(text, sizeof text, "%.800Le", number);
  return text;
}

TEST_F(ZoJsonDoubles, HalfwayCasesRoundToEven) {
  static_assert(std::numeric_limits<long double>::digits > std::numeric_limits<double>::digits,
                "the middle of two doubles must fit a long double");
  for (std::size_t i = 0; i < halfwayDraws; ++i) {
    double low = std::abs(AnyFinite());
    if (i % 4 == 0) {
      low = std::ldexp(
          std::floor(std::ldexp(static_cast<double>(random() >> 11U), -static_cast<int>(random() % 50))), 0);
    } else if (i % 4 == 1) {
      low = std::bit_cast<double>(random() >> 12U);  // too small for a full mantissa
    }
    const double high = std::nextafter(low, std::numeric_limits<double>::infinity());
    if (std::isinf(high)) {
      continue;
    }
    const long double middle = (static_cast<long double>(low) + static_cast<long double>(high)) / 2;
    const double even = Bits(low) % 2 == 0 ? low : high;
    const std::string text = Expansion(middle);
    ASSERT_EQ(Bits(Read(text)), Bits(even)) << text;
    ASSERT_EQ(Bits(std::strtod(text.c_str(), nullptr)), Bits(even)) << text;
    // The least bit more or less, far behind the digits that a double holds, decides.
    std::string above = text;
    above.insert(above.find('e'), "1");
    ASSERT_EQ(Bits(Read(above)), Bits(high)) << above;
    const std::string below = Expansion(std::nextafter(middle, 0.0L));
    ASSERT_EQ(Bits(Read(below)), Bits(low)) << below;
    ASSERT_EQ(Bits(Read("-" + text)), Bits(-even)) << text;
  }
}

TEST_F(ZoJsonDoubles, DecimalsOfManyLengthsReadLikeTheCLibraryReadsThem) {
  for (std::size_t i = 0; i < draws / 10; ++i) {
    std::string text = i % 2 == 0 ? "-" : "";
    text += std::to_string(1 + random() % 9);
    const std::size_t whole = random() % 25;
    for (std::size_t digit = 0; digit < whole; ++digit) {
      text += static_cast<char>('0' + random() % 10);
    }
    text += '.';
    const std::size_t fraction = 1 + random() % 25;
    for (std::size_t digit = 0; digit < fraction; ++digit) {
      text += static_cast<char>('0' + random() % 10);
    }
    text += "e" + std::to_string(static_cast<int>(random() % 560) - 300);
    ASSERT_EQ(Bits(Read(text)), Bits(std::strtod(text.c_str(), nullptr))) << text;
  }
}

}  // namespace
