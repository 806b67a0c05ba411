// What the random histories are rolled with.
//
// A plain value.
#pragma once

#include <rapidcheck.h>

#include <cstddef>
#include <initializer_list>
#include <utility>

namespace ZoModel {

// A step is rolled from one random number. RapidCheck's own generators would carry the ways to shrink every part of
// every step, and take most of the time with it.
class Dice {
 public:
  explicit Dice(const rc::Random& random) : random(random) {}

  std::size_t Below(std::size_t count) { return static_cast<std::size_t>(random.next() % count); }
  bool OnceIn(std::size_t times) { return Below(times) == 0; }
  template <typename T>
  T Of(std::initializer_list<T> choices) {
    return choices.begin()[Below(choices.size())];
  }
  // Each as likely as its weight says.
  template <typename T>
  T Weighted(std::initializer_list<std::pair<std::size_t, T>> choices) {
    std::size_t sum = 0;
    for (const auto& choice : choices) {
      sum += choice.first;
    }
    std::size_t roll = Below(sum);
    const auto* chosen = choices.begin();
    for (; roll >= chosen->first; ++chosen) {
      roll -= chosen->first;
    }
    return chosen->second;
  }

 private:
  rc::Random random;
};

}  // namespace ZoModel
