#include "tests/vyrnclient/instancetest.h"

namespace ZoTest {

using ZoIO::Logger;
using ZoIO::ZoVyrnClient;

int Subscribe(ZoVyrnClient& client, const std::vector<const char*>& names, std::vector<int>* results,
              std::chrono::milliseconds interval) {
  std::vector<int> slots(names.size(), untouched);
  const int result = client.Subscribe(interval, names.data(), slots.data(), static_cast<int>(names.size()));
  if (results != nullptr) {
    *results = slots;
  }
  return result;
}

int Unsubscribe(ZoVyrnClient& client, const std::vector<const char*>& names) {
  return client.Unsubscribe(names.data(), static_cast<int>(names.size()));
}

std::vector<std::string> DescribeValues(const Recorder& recorder, const std::string& item) {
  std::vector<std::string> texts;
  for (const Entry& entry : recorder.Values(item)) {
    texts.push_back(Describe(entry));
  }
  return texts;
}

std::vector<std::string> LinesOf(const Recorder& recorder, const std::string& part) {
  std::vector<std::string> lines;
  for (const Entry& entry : recorder.Logs()) {
    if (entry.function.find(part) != std::string::npos) {
      lines.push_back(LogLine(entry.level, entry.function, entry.message));
    }
  }
  return lines;
}

FakeInstanceTest::FakeInstanceTest()
    : sensor(std::make_shared<FakeSensorManager>(
          std::make_shared<Logger>(recorder.Param().context, recorder.Param().log))),
      client(std::make_unique<ZoVyrnClient>(sensor, sensor, recorder.Param())) {
  recorder.Clear();
}

FakeInstanceTest::~FakeInstanceTest() {
  client.reset();
}

}  // namespace ZoTest
