#include "zoiohandler/vyrnclient/sensormanager.h"

#include <chrono>
#include <new>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/knownresources.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/retryreads.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"
#include "zovyrnsdk/zorequesterror.h"

namespace ZoIO {

namespace {

constexpr int cacheAge = 5000;                        // ms
constexpr std::uint64_t responseTimeout = 3'000'000;  // µs
constexpr int storeAttempts = 10;  // a millisecond apart; only a clock that stands still needs more

constexpr const char* destructorName = "ZoIO::SensorManager::~SensorManager";
constexpr const char* responseName = "ZoIO::SensorManager::ResponseToZoJson";
constexpr const char* streamName = "ZoIO::SensorManager::StreamHandler";
constexpr const char* notificationName = "ZoIO::SensorManager::NotificationHandler";

// Of the answer that this thread got last.
thread_local ZoArrival lastAnswer;

}  // namespace

// What must stay usable while a push handler or the registry's worker is on its way, even when the manager is
// gone.
struct SensorManager::Shared {
  Shared(std::shared_ptr<Logger> logger, std::shared_ptr<CacheManager> cache)
      : logger(std::move(logger)), cache(std::move(cache)) {}

  bool IsOnline() const {
    const SensorState::Status current = status;
    return current == SensorState::Online || current == SensorState::Reconnected;
  }

  // The sensor's response document: its answer, granted or refused; empty when there is none.
  ZoJson ResponseToZoJson(ZoTransaction& transaction) {
    try {
      return Answer(transaction);
    } catch (const std::exception& e) {
      return LogFailure(transaction, e);
    }
  }

  ZoJson ResponseInSilence(ZoTransaction& transaction) {
    try {
      return Answer(transaction);
    } catch (const std::exception&) {
      return {};
    }
  }

  void BeginRetryPass() { retries.BeginPass(IsOnline() && system.IsConnected()); }

  // The worker's read. The worker asks again at once, with the registry's lock held, where a response has no payload;
  // an HMI must not wait for that. So no answer yet, or one without a payload, counts as a null payload, which leaves
  // the item to the next pass and gives the others their turn; and a link that is down ends the pass. Once the manager
  // has ended the read raises, without a word.
  ZoJson RetryRead(const std::string& uri) {
    retries.RaiseIfGivenUp();
    if (!IsOnline()) {
      return {};
    }
    if (!system.IsConnected()) {
      throw std::runtime_error("The link to the sensor is down.");
    }
    ZoJson answer;
    if (std::optional<RetryReads::Outcome> settled = retries.Read(uri)) {
      // One request fails once, however many items wait for it.
      answer = settled->known ? ResponseInSilence(settled->request) : ResponseToZoJson(settled->request);
    }
    if (!answer.HasKey("/payload")) {
      answer = ZoJson();
      answer.Set("payload", ZoJson());
    }
    return answer;
  }

  void Push(const ZoResponse* response, const char* function) {
    if (response == nullptr) {
      return;
    }
    try {
      // The link keeps its pushes apart, but an answer may have been stored in this very millisecond. The next push may
      // be far away, so that this one must not be lost for a want of memory that passes, its name's included.
      bool admitted = true;
      StoreSoon([&] { return Store(response->Path(), response->Payload(), response->Arrival(), admitted); });
      if (!admitted && !toldOfStrangers.exchange(true)) {
        WriteLog(*logger, "Values of resources without an item are left out: they are too many.",
                 LogLevel_Warning, function);
      }
    } catch (const std::exception& e) {
      WriteLog(*logger, e.what(), LogLevel_Error, function);
    }
  }

