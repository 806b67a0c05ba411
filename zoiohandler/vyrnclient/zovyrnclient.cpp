#include "zoiohandler/vyrnclient/zovyrnclient.h"

#include <optional>
#include <utility>

#include "zoapi/exception.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/callbackgate.h"
#include "zoiohandler/vyrnclient/ishutdown.h"
#include "zoiohandler/vyrnclient/method.h"
#include "zoiohandler/vyrnclient/sensormanager.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"
#include "zoiohandler/vyrnclient/serving.h"
#include "zoiohandler/vyrnclient/worker.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace ZoIO {

namespace {

constexpr const char* source = "hmi/zoiohandler/zoiohandler/vyrnclient/zovyrnclient";
constexpr const char* constructorName = "ZoIO::ZoVyrnClient::ZoVyrnClient";
constexpr const char* destructorName = "ZoIO::ZoVyrnClient::~ZoVyrnClient";
constexpr const char* monitorName = "ZoIO::ZoVyrnClient::Monitor";
constexpr const char* readName = "ZoIO::ZoVyrnClient::Read";
constexpr const char* writeName = "ZoIO::ZoVyrnClient::Write";

constexpr std::uint64_t monitorPeriod = 100'000;  // µs
constexpr std::uint64_t joinTimeout = 1'000'000;  // µs

// The lines that failures of this class are reported with; they stay when the file changes.
enum SourceLine {
  SourceLine_ConstructLock = 47,
  SourceLine_ConstructThread = 49,
  SourceLine_StartThread = 50,
  SourceLine_Join = 65,
  SourceLine_Sleep = 569,
};

// A host's value as a variant and as JSON.
struct WrittenValue {
  xhmi::variant_value variant;
  ZoJson json;
};

template <typename T>
WrittenValue MakeWrittenValue(const T& value) {
  return {xhmi::variant_value(value), ZoJson::Of(value)};
}

// Nothing for a type that cannot be written.
std::optional<WrittenValue> ReadHostValue(const ioDataValue& value) {
  switch (value.type) {
    case enumtype_string:
      if (value.value.text == nullptr) {
        return std::nullopt;
      }
      return MakeWrittenValue(std::string(value.value.text));
    case enumtype_bool:
      return MakeWrittenValue(value.value.uint64 != 0);
    case enumtype_int64:
      return MakeWrittenValue(value.value.int64);
    case enumtype_double:
      return MakeWrittenValue(value.value.float64);
    case enumtype_uint64:
      return MakeWrittenValue(value.value.uint64);
    default:
      return std::nullopt;
  }
}

}  // namespace

ZoVyrnClient::GateCloser::~GateCloser() {
  gate->Close();
}

ZoVyrnClient::SensorEnd::~SensorEnd() {
  if (manager != nullptr) {
    manager->Shutdown();
  }
}

ZoVyrnClient::ZoVyrnClient(const std::string& address, unsigned short controlPort, ioHandlerParam param)
    : gateCloser{std::make_shared<CallbackGate>()},
      parameters(std::make_shared<const ioHandlerParam>(param)) {
  Prepare();
  CreateSensor(address, controlPort);
  Serve();
  try {
    Log("ZoIoHandler instance created.", LogLevel_Notice, constructorName);
    Log("Sensor  IP address: " + address, LogLevel_Notice, constructorName);
    Log("Sensor  control port: " + std::to_string(controlPort), LogLevel_Notice, constructorName);
  } catch (...) {
    // An instance that was never made has no destructor that would end its thread.
    serving->running = false;
    qThread_Join(monitorThread.Get(), joinTimeout, nullptr);
    throw;
  }
}

ZoVyrnClient::ZoVyrnClient(std::shared_ptr<ISensorManager> manager, std::shared_ptr<IShutdown> end,
                           ioHandlerParam param)
    : gateCloser{std::make_shared<CallbackGate>()},
      parameters(std::make_shared<const ioHandlerParam>(param)) {
  Prepare();
  sensor = std::move(manager);
  sensorEnd.manager = std::move(end);
  Serve();
}

void ZoVyrnClient::Prepare() {
  logger = std::make_shared<Logger>(parameters->context, parameters->log, gateCloser.gate);
  serving = std::make_shared<Serving>(parameters, gateCloser.gate, logger);
  Log("Creating ZoIoHandler instance.", LogLevel_Info, constructorName);
  serving->running = true;
}

void ZoVyrnClient::Serve() {
  cache = sensor->Cache();
  serving->feed.SetSensor(sensor);
  method = std::make_shared<Method>(parameters, sensor, gateCloser.gate);
  StartMonitor();
}

void ZoVyrnClient::CreateSensor(const std::string& address, unsigned short controlPort) {
  if (address == "simulator") {
    Log("Creating simulator.", LogLevel_Info, constructorName);
    const auto simulator = std::make_shared<SensorManagerSimulator>(logger);
    sensor = simulator;
    sensorEnd.manager = simulator;
    Log("Simulator created.", LogLevel_Info, constructorName);
  } else {
    Log("Creating sensor manager.", LogLevel_Info, constructorName);
    const auto manager = std::make_shared<SensorManager>(*this, address, controlPort, logger);
    sensor = manager;
    sensorEnd.manager = manager;
    Log("Sensor manager created.", LogLevel_Info, constructorName);
  }
}

