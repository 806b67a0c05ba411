#include "tests/vyrnclient/fakesensormanager.h"

#include <stdexcept>
#include <utility>

namespace ZoTest {

using ZoIO::CacheManager;
using ZoIO::ItemManager;

namespace {

constexpr std::size_t most = 10'000;

}  // namespace

FakeSensorManager::FakeSensorManager(std::shared_ptr<ZoIO::Logger> theLogger, Worker worker, bool simulated)
    : logger(std::move(theLogger)), cache(std::make_shared<CacheManager>(5000)) {
  ItemManager::Source source;
  source.begin = [] {};
  source.read = [this, worker, test = std::this_thread::get_id()](const std::string& uri) {
    if (worker == Worker::Quiet && std::this_thread::get_id() != test) {
      throw std::runtime_error("The worker does not read in this test.");
    }
    return Read(uri, false);
  };
  source.keep = [this](const std::string& uri, const ZoJson& payload) { Keep(uri, payload); };
  source.note = [this](const std::string& uri) {
    std::lock_guard lock(mutex);
    if (noted.size() < most) {
      noted.push_back(uri);
    }
  };
  registry = std::make_shared<ItemManager>(*this, simulated, source);
}

FakeSensorManager::~FakeSensorManager() {
  // The worker reads from this object, so it ends before anything here does.
  if (registry != nullptr) {
    registry->Shutdown();
  }
}

void FakeSensorManager::SetResource(const std::string& uri, const std::string& json) {
  std::lock_guard lock(mutex);
  resources[uri] = ZoJson::ParseString(json);
}

void FakeSensorManager::RemoveResource(const std::string& uri) {
  std::lock_guard lock(mutex);
  resources.erase(uri);
}

void FakeSensorManager::SetScript(const std::string& verb, Script script) {
  std::lock_guard lock(mutex);
  scripts[verb] = std::move(script);
}

void FakeSensorManager::SetConnected(bool value) {
  std::lock_guard lock(mutex);
  connected = value;
}

void FakeSensorManager::SetRunning(bool value) {
  std::lock_guard lock(mutex);
  running = value;
}

void FakeSensorManager::HidePLC() {
  std::lock_guard lock(mutex);
  plcHidden = true;
}

void FakeSensorManager::HideCache() {
  std::lock_guard lock(mutex);
  cacheHidden = true;
}

std::vector<FakeSensorManager::Request> FakeSensorManager::Calls() const {
  std::lock_guard lock(mutex);
  return calls;
}

std::vector<std::string> FakeSensorManager::CallTexts() const {
  std::vector<std::string> texts;
  for (const Request& request : Calls()) {
    texts.push_back(request.Text());
  }
  return texts;
}

std::size_t FakeSensorManager::CallCount(const std::string& verb) const {
  std::lock_guard lock(mutex);
  const auto found = counts.find(verb);
  return found == counts.end() ? 0 : found->second;
}

bool FakeSensorManager::WaitForCalls(const std::string& verb, std::size_t count) const {
  std::unique_lock lock(mutex);
  return called.wait_for(lock, kLimit, [&] {
    const auto found = counts.find(verb);
    return found != counts.end() && found->second >= count;
  });
}

void FakeSensorManager::ClearCalls() {
  std::lock_guard lock(mutex);
  calls.clear();
  counts.clear();
  questionCount = 0;
}

std::vector<std::string> FakeSensorManager::Questions() const {
  std::lock_guard lock(mutex);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < questionCount; ++i) {
    if (questions[i].thread == std::this_thread::get_id()) {
      names.emplace_back(questions[i].name);
    }
  }
  return names;
}

std::vector<std::string> FakeSensorManager::Kept() const {
  std::lock_guard lock(mutex);
  return kept;
}

std::vector<std::string> FakeSensorManager::Noted() const {
  std::lock_guard lock(mutex);
  return noted;
}

int FakeSensorManager::GiveUps() const {
  std::lock_guard lock(mutex);
  return giveUps;
}

int FakeSensorManager::Shutdowns() const {
  std::lock_guard lock(mutex);
  return shutdowns;
}