  // False when the cache has a value of this millisecond, which it keeps. What is not admitted takes the older values
  // along: should the resource get an item after all, it is read, and no old value shown.
  bool Store(const std::string& path, const ZoJson& payload, const ZoArrival& arrival, bool& admitted) {
    Zo::MutexLock held(gate);
    if (closed) {
      return true;
    }
    admitted = resources.Admits(path, arrival.bytes);
    if (!admitted) {
      cache->Forget(path);
      return true;
    }
    return cache->AddInOrder(path, payload, arrival.order, arrival.bytes) !=
           CacheManager::Added::MillisecondTaken;
  }

  // From now on all its pushes are stored.
  void NoteItem(const std::string& uri) {
    Zo::MutexLock held(gate);
    resources.Note(uri);
  }

  // The asking thread may have been stopped between taking its answer and coming here, and a newer push may have
  // overtaken it.
  void Keep(const std::string& uri, const ZoJson& payload) {
    const ZoArrival arrival = lastAnswer;
    const auto store = [&] {
      return cache->AddInOrder(uri, payload, arrival.order, arrival.bytes) !=
             CacheManager::Added::MillisecondTaken;
    };
    if (arrival.closeToPush) {
      // Were it left out for an older push of this millisecond, no newer one might ever come.
      StoreSoon(store);
    } else {
      store();
    }
  }

  void CloseGate() noexcept {
    {
      Zo::MutexLock held(gate);
      closed = true;
    }
    retries.GiveUp();
  }

  const std::shared_ptr<Logger> logger;
  const std::shared_ptr<CacheManager> cache;
  std::atomic<SensorState::Status> status = SensorState::Unknown;
  ZoSystem system;  // set once, before the registry has an item
  RetryReads retries{[this](const std::string& uri) { return system.Client().Read(uri, ZoJson(), ZoJson()); },
                     [this](const std::string& uri) { return cache->SizeAt(uri) == 0; }};

