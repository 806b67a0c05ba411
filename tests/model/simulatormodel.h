// The model of the simulator: its resources as one plain tree, and the rules by which they change and answer,
// written for the reader and not for the clock.
//
// Plain values. A place below an array at which nothing can be raises, and changes nothing.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/model/document.h"
#include "tests/model/draws.h"
#include "tests/model/item.h"
#include "tests/model/referencemodel.h"
#include "tests/model/simulatorsteps.h"

namespace ZoModel::Simulator {

class Resources {
 public:
  // The item's resource after a change of the item's value.
  Document Advance(const Item& item, Draws& draws);

  Document Answer(const Verb& verb);

 private:
  Document data{Document::Members{}};
  bool running = false;
};

// What is to be seen of a simulator and its registry and cache.
class Model {
 public:
  // now: µs since the epoch.
  explicit Model(long long now) : now(now) {}

  // walk: the items' names in the order in which a pass comes by them, which is not the model's to say.
  Outcome Perform(const Step& step, const std::vector<std::string>& walk);

 private:
  using Versions = std::map<long long, Document>;  // by time, ms

  std::string Do(const NewItem& step);
  std::string Do(const Verb& step);
  std::string Do(const Pass& step);
  std::string Do(const Wait& step);

  std::vector<std::string> State() const;

  long long now;
  Draws draws;
  Resources resources;
  std::map<std::string, Item> items;
  std::map<std::string, Versions> cache;
  std::vector<std::string> order;   // of the items
  std::vector<std::string> events;  // of a step
};

// How an item and a resource are told.
std::string DescribeItem(const std::string& name, bool valid, const std::string& value);
std::string DescribeResource(const std::string& uri, std::size_t versions, const std::string& newest);

}  // namespace ZoModel::Simulator
