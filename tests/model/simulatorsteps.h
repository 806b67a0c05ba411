// What may happen to a simulator: one step after the other makes a history.
//
// Plain values. Every step is possible in every state, so any part of a history is a history too.
#pragma once

#include <rapidcheck.h>

#include <ostream>
#include <string>
#include <variant>
#include <vector>

#include "tests/model/dice.h"
#include "tests/model/document.h"

namespace ZoModel::Simulator {

struct NewItem {
  std::string name;
};
// Whatever a sensor manager can be asked for, by its name.
struct Verb {
  std::string name;
  std::string uri;
  Document payload;
};
struct Pass {
  // Whether a millisecond goes by with every document that it takes to the cache. Otherwise time stands still, and of a
  // resource's documents the first counts.
  bool slow;
};
struct Wait {
  long long by;  // µs
};

using Step = std::variant<NewItem, Verb, Pass, Wait>;
using History = std::vector<Step>;

std::string Describe(const Step& step);

// For the reports of RapidCheck, which finds it by the namespace of the variant's parts.
void showValue(const History& history, std::ostream& out);

// Parts of random histories.
std::string AnyItemName(Dice& dice);
std::string AnyResourceUri(Dice& dice);
// Of what a resource, or a part of one, may hold, so deep at most.
Document AnyPayload(Dice& dice, int depth);

// Random histories of up to so many steps.
rc::Gen<History> AnyHistory(int steps);

}  // namespace ZoModel::Simulator
