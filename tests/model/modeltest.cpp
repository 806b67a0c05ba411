// The plug-in beside its model: whatever happens, in whatever order, both must tell the same story.
//
// The histories are the same in every run. RC_PARAMS adds to that or replaces it, as RapidCheck describes it:
//   RC_PARAMS="seed=5 max_success=20000" ...      others, and more
//   RC_PARAMS="reproduce=..." ...                 the one that a failure has printed
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <stdexcept>

#include "tests/model/anyhistory.h"
#include "tests/model/steppedinstance.h"

namespace ZoModel {
namespace {

constexpr long long start = 1'700'000'000'000'000;  // µs since the epoch

// Plays a history on both. Returns the first difference, or nothing.
std::string Play(const History& history) {
  SteppedInstance plugin(start);
  ReferenceModel model(start);
  for (std::size_t i = 0; i < history.size(); ++i) {
    const Outcome expected = model.Perform(history[i]);
    const std::string difference = Outcome::Compare(plugin.Perform(history[i]), expected);
    if (!difference.empty()) {
      return "step " + std::to_string(i + 1) + ": " + Describe(history[i]) + "\n" + difference;
    }
  }
  const std::string difference = Outcome::Compare(plugin.End(), model.End());
  return difference.empty() ? "" : "destruction\n" + difference;
}

RC_GTEST_PROP(Model, EveryHistoryIsTheModels, (const History& history)) {
  const std::string difference = Play(history);
  if (!difference.empty()) {
    throw std::runtime_error(difference);  // which RapidCheck shows whole
  }
}

}  // namespace
}  // namespace ZoModel
