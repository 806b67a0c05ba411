// A whole instance over the simulator beside its model: what its host sees of simulated values.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "tests/model/anyparts.h"
#include "tests/model/draws.h"
#include "tests/model/hoststeps.h"
#include "tests/model/simulatormodel.h"
#include "tests/model/stoppedtime.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace ZoModel::Simulator {

// What a host does and the clock, or the simulator's pass.
struct InstanceStep {
  std::variant<ZoModel::Step, Pass> kind;
};
using InstanceHistory = std::vector<InstanceStep>;

namespace {

constexpr long long start = 1'700'000'000'000'000;  // µs since the epoch
constexpr long long millisecond = 1000;             // µs
constexpr int steps = 60;

std::string Describe(const InstanceStep& step) {
  const auto* pass = std::get_if<Pass>(&step.kind);
  return pass != nullptr ? Describe(Step(*pass)) : ZoModel::Describe(std::get<ZoModel::Step>(step.kind));
}

Document FromJson(const ZoJson& json) {
  switch (json.GetKind()) {
    case ZoJson::Kind::Boolean:
      return Document(json.Get<bool>());
    case ZoJson::Kind::Integer:
      return Document(json.Get<long long>());
    case ZoJson::Kind::Unsigned:
      return Document(json.Get<unsigned long long>());
    case ZoJson::Kind::Float:
      return Document(json.Get<double>());
    case ZoJson::Kind::String:
      return Document(json.Get<std::string>());
    case ZoJson::Kind::Array: {
      Document::Elements elements;
      for (ZoJsonIterator it(json); it.Valid(); it.Next()) {
        elements.push_back(FromJson(it.Value()));
      }
      return Document(elements);
    }
    case ZoJson::Kind::Object: {
      Document::Members members;
      for (ZoJsonIterator it(json); it.Valid(); it.Next()) {
        members.emplace_back(it.Key(), FromJson(it.Value()));
      }
      return Document(members);
    }
    case ZoJson::Kind::Null:
      break;
  }
  return {};
}

// The model of an instance, with the simulator's resources in place of a sensor.
class InstanceModel : public ReferenceModel {
 public:
  InstanceModel() : ReferenceModel(start) {}

  // walk: see Model.
  Outcome PerformPass(const Pass& step, const std::vector<std::string>& walk) {
    events.clear();
    const std::string result = Result([&] {
      for (const std::string& name : walk) {
        const Item& item = items.at(name);
        Add(item.uri, resources.Advance(item, draws));
        now += step.slow ? millisecond : 0;
      }
      return "";
    });
    return {result, events, State()};
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& [name, item] : items) {
      names.push_back(name);
    }
    return names;
  }

 protected:
  // Every item is there.
  Item& ItemOf(const std::string& name) override {
    const auto [item, isNew] = items.try_emplace(name, name);
    if (isNew) {
      Log(2, "ZoIO::ItemManager::Item", name + " does not exist. Creating.");
      Log(2, "ZoIO::ItemManager::Item", name + " created.");
    }
    return item->second;
  }
  bool IsConnected() const override { return true; }
  ZoModel::Answer Ask(const std::string& verb, const std::string& uri, const std::string& body,
                      bool /*patient*/) override {
    const Document payload = body.empty() ? Document() : FromJson(ZoJson::ParseString(body));
    return {resources.Answer({verb, uri, payload})};
  }
  bool IsRunning() override { return resources.Answer({"IsRunning", "", {}}) == Document(true); }
  void StartSensor() override { resources.Answer({"Start", "", {}}); }
  void StopSensor() override { resources.Answer({"Stop", "", {}}); }

 private:
  Draws draws;
  Resources resources;
};

// The instance, in stopped time.
class SimulatedInstance {
 public:
  SimulatedInstance() {
    LibraryDraws() = {};
    const ioHandlerParam host = recorder.Param();
    simulator = std::make_shared<ZoIO::SensorManagerSimulator>(
        std::make_shared<ZoIO::Logger>(host.context, host.log));
    simulator->Shutdown();  // in time that runs: a join in stopped time is the monitor's end
    time = std::make_unique<StoppedTime>(start);
    client = std::make_unique<ZoIO::ZoVyrnClient>(simulator, simulator, host);
    if (!time->WaitForMonitor()) {
      throw std::runtime_error("The monitor does not start.");
    }
    const auto note = [this](const ZoTest::Entry& entry) { events.push_back(Told(entry, this)); };
    recorder.OnValue(note);
    recorder.OnResult(note);
    recorder.OnLog(note);
  }

  Outcome Perform(const InstanceStep& step) {
    events.clear();
    const auto* pass = std::get_if<Pass>(&step.kind);
    const std::string result = pass != nullptr ? Do(*pass)
                                               : std::visit([this](const auto& kind) { return Do(kind); },
                                                            std::get<ZoModel::Step>(step.kind));
    recorder.Clear();
    return {result, events, StateOf(*simulator, {})};
  }

  std::vector<std::string> Walk() {
    std::vector<std::string> names;
    for (const ZoIO::ItemInfo* item : simulator->PLC()->Snapshot()) {
      names.push_back(item->name);
    }
    return names;
  }

