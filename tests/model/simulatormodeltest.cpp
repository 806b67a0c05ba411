// The simulator beside its model: whatever it is asked for, in whatever order, both must tell the same story.
//
// The histories are the same in every run. RC_PARAMS overrides that, as modeltest.cpp says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/model/draws.h"
#include "tests/model/hoststeps.h"
#include "tests/model/simulatormodel.h"
#include "tests/model/stoppedtime.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

namespace ZoModel::Simulator {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::StartsWith;

constexpr long long start = 1'700'000'000'000'000;  // µs since the epoch
constexpr long long millisecond = 1000;             // µs
constexpr int steps = 40;

// A simulator without its thread, in stopped time: performs steps and tells what came of them in the words of the
// model.
class SteppedSimulator {
 public:
  SteppedSimulator() {
    LibraryDraws() = {};
    simulator.Shutdown();
    recorder.Clear();
    recorder.OnLog([this](const ZoTest::Entry& entry) { events.push_back(Told(entry, this)); });
  }

  Outcome Perform(const Step& step) {
    events.clear();
    const std::string result = std::visit([this](const auto& kind) { return Do(kind); }, step);
    recorder.Clear();
    return {result, events, State()};
  }

  // The items' names in the order of the registry.
  std::vector<std::string> Walk() {
    std::vector<std::string> names;
    for (const ZoIO::ItemInfo* item : simulator.PLC()->Snapshot()) {
      names.push_back(item->name);
    }
    return names;
  }

 private:
  std::string Do(const NewItem& step) {
    simulator.PLC()->Item(step.name);
    return "";
  }
  std::string Do(const Pass& step) {
    time.AdvanceWithEachLook(step.slow ? millisecond : 0);
    std::string result = Result([this] {
      simulator.Pass();
      return "";
    });
    time.AdvanceWithEachLook(0);
    return result;
  }
  std::string Do(const Wait& step) {
    time.Advance(step.by);
    return "";
  }
  std::string Do(const Verb& step) {
    return Result([&] { return Answer(step).ToString(); });
  }

  ZoJson Answer(const Verb& step) {
    const ZoJson payload = ZoJson::ParseString(step.payload.Text());
    const auto switched = [this](bool on) {
      on ? simulator.Start() : simulator.Stop();
      return ZoJson();
    };
    const std::map<std::string, std::function<ZoJson()>> verbs = {
        {"Read", [&] { return simulator.Read(step.uri, true); }},
        {"Create", [&] { return simulator.Create(step.uri, payload, true); }},
        {"Update", [&] { return simulator.Update(step.uri, payload, true); }},
        {"Delete", [&] { return simulator.Delete(step.uri, true); }},
        {"Call", [&] { return simulator.Call(step.uri, payload, true); }},
        {"Stream", [&] { return simulator.Stream(step.uri, true); }},
        {"StopStream", [&] { return simulator.StopStream(step.uri, true); }},
        {"Subscribe", [&] { return simulator.Subscribe(step.uri, true); }},
        {"Unsubscribe", [&] { return simulator.Unsubscribe(step.uri, true); }},
        {"Start", [&] { return switched(true); }},
        {"Stop", [&] { return switched(false); }},
        {"IsRunning", [&] { return ZoJson::Of(simulator.IsRunning()); }},
        {"IsConnected", [&] { return ZoJson::Of(simulator.IsConnected()); }}};
    return verbs.at(step.name)();
  }

  std::vector<std::string> State() {
    std::map<std::string, std::string> items;  // in the order of names
    std::map<std::string, std::string> resources;
    const auto cache = simulator.Cache();
    for (const ZoIO::ItemInfo* item : simulator.PLC()->Snapshot()) {
      const bool cached = cache->Exists(item->uri);
      const ZoJson document = cached ? cache->Get(item->uri, 0) : ZoJson();
      const ZoJson* value = cached ? document.Find(item->pointer) : nullptr;
      items[item->name] =
          DescribeItem(item->name, item->valid, value == nullptr ? "nothing" : value->ToString());
      if (cached) {
        resources[item->uri] = DescribeResource(item->uri, cache->SizeAt(item->uri), document.ToString());
      }
    }
    std::vector<std::string> lines;
    for (const auto& [name, line] : items) {
      lines.push_back(line);
    }
    for (const auto& [uri, line] : resources) {
      lines.push_back(line);
    }
    if (cache->Size() != resources.size()) {
      lines.push_back("something unknown is cached");
    }
    for (const std::string& name : simulator.PLC()->InvalidItems()) {
      lines.push_back(name + " waits");
    }
    return lines;
  }