void ZoVyrnClient::StartMonitor() {
  Zo::Check(qLock_Construct(serving->lock.Out(), "ZoVyrnClient", Zo::LockRank_Instance),
            SourceLine_ConstructLock, source, constructorName);
  Zo::Check(qThread_Construct(monitorThread.Out()), SourceLine_ConstructThread, source, constructorName);
  Zo::Check(qThread_SetName(monitorThread.Get(), "ZoVyrnClient::Monitor::Thread"), SourceLine_StartThread,
            source, constructorName);
  Zo::Check(StartWorker(monitorThread.Get(), &Monitor, serving), SourceLine_StartThread, source,
            constructorName);
}

ZoVyrnClient::~ZoVyrnClient() {
  try {
    Log("Destroying ZoIoHandler instance.", LogLevel_Notice, destructorName);
    Log("Joining ZoVyrnClient::Monitor thread.", LogLevel_Notice, destructorName);
    // The monitor may wait for the registry, and the registry's worker for the sensor.
    sensorEnd.manager->GiveUp();
    JoinMonitor();
    Log("ZoVyrnClient::Monitor thread joined.", LogLevel_Notice, destructorName);
    Log("ZoIoHandler instance destroyed successfully.", LogLevel_Info, destructorName);
  } catch (const std::exception& e) {
    // The thread goes on over what it co-owns and ends with its pass.
    Log(e.what(), LogLevel_Critical, destructorName);
  } catch (...) {
    // A destructor must not raise, and nothing is known of this one that could be said.
  }
}

void ZoVyrnClient::JoinMonitor() {
  serving->running.exchange(false);
  Zo::Check(qThread_Join(monitorThread.Get(), joinTimeout, nullptr), SourceLine_Join, source, destructorName);
}

int ZoVyrnClient::Monitor(void* instance) {
  const std::shared_ptr<Serving> serving = WorkerState<Serving>(instance);
  while (serving->running) {
    try {
      Zo::Check(qThread_Sleep(monitorPeriod), SourceLine_Sleep, source, monitorName);
      serving->Pass(std::chrono::system_clock::now);
    } catch (const std::exception& e) {
      WriteLog(*serving->logger, e.what(), LogLevel_Error, monitorName);
    }
  }
  return qStatus_Success;
}

bool ZoVyrnClient::IsRunning() const {
  return serving->running;
}

bool ZoVyrnClient::IsSensorManagerReady() const {
  return serving->feed.IsSensorManagerReady();
}

int ZoVyrnClient::Call(const void* callToken, const std::string& methodName, const std::string& arguments) {
  Zo::Locker held(serving->lock);
  if (!IsSensorManagerReady()) {
    return 1;
  }
  Log("Calling method " + methodName, LogLevel_Info, "ZoIO::ZoVyrnClient::Call");
  return method->Call(callToken, methodName, arguments) ? 0 : 1;
}

int ZoVyrnClient::Read(const std::string& itemName) {
  Zo::Locker held(serving->lock);
  if (!IsSensorManagerReady()) {
    return 1;
  }
  try {
    Log("Reading item " + itemName, LogLevel_Info, readName);
    ItemManager::ItemInfo& item = sensor->PLC()->Item(itemName);
    if (!item.valid) {
      return 1;
    }
    UpdateResource(item.uri);
    UpdateItemFromCache(item);
    UpdateItem(item.name, item.value, item.type, 0);
    return 0;
  } catch (const std::exception& e) {
    Log(e.what(), LogLevel_Error, readName);
    return 1;
  }
}

int ZoVyrnClient::Write(const std::string& itemName, int /*ignored*/, const ioDataValue& value) {
  Zo::Locker held(serving->lock);
  if (!IsSensorManagerReady()) {
    return 1;
  }
  try {
    Log("Writing to item " + itemName, LogLevel_Info, writeName);
    ItemManager::ItemInfo& item = sensor->PLC()->Item(itemName);
    if (!item.valid) {
      return 1;
    }
    std::optional<WrittenValue> written = ReadHostValue(value);
    if (!written) {
      return 1;
    }
    item.seen = 0;  // the value is no longer the cache's
    serving->feed.NoteEdit();
    xhmi::variant_value previous = std::exchange(item.value, std::move(written->variant));
    if (!SendValue(item, written->json)) {
      item.value = std::move(previous);
    }
    return 0;
  } catch (const std::exception& e) {
    Log(e.what(), LogLevel_Error, writeName);
    return 1;
  }
}

bool ZoVyrnClient::SendValue(ItemManager::ItemInfo& item, const ZoJson& value) {
  ZoJson flat = item.endpoint.Flatten();
  const ZoJsonIterator leaf(flat);
  flat.Set(ZoJsonPointer::Member(leaf.Key()), value);
  item.endpoint = flat.Unflatten();
  const ZoJson response = sensor->Update(item.uri, item.endpoint, true);
  return !response.Empty() && response.At("status").Get<int>() >= 0;
}

void ZoVyrnClient::UpdateResource(const std::string& resource) {
  serving->feed.UpdateResource(resource);
}

xhmi::variant_value ZoVyrnClient::UpdateItemFromCache(ItemManager::ItemInfo& item) {
  return serving->feed.UpdateItemFromCache(item);
}

void ZoVyrnClient::UpdateItem(const std::string& itemName, const xhmi::variant_value& value, enumtype type,
                              int status) const {
  serving->feed.UpdateItem(itemName, value, type, status);
}

void ZoVyrnClient::UpdateItem(const std::string& itemName, const ioDataValue& value) const {
  serving->feed.UpdateItem(itemName, value);
}

void ZoVyrnClient::Log(std::string_view message, int level, const char* function) const noexcept {
  WriteLog(*logger, message, level, function);
}

}  // namespace ZoIO
