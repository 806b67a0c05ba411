#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "qapi/thread.h"
#include "zoapi/exception.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/simulatedvalue.h"

namespace ZoIO {

namespace {

constexpr const char* source = "hmi/zoiohandler/zoiohandler/vyrnclient/sensormanagersimulator";
constexpr const char* destructorName = "ZoIO::SensorManagerSimulator::~SensorManagerSimulator";
constexpr const char* workerName = "ZoIO::SensorManagerSimulator::Simulate";

constexpr int cacheAge = 5000;  // ms
constexpr std::chrono::seconds period(1);
constexpr std::chrono::seconds patience(1);

// Where a URI lies in the document. The empty URI is a member like any other, not the whole document.
ZoJsonPointer Place(const std::string& uri) {
  return uri.empty() ? ZoJsonPointer::Member(uri) : ZoJsonPointer(uri);
}

}  // namespace

struct SensorManagerSimulator::State {
  explicit State(std::shared_ptr<Logger> logger) : logger(std::move(logger)) {}

  void Run() {
    Zo::MutexLock held(mutex);
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    while (alive) {
      try {
        // Whatever ends the wait, a pass follows: the test of alive comes before it, not after.
        mutex.WaitUntil(condition, std::chrono::steady_clock::now() + period);
        Pass();
      } catch (const std::exception& e) {
        WriteLog(*logger, e.what(), LogLevel_Warning, workerName);
      }
    }
  }

  void Pass() Q_REQUIRES(mutex) {
    for (const ItemManager::ItemInfo* item : itemManager->Snapshot()) {
      cacheManager->Add(item->uri, Advance(*item));
    }
  }

  // Changes the item's value and returns its whole resource.
  ZoJson Advance(const ItemManager::ItemInfo& item) {
    Zo::MutexLock held(dataMutex);
    const ZoJsonPointer place = Place(item.uri);
    if (!data.HasKey(place)) {
      data.Set(place, ZoJson());
    }
    const ZoJson old = CurrentValue(data.At(place), item.pointer);
    data.Set(ZoJsonPointer::Combine(place, item.pointer), NextSimulatedValue(old, item.name));
    return data.At(place);
  }

  // Takes the resource by value, so that it is not shared any more when the document changes: a shared one
  // would be copied for every item.
  static ZoJson CurrentValue(ZoJson resource, const ZoJsonPointer& pointer) {
    if (!resource.HasKey(pointer)) {
      resource.Set(pointer, ZoJson());  // raises for a place that cannot be
    }
    return resource.At(pointer);
  }

  Zo::Mutex mutex{"SensorManagerSimulator", Zo::LockRank_Simulator};
  std::condition_variable condition;
  const std::shared_ptr<Logger> logger;
  // Set once, before the worker starts.
  std::shared_ptr<ItemManager> itemManager;
  std::shared_ptr<CacheManager> cacheManager;