  StoppedTime time{start};
  ZoTest::Recorder recorder;
  std::vector<std::string> events;
  std::shared_ptr<ZoIO::Logger> logger =
      std::make_shared<ZoIO::Logger>(&recorder, &ZoTest::Recorder::HandleLog);
  ZoIO::SensorManagerSimulator simulator{logger};
};

// Plays a history on both. Returns the first difference, or nothing.
std::string Play(const History& history) {
  SteppedSimulator simulator;
  Model model(start);
  for (std::size_t i = 0; i < history.size(); ++i) {
    const Outcome plugin = simulator.Perform(history[i]);
    const std::string difference = Outcome::Compare(plugin, model.Perform(history[i], simulator.Walk()));
    if (!difference.empty()) {
      return "step " + std::to_string(i + 1) + ": " + Describe(history[i]) + "\n" + difference;
    }
  }
  return "";
}

// Before RapidCheck reads it. What the caller has set stands last, and so counts.
const bool prepared = [] {
  const char* const given = std::getenv("RC_PARAMS");
#if defined(NDEBUG) && defined(__OPTIMIZE__)
  const std::string histories = "3000";
#else
  const std::string histories = "400";  // each takes several times as long
#endif
  const std::string params = "seed=20250314 max_success=" + histories + " " + (given == nullptr ? "" : given);
  return setenv("RC_PARAMS", params.c_str(), 1) == 0;
}();

RC_GTEST_PROP(SimulatorModel, TellsWhatTheSimulatorDoes, ()) {
  const std::string difference = Play(*AnyHistory(steps));
  if (!difference.empty()) {
    throw std::runtime_error(difference);  // RapidCheck shows what it says as it is
  }
}

// Agreement says nothing about what never comes up.
TEST(AnySimulatorHistory, ComesByEverythingThatTheModelTells) {
  std::set<std::string> missing = {"is no index of an array of ",
                                   "no element \"-\" in an array of ",
                                   "{\"payload\":\"\"}",
                                   "{\"status\":1}",
                                   "true",
                                   "false",
                                   "\"/a/b#/int\": 5",
                                   "\"/a/b#/float\": 0.1",
                                   "\"/a/b#/string\": \"Hello World\"",
                                   "\"/a/b#/string\": \"hE",
                                   "\"/a#/bool\": true",
                                   "\"/a#/int\": 100\n",
                                   "\"/a#/float\": 100.9",
                                   "\"/a#/float\": 0\n",
                                   "\"/a#/int\": 0\n",
                                   "\"/list#/2\": 0\n",
                                   "\"/list#/-\": 0",
                                   "\"#/int\": 2",
                                   "\"/a#/b/int\": nothing",
                                   "\"\" is cached 2 times",
                                   "\"/a/b\" is cached 9 times",
                                   "é"};
  rc::Random random(1);
  for (int i = 0; i < 2000 && !missing.empty(); ++i) {
    Model model(start);
    std::set<std::string> names;
    for (const Step& step : AnyHistory(steps)(random.split(), 100).value()) {
      if (const auto* item = std::get_if<NewItem>(&step)) {
        names.insert(item->name);
      }
      const Outcome outcome = model.Perform(step, {names.begin(), names.end()});
      std::string all = outcome.result + "\n";
      for (const std::string& line : outcome.state) {
        all += line + "\n";
      }
      std::erase_if(missing, [&](const std::string& text) { return all.find(text) != std::string::npos; });
    }
  }
  EXPECT_TRUE(missing.empty()) << ::testing::PrintToString(missing);
}

// What is told of items and resources after a history, on which both must agree.
std::vector<std::string> After(const History& history) {
  EXPECT_EQ(Play(history), "");
  SteppedSimulator simulator;
  Outcome last;
  for (const Step& step : history) {
    last = simulator.Perform(step);
  }
  return last.state;
}

TEST(NamedSimulatorHistory, ValueByTwoNamesTakesAStepForEach) {
  EXPECT_THAT(After({NewItem{"/a#/int"}, NewItem{"/a#int"}, Pass{true}, Pass{true}}),
              Contains(R"("/a" is cached 4 times, the last time as {"int":3})"));
}

TEST(NamedSimulatorHistory, ValueOfAResourceBelowAnotherTakesAStepForEach) {
  const auto state = After({NewItem{"/a#/b/int"}, NewItem{"/a/b#/int"}, Pass{true}, Pass{true}});
  // Whichever comes first in a pass does not see the other's step.
  EXPECT_THAT(state, AnyOf(IsSupersetOf({R"("/a#/b/int": 2)", R"("/a/b#/int": 3)"}),
                           IsSupersetOf({R"("/a#/b/int": 3)", R"("/a/b#/int": 2)"})));
}

TEST(NamedSimulatorHistory, ItemsInEachOthersWayStartAnewInEveryPass) {
  EXPECT_THAT(After({NewItem{"/a#/b/int"}, NewItem{"/a/b#"}, Pass{true}, Pass{true}, Pass{true}}),
              IsSupersetOf({R"("/a#/b/int": 0)", R"("/a/b#": 0)"}));
}

TEST(NamedSimulatorHistory, ResourceByTwoUrisIsCachedUnderEach) {
  const auto state = After({NewItem{"/a#/int"}, NewItem{"a#/bool"}, Pass{true}, Pass{true}});
  EXPECT_THAT(
      state, IsSupersetOf({StartsWith(R"("/a" is cached 2 times)"), StartsWith(R"("a" is cached 2 times)")}));
  // The one that is cached last shows the other's step too.
  EXPECT_THAT(state, Contains(HasSubstr(R"("int":1)")));
  EXPECT_THAT(state, Contains(HasSubstr(R"("bool":true)")));
}

TEST(NamedSimulatorHistory, ReadOfAnItemsPlaceMakesItAText) {
  EXPECT_THAT(After({NewItem{"/a#/int"}, Verb{"Read", "/a/int", {}}, Pass{true}}),
              Contains(AllOf(StartsWith(R"("/a#/int": ")"), EndsWith("\""))));
}

TEST(NamedSimulatorHistory, OfTwoItemsInAMillisecondTheSecondsStepIsSeenInTheNextPass) {
  History history = {NewItem{"/a#/int"}, NewItem{"/a#/uint"}, Pass{false}};
  EXPECT_THAT(After(history),
              Contains(AllOf(StartsWith(R"("/a" is cached 1 times)"), Not(HasSubstr(",\"")))));
  history.insert(history.end(), {Wait{millisecond}, Pass{false}});
  EXPECT_THAT(After(history), Contains(AllOf(StartsWith(R"("/a" is cached 2 times)"), HasSubstr("int\":1"),
                                             HasSubstr(",\""), HasSubstr("int\":0"))));
}

}  // namespace
}  // namespace ZoModel::Simulator
