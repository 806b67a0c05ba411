// The plug-in with its link and a socket, beside a model of all that: whatever happens, in whatever order, host, sensor
// and model must tell the same story.
//
// The histories are the same in every run; RC_PARAMS overrides that as in modeltest.cpp. A history that fails is shrunk,
// and printed with what was told of its last step.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tests/model/anywirehistory.h"
#include "tests/model/wireinstance.h"
#include "tests/model/wiremodel.h"

namespace ZoModel {
namespace {

constexpr long long start = 1'700'000'000'000'000;  // µs since the epoch

// For what must come. Only a failure ever waits so long, and while it is shrunk it need not do so again and again.
std::chrono::milliseconds Patience(bool failed) {
  return failed ? std::chrono::milliseconds(1000) : std::chrono::milliseconds(10'000);
}

std::string Difference(const std::string& what, const Outcome& plugin, const Outcome& model) {
  const std::string difference = Outcome::Compare(plugin, model);
  return difference.empty() ? "" : what + "\n" + difference;
}

// Plays a history on both. Returns the first difference, or nothing.
std::string Play(const WireHistory& history) {
  static bool failed = false;
  WireInstance plugin(start, Patience(failed));
  WireModel model(start, "127.0.0.1", plugin.Port());
  std::string difference = Difference("creation", plugin.Begin(), model.Begin());
  for (std::size_t i = 0; i < history.size() && difference.empty(); ++i) {
    const Outcome expected = model.Perform(history[i]);
    difference = Difference("step " + std::to_string(i + 1) + ": " + Describe(history[i]),
                            plugin.Perform(history[i], model.RequestCount()), expected);
  }
  if (difference.empty()) {
    difference = Difference("destruction", plugin.End(), model.End());
  }
  failed = failed || !difference.empty();
  return difference;
}

// Before RapidCheck reads it. What the caller has set stands last, and so counts.
const bool prepared = [] {
  const char* const given = std::getenv("RC_PARAMS");
#ifdef NDEBUG
  const std::string histories = "120";
#else
  const std::string histories = "40";  // each takes several times as long
#endif
  const std::string params = "seed=20250601 max_success=" + histories + " " + (given == nullptr ? "" : given);
  return setenv("RC_PARAMS", params.c_str(), 1) == 0;
}();

RC_GTEST_PROP(WireModel, TellsWhatHostAndSensorSee, ()) {
  const std::string difference = Play(*AnyWireHistory(100));
  if (!difference.empty()) {
    throw std::runtime_error(difference);  // RapidCheck shows what it says as it is
  }
}

}  // namespace
}  // namespace ZoModel