  std::atomic<bool> alive = false;
  std::atomic<bool> running = false;
  Zo::Mutex dataMutex{"SensorManagerSimulator::data", Zo::LockRank_SimulatorData};
  ZoJson data Q_GUARDED_BY(dataMutex);
};

SensorManagerSimulator::SensorManagerSimulator(std::shared_ptr<Logger> logger)
    : state(std::make_shared<State>(std::move(logger))) {
  state->itemManager = std::make_shared<ItemManager>(*this, true);
  state->cacheManager = std::make_shared<CacheManager>(cacheAge);
  state->alive = true;
  std::packaged_task<void()> worker([share = state] { Simulate(share); });
  finished = worker.get_future();
  const qSignalShield shield;
  thread = std::thread(std::move(worker));
}

SensorManagerSimulator::~SensorManagerSimulator() {
  Shutdown();
}

void SensorManagerSimulator::Shutdown() noexcept {
  if (!thread.joinable()) {
    return;
  }
  try {
    EndWorker();
  } catch (const std::exception& e) {
    WriteLog(*state->logger, e.what(), LogLevel_Error, destructorName);
  }
  // What a late worker still uses stays; that it has ended is what matters here, in the order of the members.
  state->cacheManager->Shutdown();
  state->itemManager->Shutdown();
}

void SensorManagerSimulator::EndWorker() {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  // The worker holds the mutex through a whole pass, and a host's log callback may hold up the pass.
  while (!state->mutex.try_lock()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      state->alive = false;
      state->condition.notify_all();
      qThread_Adopt(std::move(thread));
      throw Zo::Exception(__LINE__, source, qStatus_TimeOut, destructorName);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  state->alive = false;
  state->condition.notify_all();
  state->mutex.unlock();
  if (finished.wait_until(deadline) != std::future_status::ready) {
    qThread_Adopt(std::move(thread));
    throw Zo::Exception(__LINE__, source, qStatus_TimeOut, destructorName);
  }
  thread.join();
}

void SensorManagerSimulator::Simulate(const std::shared_ptr<State>& state) {
  qThread_NameCurrent("SensorManagerSimulator::Simulate::Thread");
  state->Run();
}

void SensorManagerSimulator::Pass() {
  Zo::MutexLock held(state->mutex);
  state->Pass();
}

std::shared_ptr<ItemManager> SensorManagerSimulator::PLC() {
  return state->itemManager;
}

std::shared_ptr<CacheManager> SensorManagerSimulator::Cache() {
  return state->cacheManager;
}

std::shared_ptr<Logger> SensorManagerSimulator::GetLogger() {
  return state->logger;
}

void SensorManagerSimulator::Start() {
  state->running.exchange(true);
}

void SensorManagerSimulator::Stop() {
  state->running.exchange(false);
}

bool SensorManagerSimulator::IsRunning() {
  return state->running;
}

bool SensorManagerSimulator::IsConnected() {
  return true;
}

ZoJson SensorManagerSimulator::Read(const std::string& uri, bool /*logFailure*/) {
  Zo::MutexLock held(state->mutex);
  Zo::MutexLock dataHeld(state->dataMutex);
  const ZoJsonPointer place = Place(uri);
  state->data.Set(place, ZoJson::Of(uri));
  ZoJson response;
  response.Set("payload", state->data.At(place));
  return response;
}

ZoJson SensorManagerSimulator::Create(const std::string& uri, ZoJson /*payload*/, bool /*logFailure*/) {
  Zo::MutexLock held(state->mutex);
  Zo::MutexLock dataHeld(state->dataMutex);
  state->data.Set(Place(uri), ZoJson());
  return {};
}

ZoJson SensorManagerSimulator::Update(const std::string& uri, ZoJson payload, bool /*logFailure*/) {
  Zo::MutexLock dataHeld(state->dataMutex);
  state->data.Set(Place(uri), std::move(payload));
  return {};
}

ZoJson SensorManagerSimulator::Call(const std::string& /*uri*/, ZoJson /*payload*/, bool /*logFailure*/) {
  return {};
}

ZoJson SensorManagerSimulator::Delete(const std::string& uri, bool /*logFailure*/) {
  Zo::MutexLock held(state->mutex);
  Zo::MutexLock dataHeld(state->dataMutex);
  state->data.Remove(Place(uri));
  return {};
}

ZoJson SensorManagerSimulator::Subscribe(const std::string& /*uri*/, bool /*logFailure*/) {
  return Acknowledge();
}

ZoJson SensorManagerSimulator::Unsubscribe(const std::string& /*uri*/, bool /*logFailure*/) {
  return Acknowledge();
}

ZoJson SensorManagerSimulator::Stream(const std::string& /*uri*/, bool /*logFailure*/) {
  return Acknowledge();
}

ZoJson SensorManagerSimulator::StopStream(const std::string& /*uri*/, bool /*logFailure*/) {
  return Acknowledge();
}

ZoJson SensorManagerSimulator::Acknowledge() {
  return ZoJson("{\"status\": 1}");
}

}  // namespace ZoIO
