// When which resource is due for its next sample or push. Only watched resources are in it.
//
// Threads: the I/O thread alone. Owner: the sensor.
#pragma once

#include <memory>
#include <queue>
#include <vector>

#include "tools/zosensor/clock.h"
#include "tools/zosensor/resource.h"

namespace ZoSensor {

class Schedule {
 public:
  void Add(const std::shared_ptr<Resource>& resource, Time due);
  Time NextDue() const { return entries.empty() ? Never : entries.top().due; }
  // The next resource that is due by now; null when there is none. It is no longer scheduled.
  std::shared_ptr<Resource> Take(Time now);

 private:
  struct Entry {
    Time due;
    std::weak_ptr<Resource> resource;
    friend bool operator<(const Entry& a, const Entry& b) { return a.due > b.due; }  // the earliest on top
  };
  std::priority_queue<Entry> entries;
};

}  // namespace ZoSensor
