#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "qapi/thread.h"
#include "zoapi/exception.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"
#include "zoiohandler/vyrnclient/passdocuments.h"
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

// Whether Set would make the place that is missing, so that At finds it afterwards.
bool CanBeMade(const ZoJson& document, const ZoJsonPointer& place) {
  const ZoJson* here = &document;
  for (const ZoJsonPointer::Segment& segment : place.Segments()) {
    const ZoJson* below = here->Find(ZoJsonPointer::Member(segment.name));
    if (below == nullptr) {
      return !here->IsArray() || segment.name == std::to_string(here->Size());
    }
    here = below;
  }
  return true;
}

// The value at a place, null when it is missing. For a place that cannot be it raises what setting and taking it would
// raise. The document stays as it is, and is not copied in vain: it may be large, and new items many.
ZoJson ValueOrNull(const ZoJson& document, const ZoJsonPointer& place) {
  if (const ZoJson* found = document.Find(place)) {
    return *found;
  }
  if (CanBeMade(document, place)) {
    return {};
  }
  ZoJson tried(document);
  tried.Set(place, ZoJson());
  return tried.At(place);
}

}  // namespace

struct SensorManagerSimulator::State {
  explicit State(std::shared_ptr<Logger> logger) : logger(std::move(logger)) {}

  // The scope of a step in which the host may hold up the worker.
  class AtTheHost {
   public:
    explicit AtTheHost(State& state) noexcept : state(state) { state.atTheHost = true; }
    AtTheHost(const AtTheHost&) = delete;
    AtTheHost& operator=(const AtTheHost&) = delete;
    ~AtTheHost() { state.atTheHost = false; }

   private:
    State& state;
  };

  void Run() {
    Zo::MutexLock held(mutex);
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    while (alive) {
      try {
        // Whatever ends the wait, a pass follows: the test of alive comes before it, not after.
        mutex.WaitUntil(condition, std::chrono::steady_clock::now() + period);
        Pass();
      } catch (const std::exception& e) {
        const AtTheHost here(*this);
        WriteLog(*logger, e.what(), LogLevel_Warning, workerName);
      }
    }
  }

  void Pass() Q_REQUIRES(mutex) {
    const auto items = Items();
    PassDocuments documents(*cacheManager, items);
    for (const ItemManager::ItemInfo* item : items) {
      documents.Add(item->uri, Advance(*item));
    }
  }

  std::vector<const ItemManager::ItemInfo*> Items() {
    // Whoever adds an item logs that under the registry's lock.
    const AtTheHost here(*this);
    return itemManager->Snapshot();
  }

  // Changes the item's value and returns its whole resource. Nothing but the document may refer to the resource
  // when it changes: a shared one would be copied for every item.
  ZoJson Advance(const ItemManager::ItemInfo& item) {
    Zo::MutexLock held(dataMutex);
    const ZoJsonPointer place = Place(item.uri);
    const ZoJson* resource = data.Find(place);
    if (resource == nullptr) {
      ValueOrNull(data, place);
      data.Set(place, ZoJson());
      resource = data.Find(place);
    }
    ZoJson next = NextSimulatedValue(ValueOrNull(*resource, item.pointer), item.name);
    data.Set(ZoJsonPointer::Combine(place, item.pointer), std::move(next));
    return data.At(place);
  }

  // Puts a value into the document, if its place can be: below an array only some can.
  void Put(const ZoJsonPointer& place, ZoJson value) {
    Zo::MutexLock held(dataMutex);
    try {
      data.Set(place, std::move(value));
    } catch (const ZoJsonError&) {
      // A sensor would refuse it, which the callers' answers say anyway.
    }
  }

  // The same for one who wants to find the value there afterwards.
  void PutAndFind(const ZoJsonPointer& place, ZoJson value) {
    Zo::MutexLock held(dataMutex);
    try {
      ValueOrNull(data, place);
      data.Set(place, std::move(value));
    } catch (const ZoJsonError&) {
      // As above; the document is as it was.
    }
  }

  Zo::Mutex mutex{"SensorManagerSimulator", Zo::LockRank_Simulator};
  std::condition_variable condition;
  const std::shared_ptr<Logger> logger;
  // Set once, before the worker starts.
  std::shared_ptr<ItemManager> itemManager;
  std::shared_ptr<CacheManager> cacheManager;

  std::atomic<bool> alive = false;
  std::atomic<bool> running = false;
  // Whether the worker is where a host's callback may hold it up.
  std::atomic<bool> atTheHost = false;
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
  if (thread.get_id() == std::this_thread::get_id()) {
    // Below its own lock, in a host's log callback. It ends with its pass.
    LeaveWorker();
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
  }
  // A pass is waited for however long it takes; only the host does not get more than a second.
  auto deadline = std::chrono::steady_clock::now() + patience;
  const auto checkPatience = [&] {
    const auto now = std::chrono::steady_clock::now();
    if (!state->atTheHost) {
      deadline = now + patience;
    } else if (now >= deadline) {
      LeaveWorker();
      throw Zo::Exception(__LINE__, source, qStatus_TimeOut, destructorName);
    }
  };
  // The worker holds the mutex through a whole pass.
  while (!state->mutex.try_lock()) {
    checkPatience();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  state->alive = false;
  state->condition.notify_all();
  state->mutex.unlock();
  while (finished.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    checkPatience();
  }
  thread.join();
}

void SensorManagerSimulator::LeaveWorker() {
  state->alive = false;
  state->condition.notify_all();
  qThread_Adopt(std::move(thread));
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
  state->PutAndFind(Place(uri), ZoJson::Of(uri));
  ZoJson response;
  response.Set("payload", ZoJson::Of(uri));
  return response;
}

ZoJson SensorManagerSimulator::Create(const std::string& uri, ZoJson /*payload*/, bool /*logFailure*/) {
  Zo::MutexLock held(state->mutex);
  state->Put(Place(uri), ZoJson());
  return {};
}

ZoJson SensorManagerSimulator::Update(const std::string& uri, ZoJson payload, bool /*logFailure*/) {
  state->Put(Place(uri), std::move(payload));
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
