#include "tools/zosensor/sendqueue.h"

#include <utility>

namespace ZoSensor {

bool SendQueue::Add(Outgoing item) {
  const bool stream = item.kind == Outgoing::Kind::Stream;
  if (stream && Congested()) {
    if (const auto stale = newestStreamPush.find(item.uri); stale != newestStreamPush.end()) {
      bytes -= Weight(*stale->second);
      items.erase(stale->second);
      newestStreamPush.erase(stale);
      ++dropped;
    }
  }
  bytes += Weight(item);
  items.push_back(std::move(item));
  if (stream) {
    newestStreamPush[items.back().uri] = std::prev(items.end());
  }
  return bytes <= hardLimit;
}

Outgoing SendQueue::Take() {
  const auto first = items.begin();
  if (first->kind == Outgoing::Kind::Stream) {
    if (const auto newest = newestStreamPush.find(first->uri);
        newest != newestStreamPush.end() && newest->second == first) {
      newestStreamPush.erase(newest);
    }
  }
  Outgoing item = std::move(*first);
  items.erase(first);
  writing = Weight(item);
  return item;
}

void SendQueue::Written() {
  bytes -= std::exchange(writing, 0);
}

void SendQueue::Clear() {
  items.clear();
  newestStreamPush.clear();
  bytes = writing;
}

}  // namespace ZoSensor
