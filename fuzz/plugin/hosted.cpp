#include "fuzz/plugin/hosted.h"

#include <algorithm>
#include <chrono>

#include "fuzz/json/require.h"
#include "zoiohandler/iohandler.h"
#include "zoiohandler/vyrnclient/serving.h"

namespace ZoFuzz {

namespace {

using ZoIO::ZoVyrnClient;
using TimePoint = std::chrono::system_clock::time_point;

// A fuzzer cannot wait 100 ms for the monitor's thread, so it makes the pass itself, on what the thread works on. That is
// private, and an explicit instantiation is what may name it all the same.
struct ServingMember {
  using Type = std::shared_ptr<ZoVyrnClient::Serving> ZoVyrnClient::*;
  friend Type Reach(ServingMember);
};
template <typename Tag, typename Tag::Type member>
struct Reaching {
  friend typename Tag::Type Reach(Tag) { return member; }
};
template struct Reaching<ServingMember, &ZoVyrnClient::serving>;

// Read under the instance lock, by a pass.
struct WhenAllAreDue {
  TimePoint operator()() const Q_NO_THREAD_SAFETY_ANALYSIS {
    TimePoint time = std::chrono::system_clock::now();
    for (const auto& [interval, group] : serving.subscriptionGroups) {
      time = std::max(time, group->NextTick());
    }
    return time;
  }

  const ZoVyrnClient::Serving& serving;
};

}  // namespace

Hosted::Hosted(Kind kind, bool hasValues, bool hasResponses) : host(hasValues, hasResponses) {
  if (kind == Kind::Simulator) {
    const ioHandlerParam param = host.Param();
    void* handle = nullptr;
    Require(CreateIoInstance("simulator", 0, &param, &handle) == 0 && handle != nullptr,
            "a simulator can be made");
    client = static_cast<ZoVyrnClient*>(handle);
  } else {
    const auto logger = std::make_shared<ZoIO::Logger>(host.Param().context, host.Param().log);
    fake = std::make_shared<ZoTest::FakeSensorManager>(logger);
    auto made = std::make_unique<ZoVyrnClient>(fake, fake, host.Param());
    client = made.get();
    ZoIO::IoHandler::Instance().Insert(std::move(made));
  }
}

Hosted::~Hosted() {
  Require(DestroyIoInstance(client) == 0, "an instance can be destroyed");
  host.Forbid();
}

const ZoIO::ItemInfo* Hosted::Known(const std::string& name) const {
  const auto records = Sensor().PLC()->Snapshot();
  const auto found =
      std::find_if(records.begin(), records.end(), [&](const auto* record) { return record->name == name; });
  return found == records.end() ? nullptr : *found;
}

void Hosted::Pass() {
  ZoVyrnClient::Serving& serving = *(client->*Reach(ServingMember()));
  serving.Pass(WhenAllAreDue{serving});
}

}  // namespace ZoFuzz
