// One IO-handler instance: what a host creates with CreateIoInstance and addresses by handle.
//
// Owns the connection to one sensor (or the simulator) with its registry and cache, the subscription groups,
// the method dispatcher, and a thread, "ZoVyrnClient::Monitor::Thread", that ticks the groups every 100 ms.
//
// Threads: host threads, one at a time, through the exports; the monitor thread works on what it co-owns
// (Serving), so it may outlive this object when a host's callback does not return in time. Owner: the table
// of instances; its address is the handle. Lock: rank Instance; serialises the monitor's passes and the
// public operations that say so. Held during the host's callbacks. Invariant: when the destructor has
// returned, no callback of this instance begins.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "xhmi/iohandler.h"
#include "xhmi/variant_value.h"
#include "zoapi/threads/locker.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"

namespace ZoIO {

class CallbackGate;
class IShutdown;
class Method;
class SubscriptionGroup;

class ZoVyrnClient {
 public:
  struct Serving;  // what the monitor thread works on; see serving.h

  // address: "simulator", or a sensor's address. Connects, at most 3 s. Raises Zo::Exception when a lock or
  // thread cannot be had; a sensor that cannot be reached is only logged.
  ZoVyrnClient(const std::string& address, unsigned short controlPort, ioHandlerParam param);
  // The same over a sensor manager that the caller made, for tests; end is that manager too.
  ZoVyrnClient(std::shared_ptr<ISensorManager> manager, std::shared_ptr<IShutdown> end, ioHandlerParam param);
  ZoVyrnClient(const ZoVyrnClient&) = delete;
  ZoVyrnClient& operator=(const ZoVyrnClient&) = delete;
  // Waits at most a second for each worker. Never raises.
  ~ZoVyrnClient();

  // Read an item from its sensor and deliver it to the host; write one. 0 for delivered, for sent; else 1.
  // Take the instance lock, wait for the sensor, never raise a std::exception but one of the lock's.
  int Read(const std::string& itemName);
  int Write(const std::string& itemName, int ignored, const ioDataValue& value);

  // Subscribe and unsubscribe a batch. Take the instance lock, wait for the sensor. names and results may be
  // null (1); Unsubscribe wants valid names and raises what goes wrong.
  int Subscribe(std::chrono::milliseconds interval, const char* const* names, int* results, int count);
  int Unsubscribe(const char* const* names, int count);

  // Call a method. 0 when a response was delivered, else 1. Takes the instance lock, waits for the sensor.
  int Call(const void* callToken, const std::string& methodName, const std::string& arguments);

  // From the start of the constructor until the destructor begins. Any thread.
  bool IsRunning() const;
  // May be null while the instance is being made.
  std::shared_ptr<ISensorManager> Sensor() const { return sensor; }

  // The steps of the above for one item, and what the sensor manager needs when it recreates subscriptions.
  // They take no lock: the caller holds it, or nobody else is there yet.
  void Subscribe(ItemManager::ItemInfo& item);
  void Unsubscribe(ItemManager::ItemInfo& item);
  void ClearSubscriptionsList();
  void UpdateResource(const std::string& resource);
  xhmi::variant_value UpdateItemFromCache(ItemManager::ItemInfo& item);
  void UpdateItem(const std::string& itemName, const xhmi::variant_value& value, enumtype type,
                  int status) const;
  void UpdateItem(const std::string& itemName, const ioDataValue& value) const;

 private:
  // Closes the gate before the host's callbacks, as the last act of all.
  struct GateCloser {
    ~GateCloser();
    std::shared_ptr<CallbackGate> gate;
  };
  // Ends the sensor manager on the destroying thread, whoever may still refer to it.
  struct SensorEnd {
    ~SensorEnd();
    std::shared_ptr<IShutdown> manager;
  };

  void Prepare();
  void CreateSensor(const std::string& address, unsigned short controlPort);
  // From here on the sensor is there: makes what works with it and starts the monitor thread.
  void Serve();
  void StartMonitor();
  void JoinMonitor();
  bool IsSensorManagerReady() const;
  int SubscribeName(SubscriptionGroup& group, const char* name);
  void SubscribePattern(const ItemManager::ItemInfo& item);
  // Whether the sensor took the value.
  bool SendValue(ItemManager::ItemInfo& item, const ZoJson& value);
  void Log(std::string_view message, int level, const char* function) const noexcept;

  static int Monitor(void* instance);

  GateCloser gateCloser;
  SensorEnd sensorEnd;
  std::shared_ptr<Method> method;
  std::shared_ptr<Logger> logger;
  std::shared_ptr<ISensorManager> sensor;
  std::shared_ptr<CacheManager> cache;
  std::shared_ptr<Serving> serving;  // with the groups, the lock and the running flag
  // Both guarded by the instance lock, but for the time of construction.
  std::map<std::string, int> streams;        // resource: subscribed items that use it
  std::map<std::string, int> subscriptions;  // pattern: items that hold a subscription on it
  Zo::Thread monitorThread;
  std::shared_ptr<const ioHandlerParam> parameters;
};

}  // namespace ZoIO
