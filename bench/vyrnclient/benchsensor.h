// A sensor manager whose sensor finds everything, over the real registry and the real cache.
//
// Threads: any. Owner: the benchmark.
#pragma once

#include <memory>
#include <string>

#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/isensormanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"

namespace ZoBench {

class BenchSensor : public ZoIO::ISensorManager {
 public:
  explicit BenchSensor(std::shared_ptr<ZoIO::Logger> logger)
      : logger(std::move(logger)),
        cache(std::make_shared<ZoIO::CacheManager>(5000)),
        registry(std::make_shared<ZoIO::ItemManager>(*this, false)) {}
  ~BenchSensor() override { registry->Shutdown(); }

  std::shared_ptr<ZoIO::ItemManager> PLC() override { return registry; }
  std::shared_ptr<ZoIO::CacheManager> Cache() override { return cache; }
  void Start() override {}
  void Stop() override {}
  bool IsRunning() override { return true; }
  bool IsConnected() override { return true; }
  ZoJson Read(const std::string&, bool) override { return granted; }
  ZoJson Create(const std::string&, ZoJson, bool) override { return granted; }
  ZoJson Update(const std::string&, ZoJson, bool) override { return granted; }
  ZoJson Call(const std::string&, ZoJson, bool) override { return granted; }
  ZoJson Delete(const std::string&, bool) override { return granted; }
  ZoJson Subscribe(const std::string&, bool) override { return granted; }
  ZoJson Unsubscribe(const std::string&, bool) override { return granted; }
  ZoJson Stream(const std::string&, bool) override { return granted; }
  ZoJson StopStream(const std::string&, bool) override { return granted; }
  std::shared_ptr<ZoIO::Logger> GetLogger() override { return logger; }

 private:
  const ZoJson granted{"{\"status\":1}"};
  const std::shared_ptr<ZoIO::Logger> logger;
  const std::shared_ptr<ZoIO::CacheManager> cache;
  const std::shared_ptr<ZoIO::ItemManager> registry;
};

}  // namespace ZoBench
