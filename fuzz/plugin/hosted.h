// An instance behind the real exports, over a fake sensor: a host's handle, with no socket anywhere.
//
// Threads: one; the instance's own work beside it, as always. Owner of the host and, until Destroy, of the instance.
#pragma once

#include <memory>
#include <string>

#include "fuzz/plugin/host.h"
#include "tests/vyrnclient/fakesensormanager.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoFuzz {

class Hosted {
 public:
  enum class Kind { Fake, Simulator };

  explicit Hosted(Kind kind = Kind::Fake, bool hasValues = true, bool hasResponses = true);
  Hosted(const Hosted&) = delete;
  Hosted& operator=(const Hosted&) = delete;
  // Through the export, which must succeed; no callback may come after it.
  ~Hosted();

  void* Handle() const { return client; }
  ZoIO::ISensorManager& Sensor() const { return *client->Sensor(); }
  // Null with the simulator.
  ZoTest::FakeSensorManager* Fake() const { return fake.get(); }
  Host& Listener() { return host; }

  // The registry's record of a name; null when there is none.
  const ZoIO::ItemInfo* Known(const std::string& name) const;

  // One pass of the monitor, on this thread, at a time when every group is due.
  void Pass();

 private:
  Host host;
  std::shared_ptr<ZoTest::FakeSensorManager> fake;
  ZoIO::ZoVyrnClient* client = nullptr;
};

}  // namespace ZoFuzz