 private:
  template <typename Other>
  std::string Do(const Other& step) {
    if constexpr (requires { ZoModel::Perform(*client, step); }) {
      return ZoModel::Perform(*client, step);
    } else {
      return "no step of these histories";
    }
  }
  std::string Do(const Call& step) { return ZoModel::Perform(*client, step, this); }
  std::string Do(const MonitorPass& /*step*/) {
    return time->MonitorPass() ? "" : "the monitor did not come back";
  }
  std::string Do(const Trim& /*step*/) {
    simulator->Cache()->TrimAt(time->Now() / millisecond);
    return "";
  }
  std::string Do(const Clock& step) {
    time->Advance(step.by);
    return "";
  }
  std::string Do(const Pass& step) {
    time->AdvanceWithEachLook(step.slow ? millisecond : 0);
    std::string result = Result([this] {
      simulator->Pass();
      return "";
    });
    time->AdvanceWithEachLook(0);
    return result;
  }

  ZoTest::Recorder recorder;
  std::vector<std::string> events;
  std::shared_ptr<ZoIO::SensorManagerSimulator> simulator;
  std::unique_ptr<StoppedTime> time;
  std::unique_ptr<ZoIO::ZoVyrnClient> client;
};

// Names and resources that a simulator makes much of.
ZoModel::Step AnyHostStep(Dice& dice) {
  switch (dice.Weighted<int>({{6, 0}, {2, 1}, {4, 2}, {5, 3}, {5, 4}})) {
    case 0: {
      Subscribe step = AnySubscribe(dice);
      for (auto& name : step.names) {
        name = name ? std::optional(AnyItemName(dice)) : name;
      }
      return step;
    }
    case 1: {
      Unsubscribe step = AnyUnsubscribe(dice);
      for (auto& name : step.names) {
        name = AnyItemName(dice);
      }
      return step;
    }
    case 2:
      return ZoModel::Read{AnyItemName(dice)};
    case 3: {
      Write step = AnyWrite(dice);
      step.name = AnyItemName(dice);
      return step;
    }
    default: {
      Call step = AnyCall(dice);
      if (!dice.OnceIn(6)) {
        step.uri = AnyResourceUri(dice);
        step.args = AnyPayload(dice, 3).Text();
      }
      return step;
    }
  }
}

InstanceStep AnyInstanceStep(Dice& dice) {
  switch (dice.Weighted<int>({{14, 0}, {7, 1}, {7, 2}, {7, 3}, {1, 4}})) {
    case 0:
      return {AnyHostStep(dice)};
    case 1:
      return {Pass{dice.OnceIn(2)}};
    case 2:
      return {ZoModel::Step(MonitorPass{})};
    case 3:
      return {ZoModel::Step(AnyClock(dice, Clocks::OnlyForwards))};
    default:
      return {ZoModel::Step(Trim{})};
  }
}

rc::Gen<InstanceHistory> AnyInstanceHistory() {
  const rc::Gen<InstanceStep> step([](const rc::Random& random, int /*size*/) {
    Dice dice(random);
    return rc::shrinkable::just(AnyInstanceStep(dice));
  });
  return rc::gen::scale(steps / 100.0, rc::gen::container<InstanceHistory>(step));
}

Outcome PerformOn(InstanceModel& model, const InstanceStep& step, const std::vector<std::string>& walk) {
  const auto* pass = std::get_if<Pass>(&step.kind);
  return pass != nullptr ? model.PerformPass(*pass, walk) : model.Perform(std::get<ZoModel::Step>(step.kind));
}

// Plays a history on both. Returns the first difference, or nothing.
std::string Play(const InstanceHistory& history) {
  SimulatedInstance instance;
  InstanceModel model;
  for (std::size_t i = 0; i < history.size(); ++i) {
    const Outcome plugin = instance.Perform(history[i]);
    const Outcome expected = PerformOn(model, history[i], instance.Walk());
    const std::string difference = Outcome::Compare(plugin, expected);
    if (!difference.empty()) {
      return "step " + std::to_string(i + 1) + ": " + Describe(history[i]) + "\n" + difference;
    }
  }
  return "";
}

RC_GTEST_PROP(SimulatorModel, TellsWhatAnInstanceOnTheSimulatorDoes, ()) {
  const std::string difference = Play(*AnyInstanceHistory());
  if (!difference.empty()) {
    throw std::runtime_error(difference);  // RapidCheck shows what it says as it is
  }
}

// Agreement says nothing about what never comes up.
TEST(AnySimulatorInstanceHistory, ComesByEverythingThatTheModelTells) {
  std::set<std::string> missing = {"value /a#/int 2:1 ",
                                   "value /a#/float 3:0.1000",
                                   "value /a#/string 0:Hello World ",
                                   "value /a#/string 0:hE",
                                   "value /a#/bool 1:1 ",
                                   "value /a/b# 0:/a/b ",
                                   "value /a#/int 5:INVALID ",
                                   "value #/int 2:",
                                   "Resource subscribed successfully.",
                                   "Resource already subscribed.Skipping.",
                                   "Already running.",
                                   "Not running",
                                   "{\\\"payload\\\":\\\"/a\\\"}",
                                   "is no index of an array of "};
  rc::Random random(1);
  for (int i = 0; i < 2000 && !missing.empty(); ++i) {
    InstanceModel model;
    for (const InstanceStep& step : AnyInstanceHistory()(random.split(), 100).value()) {
      const Outcome outcome = PerformOn(model, step, model.Names());
      std::string all = outcome.result + "\n";
      for (const std::string& line : outcome.events) {
        all += line + "\n";
      }
      std::erase_if(missing, [&](const std::string& text) { return all.find(text) != std::string::npos; });
    }
  }
  EXPECT_TRUE(missing.empty()) << ::testing::PrintToString(missing);
}

}  // namespace

// For the reports of RapidCheck.
void showValue(const InstanceHistory& history, std::ostream& out) {
  out << history.size() << " steps\n";
  for (const InstanceStep& step : history) {
    out << "  " << Describe(step) << "\n";
  }
}

}  // namespace ZoModel::Simulator
