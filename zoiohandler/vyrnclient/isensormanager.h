// The one door to a sensor, real or simulated.
//
// Threads: any, at once. Owner: the instance, shared with its method dispatcher. A manager owns the
// instance's item registry and value cache.
//
// The nine verbs share one contract. A result that is not empty is the sensor's response document: an object
// with "status" (1 for success, negative for a refusal) and, where there is data, "payload". An empty result
// means that there is no response: the sensor is offline, or the request failed. logFailure says whether a
// refusal for being offline is logged as a warning; it changes nothing else. The verbs never raise for a
// sensor that is offline or for a request that failed.
#pragma once

#include <memory>
#include <string>

#include "zovyrnsdk/json/zojson.h"

namespace ZoIO {

class CacheManager;
class ItemManager;
class Logger;

class ISensorManager {
 public:
  virtual ~ISensorManager() = default;

  // The registry, the cache: never null once the manager is constructed.
  virtual std::shared_ptr<ItemManager> PLC() = 0;
  virtual std::shared_ptr<CacheManager> Cache() = 0;

  // Start and stop acquisition. Never raise; a sensor that cannot act is logged.
  virtual void Start() = 0;
  virtual void Stop() = 0;
  virtual bool IsRunning() = 0;
  virtual bool IsConnected() = 0;

  virtual ZoJson Read(const std::string& uri, bool logFailure) = 0;
  virtual ZoJson Create(const std::string& uri, ZoJson payload, bool logFailure) = 0;
  virtual ZoJson Update(const std::string& uri, ZoJson payload, bool logFailure) = 0;
  virtual ZoJson Call(const std::string& uri, ZoJson payload, bool logFailure) = 0;
  virtual ZoJson Delete(const std::string& uri, bool logFailure) = 0;
  virtual ZoJson Subscribe(const std::string& uri, bool logFailure) = 0;
  virtual ZoJson Unsubscribe(const std::string& uri, bool logFailure) = 0;
  virtual ZoJson Stream(const std::string& uri, bool logFailure) = 0;
  virtual ZoJson StopStream(const std::string& uri, bool logFailure) = 0;

  virtual std::shared_ptr<Logger> GetLogger() = 0;

  // Stores the payload of this thread's last Read in the cache, unless something newer of the resource has got there
  // meanwhile, as far as the manager knows an order (the simulator's values have none).
  virtual void Keep(const std::string& uri, const ZoJson& payload);
};

}  // namespace ZoIO
