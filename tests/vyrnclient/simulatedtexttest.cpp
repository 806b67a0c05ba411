// Which letters of a simulated text become upper case: each by a random number of its own.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "zoiohandler/vyrnclient/simulatedvalue.h"

namespace {

std::vector<int> drawn;  // what rand gives from now on
std::size_t drawnSoFar = 0;

}  // namespace

// The C library's generator, replaced in this program by the numbers that a test has chosen.
extern "C" int rand() noexcept {
  const std::size_t index = drawnSoFar++;
  return index < drawn.size() ? drawn[index] : 0;
}

namespace ZoTest {
namespace {

class SimulatedText : public ::testing::Test {
 protected:
  // The text that follows when the generator gives these numbers, all of which must be asked for.
  static std::string Next(const std::string& text, std::vector<int> numbers) {
    drawn = std::move(numbers);
    drawnSoFar = 0;
    auto next = ZoIO::NextSimulatedValue(ZoJson::Of(text), "/r#/string").Get<std::string>();
    EXPECT_EQ(drawnSoFar, drawn.size());
    return next;
  }
};

TEST_F(SimulatedText, OddNumberMakesALetterUpperCaseAndAnEvenOneLowerCase) {
  EXPECT_EQ(Next("Hello World", {1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1}), "HeLlO WoRlD");
  EXPECT_EQ(Next("Hello World", {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0}), "hElLo wOrLd");
  EXPECT_EQ(Next("Hello World", {3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23}), "HELLO WORLD");
  EXPECT_EQ(Next("Hello World", {2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22}), "hello world");
}

TEST_F(SimulatedText, WhatCountsIsTheRemainderBy99) {
  // 97, 98, then from the start: 99 is 0, 100 is 1; 197 is 98, 198 is 0, 199 is 1; the highest number is 1.
  static_assert(RAND_MAX % 99 == 1);
  EXPECT_EQ(Next("abcdefgh", {97, 98, 99, 100, 197, 198, 199, RAND_MAX}), "AbcDefGH");
  EXPECT_EQ(Next("ABCDEFGH", {97, 98, 99, 100, 197, 198, 199, RAND_MAX}), "AbcDefGH");
}

TEST_F(SimulatedText, EveryCharacterTakesANumberThoughOnlyLettersChange) {
  EXPECT_EQ(Next("a 1-b", {1, 1, 1, 1, 0}), "A 1-b");
  EXPECT_EQ(Next("a 1-b", {0, 0, 0, 0, 1}), "a 1-B");
  // Bytes of a letter beyond ASCII take one each and stay.
  EXPECT_EQ(Next("x\xc3\xa4y", {1, 1, 0, 1}), "X\xc3\xa4Y");
}

TEST_F(SimulatedText, CaseOfBeforePlaysNoPart) {
  for (const char* before : {"ab", "aB", "Ab", "AB"}) {
    EXPECT_EQ(Next(before, {1, 0}), "Ab") << before;
  }
}

TEST_F(SimulatedText, EmptyTextAndOtherKindsTakeNoNumber) {
  EXPECT_EQ(Next("", {}), "");
  drawnSoFar = 0;
  drawn = {1, 1, 1};
  for (const ZoJson& other : {ZoJson::Of(1), ZoJson::Of(0.5), ZoJson::Of(true), ZoJson()}) {
    ZoIO::NextSimulatedValue(other, "/r#/string");
  }
  EXPECT_EQ(drawnSoFar, 0u);
}

}  // namespace
}  // namespace ZoTest
