// The sensor manager over the SDK keeps what every sensor manager promises.
#include "tests/vyrnclient/fakesensormanager.h"
#include "tests/vyrnclient/sensormanagersuite.h"
#include "tests/wire/emulator.h"
#include "zoiohandler/vyrnclient/sensormanager.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoTest {
namespace {

struct SensorMaker {
  std::shared_ptr<ZoIO::ISensorManager> Make(std::shared_ptr<ZoIO::Logger> logger) {
    return std::make_shared<ZoIO::SensorManager>(client, "127.0.0.1", sensor.Port(), std::move(logger));
  }

  Emulator sensor{R"({"running": false, "resources": {"/known": {"content": {"v": 1}, "writable": true}}})"};
  // The manager asks an instance to bring its items back; this one has a manager and a host of its own.
  Recorder host;
  std::shared_ptr<FakeSensorManager> other = std::make_shared<FakeSensorManager>(
      std::make_shared<ZoIO::Logger>(host.Param().context, host.Param().log));
  ZoIO::ZoVyrnClient client{other, other, host.Param()};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Wire, SensorManagerSuite, SensorMaker);

}  // namespace
}  // namespace ZoTest
