#include "fuzz/zosensor/scripts.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/zosensor/resourcefile.h"
#include "tools/zosensor/restdoor.h"
#include "tools/zosensor/sessioncore.h"

namespace ZoFuzz {
namespace {

using namespace ZoSensor;

constexpr const char* Plant = R"({"rate_hz": 100, "resources": {
  "/set": {"content": {"v": 1.5, "n": 3, "list": [1, {"a": null}], "t": "x", "b": true},
           "writable": true, "integers": ["/n"]},
  "/wave": {"content": {"n": 0, "f": 0.0}, "waves": {"/n": {"wave": "counter"}, "/f": {"wave": "follow",
            "source": "/set", "at": "/v"}}},
  "/wave/sub": {"stream": false, "content": {"x": 1}},
  "/brief": {"content": [], "writable": true, "vanishes_after_s": 1},
  "/echo": {"call": {"echo": true, "delay_ms": 5}},
  "/into": {"call": {"merge_into": "/set"}},
  "/into/late": {"call": {"merge_into": "/set", "set": {"/brief": [1]}, "echo": true, "delay_ms": 5}},
  "/into/brief": {"call": {"merge_into": "/brief", "result": 1, "delay_ms": 3}}}})";

void Require(bool holds, const char* promise, std::string_view text) {
  if (!holds) {
    std::fprintf(stderr, "broken: %s\n%.*s\n", promise, static_cast<int>(text.size()), text.data());
    std::abort();
  }
}

// What the peer could read: JSON that no parser refuses.
ZoJson Parse(std::string_view text) {
  try {
    return ZoJson::ParseString(text);
  } catch (const ZoJsonError&) {
    Require(false, "what is sent is valid JSON", text);
    return {};
  }
}

void CheckAnswer(const ZoJson& answer, std::string_view text) {
  Require(answer.IsObject(), "an answer is an object", text);
  if (!answer.HasKey("status")) {
    Require(answer.Size() <= 1, "what has no status is a bare acknowledgement", text);
    return;
  }
  const int status = answer.At("status").Get<int>();
  Require(status == 1 || (status <= -400 && status > -590), "a status is 1 or a failure's", text);
  Require(status == 1 || (answer.At("payload").IsNull() && answer.At("error").IsString()),
          "a failure has a null payload and a sentence", text);
  Require(status != -500, "nothing fails inside", text);
}

class CheckingOutlet final : public Outlet {
 public:
  void Send(Outgoing item) override {
    if (disturbed || item.framing != Outgoing::Framing::Message) {
      return;  // garbage on purpose
    }
    const ZoJson message = Parse(*item.text);
    if (item.kind == Outgoing::Kind::Answer) {
      CheckAnswer(message, *item.text);
      Require(message.HasKey("id"), "an answer has an id", *item.text);
    } else {
      Require(message.HasKey("event") && message.HasKey("payload"), "a push has an event and a payload",
              *item.text);
    }
  }
  void Close(CloseCode, std::string_view) override { over = true; }
  void Cut(std::string_view) override { over = true; }
  void WakeAt(Time) override {}

  bool over = false;
  bool disturbed = false;
};

// Takes a line off the front.
std::string_view TakeLine(std::string_view& text) {
  const auto end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

struct World {
  World() : sensor(ParseResources(Plant, "plant"), limits, 1, now), faults(FaultSettings(), 1, now) {
    limits.maxResources = 100;
    limits.maxWatches = 100;
    faults.Install(sensor, now);
  }

  void Pass(std::string_view milliseconds, SessionCore* core) {
    unsigned count = 0;
    std::from_chars(milliseconds.data(), milliseconds.data() + milliseconds.size(), count);
    for (unsigned i = 0; i < std::min(count, 50U); ++i) {
      now += std::chrono::milliseconds(count <= 50 ? 1 : 20);
      sensor.Step(now);
      faults.Step(now);
      if (core != nullptr) {
        core->Step(now);
      }
    }
  }

  Limits limits;
  Log log{LogLevel::Off};
  Time now{std::chrono::hours(1)};
  Sensor sensor;
  FaultController faults;
};

}  // namespace

void PlaySession(std::string_view script) {
  World world;
  CheckingOutlet outlet;
  SessionCore core(world.sensor, world.faults, world.limits, world.log, outlet, "fuzzer");
  while (!script.empty() && !outlet.over) {
    const std::string_view line = TakeLine(script);
    if (line.starts_with('@')) {
      world.Pass(line.substr(1), &core);
    } else if (line.starts_with('#')) {
      std::string objection;
      if (const auto next = world.faults.Settings().With(line.substr(1), objection)) {
        world.sensor.Update("/faults", next->ToJson(), world.now);
        outlet.disturbed = true;
      }
    } else {
      core.Receive(line, true, world.now);
      outlet.disturbed = outlet.disturbed || !(world.faults.Settings().ToJson() == FaultSettings().ToJson());
    }
  }
}

void PlayRest(std::string_view script) {
  World world;
  RestDoor door(world.sensor, world.faults, world.limits, world.log);
  while (!script.empty()) {
    const auto end = script.find("\n%\n");
    std::string_view request = script.substr(0, end);
    script.remove_prefix(end == std::string_view::npos ? script.size() : end + 3);
    const std::string_view first = TakeLine(request);
    const auto space = first.find(' ');
    const std::string_view target =
        space == std::string_view::npos ? std::string_view() : first.substr(space + 1);
    const RestAnswer answer =
        door.Handle({std::string(first.substr(0, space)), std::string(target), std::string(request)},
                    "fuzzer", world.now);
    if (answer.disturbance != Disturbance::Cut && !answer.plan.error) {
      const ZoJson document = Parse(answer.body);
      CheckAnswer(document, answer.body);
      const int status = document.At("status").Get<int>();
      Require(answer.status == static_cast<unsigned>(status == 1 ? 200 : -status),
              "the HTTP status says the same", answer.body);
    }
    world.Pass("10", nullptr);
  }
}

void PlayResourceFile(std::string_view text) {
  SensorDescription description;
  try {
    description = ParseResources(text, "fuzz");
  } catch (const ResourceFileError& error) {
    Require(std::string_view(error.what()).starts_with("fuzz:"), "a mistake has its place", error.what());
    return;
  }
  if (description.resources.size() > 100) {
    return;  // thousands of copies are right, and slow
  }
  const Limits limits;
  Log log(LogLevel::Off);
  Time now{std::chrono::hours(1)};
  FaultController faults(FaultSettings(), 1, now);
  Sensor sensor(std::move(description), limits, 1, now);
  CheckingOutlet outlet;
  SessionCore core(sensor, faults, limits, log, outlet, "fuzzer");
  core.Receive(R"({"id":1,"method":"sub","uri":"*"})", true, now);
  for (int i = 0; i < 5 && sensor.NextDue() != Never; ++i) {
    now = std::max(now, sensor.NextDue());
    sensor.Step(now);
  }
  const ZoJson paths = Parse(*sensor.Read("/", now).payload).At("resources");
  for (std::size_t i = 0; i < paths.Size(); ++i) {
    const std::string path = paths.At(std::to_string(i)).Get<std::string>();
    const Answer content = sensor.Read(path, now);
    if (content.payload != nullptr) {
      Parse(*content.payload);
    }
    Answer answer = sensor.Call(path, ZoJson(), now);
    sensor.CompleteAt(now + answer.delay, answer);
  }
  for (int i = 0; i < 5 && sensor.NextDue() != Never; ++i) {
    now = std::max(now, sensor.NextDue());
    sensor.Step(now);
  }
}

}  // namespace ZoFuzz
