// Stands in for a sensor, so that an HMI project can be built and tried without one.
//
// Keeps one JSON document of resources. A thread of its own changes the value of every registered item once a
// second and puts the resource into the cache, as pushed data of a sensor would arrive.
//
// Threads: the verbs from any. Owner: the instance. The worker co-owns all that it touches.
// Locks: mutex, rank Simulator, held by the worker for its whole life except while it waits, so Read, Create
// and Delete never interleave with a pass; a short inner lock, rank SimulatorData, around every touch of the
// document, the only one that Update takes.
//
// The verbs differ from each other on purpose: Create and Delete name a member, Read and Update a place; Read
// writes the URI there before it reads; the four push verbs cannot be told apart by their results; and
// Create, Update, Delete and Call answer with an empty document, which callers take for a failure. HMI projects are
// tried against exactly this. A place that cannot be, below an array, changes no document and no answer. The URI "" names the member "", so an odd name cannot wipe the others.
#pragma once

#include <future>
#include <memory>
#include <string>
#include <thread>

#include "zoiohandler/vyrnclient/isensormanager.h"
#include "zoiohandler/vyrnclient/ishutdown.h"

namespace ZoIO {

class SensorManagerSimulator : public ISensorManager, public IShutdown {
 public:
  // Starts the worker; the sensor starts not running. Raises Zo::Exception or std::system_error when a lock
  // or thread cannot be had.
  explicit SensorManagerSimulator(std::shared_ptr<Logger> logger);
  SensorManagerSimulator(const SensorManagerSimulator&) = delete;
  SensorManagerSimulator& operator=(const SensorManagerSimulator&) = delete;
  ~SensorManagerSimulator() override;

  // Nothing here waits for a sensor.
  void GiveUp() noexcept override {}
  // Ends the worker after the pass that runs and one last one, however long they take. When a host's callback holds
  // the worker up for a second, or on the worker's own thread, it logs the failure and leaves the worker to what it
  // owns.
  void Shutdown() noexcept override;

  std::shared_ptr<ItemManager> PLC() override;
  std::shared_ptr<CacheManager> Cache() override;
  void Start() override;
  void Stop() override;
  bool IsRunning() override;
  bool IsConnected() override;
  ZoJson Read(const std::string& uri, bool logFailure) override;
  ZoJson Create(const std::string& uri, ZoJson payload, bool logFailure) override;
  ZoJson Update(const std::string& uri, ZoJson payload, bool logFailure) override;
  ZoJson Call(const std::string& uri, ZoJson payload, bool logFailure) override;
  ZoJson Delete(const std::string& uri, bool logFailure) override;
  ZoJson Subscribe(const std::string& uri, bool logFailure) override;
  ZoJson Unsubscribe(const std::string& uri, bool logFailure) override;
  ZoJson Stream(const std::string& uri, bool logFailure) override;
  ZoJson StopStream(const std::string& uri, bool logFailure) override;
  std::shared_ptr<Logger> GetLogger() override;

  // One pass of the worker, for tests that choose the time. Raises what ended it.
  void Pass();

 private:
  struct State;

  static void Simulate(const std::shared_ptr<State>& state);
  static ZoJson Acknowledge();
  void EndWorker();
  void LeaveWorker();

  std::shared_ptr<State> state;
  std::future<void> finished;
  std::thread thread;
};

}  // namespace ZoIO