void FakeSensorManager::GiveUp() noexcept {
  std::lock_guard lock(mutex);
  ++giveUps;
}

void FakeSensorManager::Shutdown() noexcept {
  {
    std::lock_guard lock(mutex);
    ++shutdowns;
  }
  cache->Shutdown();
  registry->Shutdown();
}

std::shared_ptr<ItemManager> FakeSensorManager::PLC() {
  std::lock_guard lock(mutex);
  Note("PLC");
  return plcHidden ? nullptr : registry;
}

std::shared_ptr<CacheManager> FakeSensorManager::Cache() {
  std::lock_guard lock(mutex);
  Note("Cache");
  return cacheHidden ? nullptr : cache;
}

std::shared_ptr<ZoIO::Logger> FakeSensorManager::GetLogger() {
  return logger;
}

bool FakeSensorManager::IsRunning() {
  std::lock_guard lock(mutex);
  return running;
}

bool FakeSensorManager::IsConnected() {
  std::lock_guard lock(mutex);
  Note("IsConnected");
  return connected;
}

void FakeSensorManager::Start() {
  Answer({"Start", "", {}, false, {}});
  SetRunning(true);
}

void FakeSensorManager::Stop() {
  Answer({"Stop", "", {}, false, {}});
  SetRunning(false);
}

ZoJson FakeSensorManager::Read(const std::string& uri, bool logFailure) {
  return Answer({"Read", uri, {}, logFailure, {}});
}

void FakeSensorManager::Keep(const std::string& uri, const ZoJson& payload) {
  {
    std::lock_guard lock(mutex);
    if (kept.size() < most) {
      kept.push_back(uri + " " + payload.ToString());
    }
  }
  ISensorManager::Keep(uri, payload);
}

ZoJson FakeSensorManager::Create(const std::string& uri, ZoJson payload, bool logFailure) {
  return Answer({"Create", uri, std::move(payload), logFailure, {}});
}

ZoJson FakeSensorManager::Update(const std::string& uri, ZoJson payload, bool logFailure) {
  return Answer({"Update", uri, std::move(payload), logFailure, {}});
}

ZoJson FakeSensorManager::Call(const std::string& uri, ZoJson payload, bool logFailure) {
  return Answer({"Call", uri, std::move(payload), logFailure, {}});
}

ZoJson FakeSensorManager::Delete(const std::string& uri, bool logFailure) {
  return Answer({"Delete", uri, {}, logFailure, {}});
}

ZoJson FakeSensorManager::Subscribe(const std::string& uri, bool logFailure) {
  return Answer({"Subscribe", uri, {}, logFailure, {}});
}

ZoJson FakeSensorManager::Unsubscribe(const std::string& uri, bool logFailure) {
  return Answer({"Unsubscribe", uri, {}, logFailure, {}});
}

ZoJson FakeSensorManager::Stream(const std::string& uri, bool logFailure) {
  return Answer({"Stream", uri, {}, logFailure, {}});
}

ZoJson FakeSensorManager::StopStream(const std::string& uri, bool logFailure) {
  return Answer({"StopStream", uri, {}, logFailure, {}});
}

void FakeSensorManager::Note(const char* question) {
  if (questionCount < questions.size()) {
    questions[questionCount++] = {question, std::this_thread::get_id()};
  }
}

ZoJson FakeSensorManager::Answer(Request request) {
  request.thread = std::this_thread::get_id();
  Script script;
  {
    std::lock_guard lock(mutex);
    if (calls.size() < most) {
      calls.push_back(request);
    }
    ++counts[request.verb];
    called.notify_all();
    const auto found = scripts.find(request.verb);
    if (found == scripts.end()) {
      return request.verb == "Read" ? ReadResource(request.uri) : ZoJson("{\"status\": 1}");
    }
    script = found->second;
  }
  return script(request);
}

ZoJson FakeSensorManager::ReadResource(const std::string& uri) const {
  const auto found = resources.find(uri);
  ZoJson response;
  response.Set("status", found == resources.end() ? -404 : 1);
  response.Set("payload", found == resources.end() ? ZoJson() : found->second);
  return response;
}

}  // namespace ZoTest
