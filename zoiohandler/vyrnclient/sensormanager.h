// The sensor manager over the sensor SDK: one real sensor, connected once when it is made.
//
// Turns each verb into one request, and puts what the sensor pushes into the value cache. A link that is lost
// later is restored by the SDK; a sensor that cannot be reached at first stays offline for the life of this
// object.
//
// Threads: the verbs from any; the push handlers on the SDK's thread; the registry's worker reads through
// shared state that it co-owns. Owner: the instance. Locks: none of its own but the handler gate (rank
// HandlerGate), which closes first of all when this object ends.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "qapi/address.h"
#include "zoiohandler/vyrnclient/isensormanager.h"
#include "zoiohandler/vyrnclient/ishutdown.h"
#include "zovyrnsdk/zosystem.h"

namespace ZoIO {

class ZoVyrnClient;

class SensorManager : public ISensorManager, public IShutdown {
 public:
  struct SensorState {
    enum Status : std::int32_t {
      Unknown = 0,      // never connected
      Online = 1,       // connected
      Offline = 2,      // connection lost; reserved
      Reconnected = 3,  // online again after Offline
    };
  };

  // Connects, waiting at most 3 s. Never raises for a sensor that cannot be reached or an address that cannot
  // be parsed: the reason is logged at error. client outlives this object.
  SensorManager(ZoVyrnClient& client, const std::string& ipAddress, unsigned short controlPort,
                std::shared_ptr<Logger> logger);
  SensorManager(const SensorManager&) = delete;
  SensorManager& operator=(const SensorManager&) = delete;
  ~SensorManager() override;

  void GiveUp() noexcept override;
  void Shutdown() noexcept override;

  std::shared_ptr<ItemManager> PLC() override;
  std::shared_ptr<CacheManager> Cache() override;
  void Start() override;
  void Stop() override;
  bool IsRunning() override;
  bool IsConnected() override;
  ZoJson Read(const std::string& uri, bool logFailure) override;
  void Keep(const std::string& uri, const ZoJson& payload) override;
  ZoJson Create(const std::string& uri, ZoJson payload, bool logFailure) override;
  ZoJson Update(const std::string& uri, ZoJson payload, bool logFailure) override;
  ZoJson Call(const std::string& uri, ZoJson payload, bool logFailure) override;
  ZoJson Delete(const std::string& uri, bool logFailure) override;
  ZoJson Subscribe(const std::string& uri, bool logFailure) override;
  ZoJson Unsubscribe(const std::string& uri, bool logFailure) override;
  ZoJson Stream(const std::string& uri, bool logFailure) override;
  ZoJson StopStream(const std::string& uri, bool logFailure) override;
  std::shared_ptr<Logger> GetLogger() override;

 private:
  struct Shared;
  friend struct SensorManagerAccess;  // of a test, which hands over what no link does
  using Operation = ZoTransaction (ZoRestClient::*)(const std::string&, const ZoJson&, const ZoJson&);

  void InitializeSystem();
  void UpdateSensorState();
  void SetStatus(SensorState::Status newStatus);
  bool IsOnline() const;
  void RecreateSubscriptions();
  void Disconnect();
  // What the sensor pushes goes to the cache; nothing for no response. What fails is logged at error.
  static void StreamHandler(Shared& shared, const std::shared_ptr<ZoStreamResponse>& response);
  static void NotificationHandler(Shared& shared, const std::shared_ptr<ZoNotificationResponse>& response);
  // Runs command when online, else logs that the sensor is offline. Failures are logged at error.
  void Command(void (ZoSystem::*command)(), const char* function);
  ZoJson Request(Operation operation, const char* verb, const std::string& uri, const ZoJson& payload,
                 bool logFailure);

  SensorState::Status previousStatus = SensorState::Unknown;
  const unsigned short controlPort;
  qIpAddress address;
  std::shared_ptr<Logger> logger;
  std::shared_ptr<ItemManager> itemManager;
  std::shared_ptr<Shared> shared;  // the system, its status, and what handlers and the registry's worker need
  ZoVyrnClient& client;
  std::shared_ptr<CacheManager> cacheManager;
  bool ended = false;
};

}  // namespace ZoIO
