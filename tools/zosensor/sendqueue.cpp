#include "tools/zosensor/sendqueue.h"

#include <utility>

namespace ZoSensor {

bool SendQueue::Add(Outgoing item, Time now) {
  const bool stream = item.kind == Outgoing::Kind::Stream;
  const bool slow = Congested() || (!items.empty() && now - items.front().since > Patience);
  if (stream && slow && Replace(item)) {
    return bytes <= hardLimit;
  }
  bytes += Weight(item);
  items.push_back({std::move(item), now});
  if (stream) {
    newestStreamPush[items.back().item.uri] = {std::prev(items.end()), others};
  } else {
    ++others;
  }
  return bytes <= hardLimit;
}

// True when the item has taken the place of an older one; otherwise that one may be gone, and it goes to the end.
bool SendQueue::Replace(Outgoing& item) {
  const auto stale = newestStreamPush.find(item.uri);
  if (stale == newestStreamPush.end()) {
    return false;
  }
  ++dropped;
  Outgoing& old = stale->second.place->item;
  bytes -= Weight(old);
  if (stale->second.others == others) {
    bytes += Weight(item);
    old = std::move(item);
    return true;
  }
  items.erase(stale->second.place);
  newestStreamPush.erase(stale);
  return false;
}

Outgoing SendQueue::Take() {
  const auto first = items.begin();
  if (first->item.kind == Outgoing::Kind::Stream) {
    if (const auto newest = newestStreamPush.find(first->item.uri);
        newest != newestStreamPush.end() && newest->second.place == first) {
      newestStreamPush.erase(newest);
    }
  }
  Outgoing item = std::move(first->item);
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