 private:
  // In this millisecond, or in one of the next; and when there is memory for it.
  template <typename Store>
  static void StoreSoon(const Store& store) {
    for (int attempt = 1;; ++attempt) {
      try {
        if (store() || attempt == storeAttempts) {
          return;
        }
      } catch (const std::bad_alloc&) {
        if (attempt == storeAttempts) {
          throw;
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  static ZoJson Answer(ZoTransaction& transaction) {
    const auto take = [](const ZoRequestResponse& response) {
      lastAnswer = response.Arrival();
      return response.Raw();
    };
    try {
      return take(transaction.GetResponse(responseTimeout));
    } catch (const ZoRequestError& e) {
      return take(e.GetResponse());
    }
  }

  ZoJson LogFailure(const ZoTransaction& transaction, const std::exception& e) const {
    const ZoRequest& request = transaction.GetRequest();
    WriteLog(
        *logger,
        request.Uri() + "[" + std::to_string(static_cast<std::int32_t>(request.Method())) + "]: " + e.what(),
        LogLevel_Error, responseName);
    return {};
  }

  Zo::Mutex gate{"SensorManager::gate", Zo::LockRank_HandlerGate};
  bool closed Q_GUARDED_BY(gate) = false;
  KnownResources resources Q_GUARDED_BY(gate);
  std::atomic<bool> toldOfStrangers = false;
};

SensorManager::SensorManager(ZoVyrnClient& client, const std::string& ipAddress, unsigned short controlPort,
                             std::shared_ptr<Logger> logger)
    : controlPort(controlPort), logger(std::move(logger)), client(client) {
  qIpAddress_Parse(ipAddress.c_str(), &address);  // without an address, connecting says so
  cacheManager = std::make_shared<CacheManager>(cacheAge);
  shared = std::make_shared<Shared>(this->logger, cacheManager);
  itemManager = std::make_shared<ItemManager>(
      *this, false,
      ItemManager::Source{
          [share = shared] { share->BeginRetryPass(); },
          [share = shared](const std::string& uri) { return share->RetryRead(uri); },
          [share = shared](const std::string& uri, const ZoJson& payload) { share->Keep(uri, payload); },
          [share = shared](const std::string& uri) { share->NoteItem(uri); }});
  InitializeSystem();
}

SensorManager::~SensorManager() {
  Shutdown();
}

void SensorManager::GiveUp() noexcept {
  shared->CloseGate();
}

void SensorManager::Shutdown() noexcept {
  if (std::exchange(ended, true)) {
    return;
  }
  GiveUp();
  Disconnect();
  cacheManager->Shutdown();
  shared->system.Disconnect();  // a link that is down just now would otherwise go on restoring itself
  itemManager->Shutdown();
}

void SensorManager::Disconnect() {
  try {
    if (shared->system.IsConnected()) {
      WriteLog(*logger, "Disconnecting system...", LogLevel_Info, destructorName);
      shared->system.Disconnect();
      WriteLog(*logger, "System disconnected.", LogLevel_Info, destructorName);
    }
  } catch (const std::exception& e) {
    WriteLog(*logger, e.what(), LogLevel_Error, destructorName);
  }
}

void SensorManager::InitializeSystem() {
  try {
    shared->system = ZoSystem(address, controlPort);
    // The system lives in the shared state, so its handlers must not keep that state alive.
    const std::weak_ptr<Shared> weak = shared;
    shared->system.Client().SetStreamHandler([weak](const std::shared_ptr<ZoStreamResponse>& response) {
      if (const std::shared_ptr<Shared> share = weak.lock()) {
        StreamHandler(*share, response);
      }
    });
    shared->system.Client().SetSubHandler([weak](const std::shared_ptr<ZoNotificationResponse>& response) {
      if (const std::shared_ptr<Shared> share = weak.lock()) {
        NotificationHandler(*share, response);
      }
    });
    UpdateSensorState();
  } catch (const std::exception& e) {
    WriteLog(*logger, e.what(), LogLevel_Error, "ZoIO::SensorManager::InitializeSystem");
  }
}

void SensorManager::StreamHandler(Shared& shared, const std::shared_ptr<ZoStreamResponse>& response) {
  shared.Push(response.get(), streamName);
}

void SensorManager::NotificationHandler(Shared& shared,
                                        const std::shared_ptr<ZoNotificationResponse>& response) {
  shared.Push(response.get(), notificationName);
}

void SensorManager::UpdateSensorState() {
  constexpr const char* function = "ZoIO::SensorManager::UpdateSensorState";
  try {
    if (!IsConnected()) {
      WriteLog(*logger, "System is not connected. Connecting...", LogLevel_Info, function);
      shared->system.Connect();
      WriteLog(*logger, "System connected successfully.", LogLevel_Info, function);
    }
    WriteLog(*logger, "Updating sensor status.", LogLevel_Info, function);
    SetStatus(SensorState::Online);
    WriteLog(*logger, "Sensor status updated successfully", LogLevel_Info, function);
    WriteLog(*logger, "Recreating subscriptions.", LogLevel_Info, function);
    RecreateSubscriptions();
    WriteLog(*logger, "Subscriptions recreated.", LogLevel_Info, function);
  } catch (const std::exception& e) {
    WriteLog(*logger, e.what(), LogLevel_Error, function);
  }
  if (shared->status == SensorState::Online && previousStatus == SensorState::Offline) {
    previousStatus = SensorState::Online;
    shared->status = SensorState::Reconnected;
  }
}

void SensorManager::SetStatus(SensorState::Status newStatus) {
  previousStatus = shared->status;
  shared->status = newStatus;
}

bool SensorManager::IsOnline() const {
  return shared->IsOnline();
}

void SensorManager::RecreateSubscriptions() {
  client.ClearSubscriptionsList();
  for (auto& [name, item] : itemManager->Items()) {
    if (!client.IsRunning()) {
      WriteLog(*logger, "Client is not running.", LogLevel_Notice,
               "ZoIO::SensorManager::RecreateSubscriptions");
      return;
    }
    if (item.subscribed) {
      client.Subscribe(item);
    }
    client.UpdateResource(item.uri);
    client.UpdateItemFromCache(item);
    client.UpdateItem(item.name, item.value, item.type, 0);
  }
}

std::shared_ptr<ItemManager> SensorManager::PLC() {
  return itemManager;
}

std::shared_ptr<CacheManager> SensorManager::Cache() {
  return cacheManager;
}

std::shared_ptr<Logger> SensorManager::GetLogger() {
  return logger;
}

bool SensorManager::IsConnected() {
  return shared->system.IsConnected();
}

bool SensorManager::IsRunning() {
  if (!IsOnline()) {
    return false;
  }
  try {
    return shared->system.RunningState() == ZoSystem::Running;
  } catch (const std::exception& e) {
    WriteLog(*logger, e.what(), LogLevel_Error, "ZoIO::SensorManager::IsRunning");
    return false;
  }
}

void SensorManager::Start() {
  Command(&ZoSystem::Start, "ZoIO::SensorManager::Start");
}

void SensorManager::Stop() {
  Command(&ZoSystem::Stop, "ZoIO::SensorManager::Stop");
}

void SensorManager::Command(void (ZoSystem::*command)(), const char* function) {
  if (!IsOnline()) {
    WriteLog(*logger, "Sensor is offline.", LogLevel_Warning, function);
    return;
  }
  try {
    (shared->system.*command)();
  } catch (const std::exception& e) {
    WriteLog(*logger, e.what(), LogLevel_Error, function);
  }
}

ZoJson SensorManager::Request(Operation operation, const char* verb, const std::string& uri,
                              const ZoJson& payload, bool logFailure) {
  if (!IsOnline()) {
    if (logFailure) {
      WriteLog(*logger, std::string("`") + verb + "` failed.Sensor is offline.", LogLevel_Warning,
               (std::string("ZoIO::SensorManager::") + verb).c_str());
    }
    return {};
  }
  ZoTransaction transaction = (shared->system.Client().*operation)(uri, payload, ZoJson());
  return shared->ResponseToZoJson(transaction);
}

ZoJson SensorManager::Read(const std::string& uri, bool logFailure) {
  return Request(&ZoRestClient::Read, "Read", uri, ZoJson(), logFailure);
}

void SensorManager::Keep(const std::string& uri, const ZoJson& payload) {
  shared->Keep(uri, payload);
}

ZoJson SensorManager::Create(const std::string& uri, ZoJson payload, bool logFailure) {
  return Request(&ZoRestClient::Create, "Create", uri, payload, logFailure);
}

ZoJson SensorManager::Update(const std::string& uri, ZoJson payload, bool logFailure) {
  return Request(&ZoRestClient::Update, "Update", uri, payload, logFailure);
}

ZoJson SensorManager::Call(const std::string& uri, ZoJson payload, bool logFailure) {
  return Request(&ZoRestClient::Call, "Call", uri, payload, logFailure);
}

ZoJson SensorManager::Delete(const std::string& uri, bool logFailure) {
  return Request(&ZoRestClient::Delete, "Delete", uri, ZoJson(), logFailure);
}

ZoJson SensorManager::Subscribe(const std::string& uri, bool logFailure) {
  return Request(&ZoRestClient::Sub, "Subscribe", uri, ZoJson(), logFailure);
}

ZoJson SensorManager::Unsubscribe(const std::string& uri, bool logFailure) {
  return Request(&ZoRestClient::UnSub, "Unsubscribe", uri, ZoJson(), logFailure);
}

ZoJson SensorManager::Stream(const std::string& uri, bool logFailure) {
  return Request(&ZoRestClient::StartStream, "Stream", uri, ZoJson(), logFailure);
}

ZoJson SensorManager::StopStream(const std::string& uri, bool logFailure) {
  return Request(&ZoRestClient::StopStream, "StopStream", uri, ZoJson(), logFailure);
}

}  // namespace ZoIO
