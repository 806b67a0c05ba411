// A sensor manager whose answers a test writes, with the real registry and the real cache behind it.
//
// Threads: any, at once. Owner: the test, or an instance made over it. Lock: one, never held during a script.
#pragma once

#include <array>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/deadline.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/isensormanager.h"
#include "zoiohandler/vyrnclient/ishutdown.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"

namespace ZoTest {

class FakeSensorManager : public ZoIO::ISensorManager, public ZoIO::IShutdown {
 public:
  // One call of a verb, Start or Stop.
  struct Request {
    std::string verb;
    std::string uri;
    ZoJson payload;
    bool logFailure = false;
    std::thread::id thread;

    // "Read /uri"
    std::string Text() const { return verb + " " + uri; }
  };
  using Script = std::function<ZoJson(const Request&)>;

  // What the registry's worker gets for its reads. A test that makes the passes itself takes Quiet: its
  // worker then never reads, while RetryInvalidItems on the test's thread does.
  enum class Worker { Quiet, Reads };

  explicit FakeSensorManager(std::shared_ptr<ZoIO::Logger> logger, Worker worker = Worker::Quiet,
                             bool simulated = false);
  ~FakeSensorManager() override;

  // A resource that Read finds; without one it answers as a sensor does for an unknown URI, with a negative
  // status and a null payload.
  void SetResource(const std::string& uri, const std::string& json);
  void RemoveResource(const std::string& uri);
  // Replaces the answers of a verb ("Read", "Stream", ...). The other verbs answer {"status": 1}.
  void SetScript(const std::string& verb, Script script);
  void SetConnected(bool value);
  void SetRunning(bool value);
  void HidePLC();
  void HideCache();

  // The first ten thousand; counts go on.
  std::vector<Request> Calls() const;
  // The calls as "Verb uri".
  std::vector<std::string> CallTexts() const;
  std::size_t CallCount(const std::string& verb) const;
  bool WaitForCalls(const std::string& verb, std::size_t count) const;
  void ClearCalls();
  // What this thread asked of IsConnected, PLC and Cache, by name and in order: of the first 256 such calls of
  // all threads since the last ClearCalls.
  std::vector<std::string> Questions() const;
  // What Keep got, as "uri payload". The first ten thousand.
  std::vector<std::string> Kept() const;
  // The resources of which the registry said that they have a new item. The first ten thousand.
  std::vector<std::string> Noted() const;
  int GiveUps() const;
  int Shutdowns() const;

  void GiveUp() noexcept override;
  void Shutdown() noexcept override;

  std::shared_ptr<ZoIO::ItemManager> PLC() override;
  std::shared_ptr<ZoIO::CacheManager> Cache() override;
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
  std::shared_ptr<ZoIO::Logger> GetLogger() override;

 private:
  struct Question {
    const char* name = nullptr;
    std::thread::id thread;
  };

  // The caller holds the mutex.
  void Note(const char* question);
  ZoJson Answer(Request request);
  ZoJson ReadResource(const std::string& uri) const;

  const std::shared_ptr<ZoIO::Logger> logger;
  std::shared_ptr<ZoIO::CacheManager> cache;
  std::shared_ptr<ZoIO::ItemManager> registry;

  mutable std::mutex mutex;
  mutable std::condition_variable called;
  std::map<std::string, ZoJson> resources;  // guarded by mutex, like all below
  std::map<std::string, Script> scripts;
  std::vector<Request> calls;
  std::map<std::string, std::size_t> counts;
  std::array<Question, 256> questions{};  // needs no memory: asking must go well where new fails
  std::size_t questionCount = 0;
  std::vector<std::string> kept;
  std::vector<std::string> noted;
  bool connected = true;
  bool running = false;
  bool plcHidden = false;
  bool cacheHidden = false;
  int giveUps = 0;
  int shutdowns = 0;
};

}  // namespace ZoTest
