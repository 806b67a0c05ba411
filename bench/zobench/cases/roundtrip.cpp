// ReadItem and WriteItem against a sensor that answers at once, beside a ping-pong of the very bytes that go over the wire.
#include <fmt/format.h>

#include <memory>

#include "bench/zobench/cases/cases.h"
#include "bench/zobench/checkfailed.h"
#include "bench/zobench/emulator.h"
#include "bench/zobench/interleave.h"
#include "bench/zobench/measures.h"
#include "bench/zobench/pinning.h"
#include "bench/zobench/references.h"
#include "bench/zobench/scriptedsensor.h"

namespace ZoBench {
namespace {

constexpr int UsualRounds = 41;
constexpr double BlockSeconds = 0.004;

const std::string& TheItem() {
  static const std::string name = ItemName(0, 2);  // composing it must not be timed
  return name;
}

using Operation = std::function<void(Instance&)>;
// Of a block: how many values it brought, and how many operations it had.
using Verification = std::function<void(Instance&, std::uint64_t values, std::uint64_t count)>;

// Members until the content has so many bytes.
Script ContentOf(std::size_t bytes) {
  return [bytes](std::string_view) {
    const std::size_t one = ScriptedMembers(2).size() - ScriptedMembers(1).size();
    return ScriptedMembers(std::max(2, static_cast<int>(bytes / one)));
  };
}

std::uint64_t CountFor(const std::function<void()>& operation) {
  const double start = Now();
  for (int i = 0; i < 10; ++i) {
    operation();
  }
  return std::max<std::uint64_t>(10, static_cast<std::uint64_t>(BlockSeconds / ((Now() - start) / 10)));
}

// The sensor that is asked, in a child process.
struct Target {
  pid_t pid;
  std::uint16_t port;
  // How many have reached it; empty where only what comes back can tell.
  std::function<std::uint64_t()> requests;
};

Target TargetOf(const ScriptedSensor& sensor) {
  return {sensor.Pid(), sensor.Port(), [&sensor] { return sensor.Record().requests; }};
}

// What one operation has on the wire; the least of some, as pings may come between.
Traffic WireBytes(const Target& sensor, const std::function<void()>& operation) {
  Traffic least{~std::uint64_t{0}, ~std::uint64_t{0}};
  for (int i = 0; i < 20; ++i) {
    const Traffic before = TrafficWith(sensor.port);
    operation();
    const Traffic after = TrafficWith(sensor.port);
    least.sent = std::min(least.sent, after.sent - before.sent);
    least.received = std::min(least.received, after.received - before.received);
  }
  Check(least.sent > 0 && least.received > 0, "nothing went over the wire");
  return least;
}

void Measure(Bench& bench, const Row& row, const Placement& placement, const Target& sensor, PingPong& peer,
             const Operation& once, const Verification& verify) {
  Place(placement, {sensor.pid, peer.Pid()});
  std::vector<std::unique_ptr<Instance>> instances;
  for (const Subject& subject : bench.subjects) {
    instances.push_back(std::make_unique<Instance>(*subject.plugin, sensor.port));
    once(*instances.back());  // registers the item
  }
  const std::uint64_t count = CountFor([&] { once(*instances.front()); });
  const Traffic wire = WireBytes(sensor, [&] { once(*instances.front()); });
  const std::uint64_t before = sensor.requests ? sensor.requests() : 0;
  std::vector<Block> blocks;
  for (const auto& instance : instances) {
    blocks.emplace_back([&once, &verify, count, &own = *instance] {
      once(own);  // the sensor may have waited for another client
      const std::uint64_t values = own.Count().values;
      const double start = Now();
      for (std::uint64_t i = 0; i < count; ++i) {
        once(own);
      }
      const double cost = (Now() - start) / static_cast<double>(count);
      verify(own, own.Count().values - values, count);
      return cost * 1e6;
    });
  }
  blocks.emplace_back([&] { return peer.Exchange(wire.sent, wire.received, count) * 1e6; });
  const int rounds = bench.options.Repetitions(UsualRounds);
  const auto costs = Interleave(rounds, blocks);
  if (sensor.requests) {
    const std::uint64_t sent = sensor.requests() - before;
    Check(sent == (count + 1) * static_cast<std::uint64_t>(rounds + 1) * instances.size(),
          fmt::format("{} requests reached the sensor", sent));
  }
  for (const auto& instance : instances) {
    Check(instance->Count().complaints == 0, "the plug-in complained");
  }
  AddCompared(bench, row, costs);
}

Row ReadRow(const Placement& placement, const char* variant, bool hasBudget) {
  Row row{"read", variant, placement.name, "us", {}, {}, {}, {}, false, false, {}};
  if (hasBudget) {
    row.budget = placement.hostCore == placement.sensorCore ? 1.8 : 1.12;
    row.ofRatio = true;
  }
  return row;
}

void MeasureReadOf(Bench& bench, const Row& row, const Placement& placement, const Target& sensor) {
  PingPong peer;
  Measure(
      bench, row, placement, sensor, peer, [](Instance& instance) { instance.Read(TheItem()); },
      [](Instance& instance, std::uint64_t values, std::uint64_t count) {
        Check(values == count, "not every read delivered a value");
        Check(instance.Count().last == ScriptedValue(2), "a read delivered another value");
      });
}

void MeasureRead(Bench& bench, const Placement& placement, const char* size, std::size_t bytes) {
  const Row row = ReadRow(placement, size, bytes == 200);
  Guard(bench, row, [&] {
    const ScriptedSensor sensor(ContentOf(bytes));
    MeasureReadOf(bench, row, placement, TargetOf(sensor));
  });
}

// The emulator composes what the scripted sensor only sends.
void MeasureReadOfEmulator(Bench& bench, const Placement& placement) {
  const Row row = ReadRow(placement, "200 B, zosensor", true);
  Guard(bench, row, [&] {
    const std::string uri = TheItem().substr(0, TheItem().find('#'));
    const Emulator sensor(
        fmt::format(R"({{"resources": {{"{}": {{"content": {{{}}}}}}}}})", uri, ContentOf(200)(uri)));
    MeasureReadOf(bench, row, placement, {sensor.Pid(), sensor.Port(), nullptr});
  });
}

void MeasureWrite(Bench& bench, const Placement& placement, const char* size, const std::string& text) {
  const Row row{"write", size, placement.name, "us", {}, {}, {}, {}, false, false, {}};
  Guard(bench, row, [&] {
    const ScriptedSensor sensor(ContentOf(200));
    PingPong peer;
    ioDataValue value{};
    value.type = text.empty() ? enumtype_int64 : enumtype_string;
    if (text.empty()) {
      value.value.int64 = 1234567;
    } else {
      value.value.text = text.c_str();
    }
    const std::string expected = text.empty() ? "{\"v000002\":1234567}" : "{\"v000002\":\"" + text + "\"}";
    Measure(
        bench, row, placement, TargetOf(sensor), peer,
        [&value](Instance& instance) { instance.Write(TheItem(), value); },
        [&](Instance&, std::uint64_t values, std::uint64_t) {
          Check(values == 0, "a write called back");
          Check(sensor.Record().lastRequest.find(expected) != std::string::npos,
                "the value did not reach the sensor");
        });
  });
}

}  // namespace

void RunRead(Bench& bench) {
  for (const Placement& placement : Placements()) {
    MeasureRead(bench, placement, "200 B", 200);
    MeasureReadOfEmulator(bench, placement);
    MeasureRead(bench, placement, "2 KB", 2000);
    MeasureRead(bench, placement, "64 KB", 64000);
  }
}

void RunWrite(Bench& bench) {
  for (const Placement& placement : Placements()) {
    MeasureWrite(bench, placement, "a number", "");
    MeasureWrite(bench, placement, "a text of 200 B", std::string(200, 'x'));
    MeasureWrite(bench, placement, "a text of 2 KB", std::string(2000, 'x'));
  }
}

}  // namespace ZoBench
