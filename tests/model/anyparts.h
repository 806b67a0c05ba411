// What random steps are made of, and the steps that every instance can take.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tests/model/anyhistory.h"
#include "tests/model/dice.h"
#include "tests/model/document.h"
#include "tests/model/steps.h"

namespace ZoModel {

// Few enough names to meet again and to share resources and patterns; and the odd ones.
std::string AnyName(Dice& dice);
std::string AnyUri(Dice& dice);
// Mostly an object with the members that the names lead to.
Document AnyPayload(Dice& dice);

Subscribe AnySubscribe(Dice& dice);
Unsubscribe AnyUnsubscribe(Dice& dice);
Write AnyWrite(Dice& dice);
Call AnyCall(Dice& dice);
Hold AnyHold(Dice& dice);
Answers AnyAnswers(Dice& dice);
Clock AnyClock(Dice& dice, Clocks clocks);

// The same batch with one name less, for each name.
template <typename AnyKind, typename Batch>
std::vector<AnyKind> WithOneNameLess(const Batch& batch) {
  std::vector<AnyKind> smaller;
  for (std::size_t i = 0; i < batch.names.size(); ++i) {
    Batch less = batch;
    less.names.erase(less.names.begin() + static_cast<std::ptrdiff_t>(i));
    smaller.push_back(less);
  }
  return smaller;
}

// Shrinking is mostly a matter of leaving out steps; a batch also loses names.
template <typename AnyKind>
rc::Seq<AnyKind> Smaller(const AnyKind& step) {
  std::vector<AnyKind> smaller;
  if (const auto* subscribe = std::get_if<Subscribe>(&step)) {
    smaller = WithOneNameLess<AnyKind>(*subscribe);
  } else if (const auto* unsubscribe = std::get_if<Unsubscribe>(&step)) {
    smaller = WithOneNameLess<AnyKind>(*unsubscribe);
  }
  return rc::seq::fromContainer(std::move(smaller));
}

}  // namespace ZoModel
