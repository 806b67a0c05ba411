// Subscribing and unsubscribing: which resources the sensor streams, and which groups the items belong to.
#include <exception>
#include <string>

#include "zoiohandler/vyrnclient/serving.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoIO {

namespace {

constexpr const char* subscribeName = "ZoIO::ZoVyrnClient::Subscribe";
constexpr const char* unsubscribeName = "ZoIO::ZoVyrnClient::Unsubscribe";

constexpr int failedName = 6;  // the result of a name that raised

bool HasPayload(const ZoJson& response) {
  return response.HasKey("/payload") && !response.At("/payload").Empty();
}

bool IsGranted(const ZoJson& response) {
  try {
    return response.At("/status").Get<int>() == 1;
  } catch (const std::exception&) {
    return false;  // no readable status is no success
  }
}

}  // namespace

int ZoVyrnClient::Subscribe(std::chrono::milliseconds interval, const char* const* names, int* results,
                            int count) {
  Zo::Locker held(serving->lock);
  if (!IsSensorManagerReady() || names == nullptr || results == nullptr) {
    return 1;
  }
  Log("Subscribing items.", LogLevel_Info, subscribeName);
  SubscriptionGroup& group = serving->GetSubscriptionGroup(interval);
  int result = 0;
  for (int i = 0; i < count; ++i) {
    if (names[i] == nullptr) {
      // The batch ends here, whatever the message says: a null name is its end.
      Log("Invalid item name. Skipping.", LogLevel_Warning, subscribeName);
      return 1;
    }
    try {
      results[i] = SubscribeName(group, names[i]);
    } catch (const std::exception& e) {
      Log(e.what(), LogLevel_Error, subscribeName);
      results[i] = failedName;
      result = 1;
    }
  }
  return result;
}

int ZoVyrnClient::SubscribeName(SubscriptionGroup& group, const char* name) {
  ItemManager::ItemInfo& item = sensor->PLC()->Item(name);
  int& users = streams[item.uri];
  if (users <= 0) {
    Log("Starting stream " + item.uri, LogLevel_Info, subscribeName);
    users = 0;
    Subscribe(item);
  }
  group.AddItem(item.name);
  ++users;
  // The kind of the variant, not the item's type.
  return item.value.kind();
}

void ZoVyrnClient::Subscribe(ItemManager::ItemInfo& item) {
  const ZoJson response = sensor->Stream(item.uri, true);
  Log("Attempting to stream resource " + item.uri, LogLevel_Info, subscribeName);
  if (HasPayload(response)) {
    Log("Resource streamed successfully.", LogLevel_Info, subscribeName);
  } else {
    Log("Stream attempt failed.Attempting to subscribe.", LogLevel_Info, subscribeName);
    SubscribePattern(item);
  }
  item.subscribed = true;
}

void ZoVyrnClient::SubscribePattern(const ItemManager::ItemInfo& item) {
  int& users = subscriptions[item.subscriptionUri];
  if (users != 0) {
    Log("Resource already subscribed.Skipping.", LogLevel_Info, subscribeName);
    ++users;
  } else if (IsGranted(sensor->Subscribe(item.subscriptionUri, true))) {
    Log("Resource subscribed successfully.", LogLevel_Info, subscribeName);
    ++users;
  } else {
    Log("Could not subscribe resource.", LogLevel_Warning, subscribeName);
  }
}

int ZoVyrnClient::Unsubscribe(const char* const* names, int count) {
  Zo::Locker held(serving->lock);
  if (!IsSensorManagerReady()) {
    return 1;
  }
  Log("Unsubscribing items.", LogLevel_Info, unsubscribeName);
  for (int i = 0; i < count; ++i) {
    ItemManager::ItemInfo& item = sensor->PLC()->Item(names[i]);
    serving->RemoveFromGroups(item.name);
    int& users = streams[item.uri];
    --users;
    if (users < 1) {
      Log("Stopping stream " + item.uri, LogLevel_Info, unsubscribeName);
      Unsubscribe(item);
      users = 0;
    }
  }
  return 0;
}

void ZoVyrnClient::Unsubscribe(ItemManager::ItemInfo& item) {
  const ZoJson response = sensor->StopStream(item.uri, true);
  if (response.Empty()) {
    int& users = subscriptions[item.subscriptionUri];
    if (users == 1) {
      sensor->Unsubscribe(item.subscriptionUri, true);
    }
    // Unlike the count of a stream this one is not held at 0.
    --users;
  }
  item.subscribed = false;
}

void ZoVyrnClient::ClearSubscriptionsList() {
  subscriptions.clear();
}

}  // namespace ZoIO
