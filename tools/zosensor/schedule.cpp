#include "tools/zosensor/schedule.h"

namespace ZoSensor {

void Schedule::Add(const std::shared_ptr<Resource>& resource, Time due) {
  if (!resource->scheduled) {
    resource->scheduled = true;
    entries.push({due, resource});
  }
}

std::shared_ptr<Resource> Schedule::Take(Time now) {
  while (NextDue() <= now) {
    std::shared_ptr<Resource> resource = entries.top().resource.lock();
    entries.pop();
    if (resource != nullptr) {
      resource->scheduled = false;
      if (!resource->removed) {
        return resource;
      }
    }
  }
  return nullptr;
}

}  // namespace ZoSensor
