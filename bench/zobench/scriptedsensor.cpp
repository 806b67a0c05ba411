#include "bench/zobench/scriptedsensor.h"

#include "bench/zobench/sensorserver.h"
#include "bench/zobench/sockets.h"

namespace ZoBench {

ScriptedSensor::ScriptedSensor(Script script)
    : child([script = std::move(script)](int channel) { SensorServer(script, channel).Run(); }) {
  ReadExactly(child.Channel(), &port, sizeof port);
}

void ScriptedSensor::Push(unsigned client, std::uint64_t firstRound, std::uint64_t rounds) const {
  BeginPush(client, firstRound, rounds);
  AwaitPush();
}

void ScriptedSensor::BeginPush(unsigned client, std::uint64_t firstRound, std::uint64_t rounds) const {
  const SensorCommand command{SensorCommand::Push, client, firstRound, rounds};
  WriteAll(child.Channel(), &command, sizeof command);
}

void ScriptedSensor::AwaitPush() const {
  std::uint64_t done = 0;
  ReadExactly(child.Channel(), &done, sizeof done);
}

SensorRecord ScriptedSensor::Record() const {
  const SensorCommand command{SensorCommand::Report, 0, 0, 0};
  WriteAll(child.Channel(), &command, sizeof command);
  std::uint64_t figures[4] = {};
  ReadExactly(child.Channel(), figures, sizeof figures);
  SensorRecord record{figures[0], figures[1], figures[2], std::string(figures[3], '\0')};
  ReadExactly(child.Channel(), record.lastRequest.data(), record.lastRequest.size());
  return record;
}

}  // namespace ZoBench
