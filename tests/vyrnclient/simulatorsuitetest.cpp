// The simulator keeps what every sensor manager promises.
#include "tests/vyrnclient/sensormanagersuite.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

namespace ZoTest {
namespace {

struct SimulatorMaker {
  std::shared_ptr<ZoIO::ISensorManager> Make(std::shared_ptr<ZoIO::Logger> logger) {
    return std::make_shared<ZoIO::SensorManagerSimulator>(std::move(logger));
  }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Simulator, SensorManagerSuite, SimulatorMaker);

}  // namespace
}  // namespace ZoTest
