#include "tests/wire/plantsensor.h"

namespace ZoTest {

namespace {

constexpr const char* stream = "/p";
constexpr const char* granted = R"("status":1)";

std::string Refused(int status) {
  return "\"status\":" + std::to_string(status) + R"(,"payload":null,"error":"It cannot be done.")";
}

// Of the pattern of a resource with all below it.
std::string ResourceOf(const std::string& pattern) {
  return pattern.substr(0, pattern.find("/*"));
}

}  // namespace

PlantSensor::PlantSensor() {
  sensor.SetResponder([this](FakePeer& peer, const FakeRequest& request) { Answer(peer, request); });
  sensor.SetScript([this](FakePeer& peer) { Serve(peer); });
}

void PlantSensor::Set(const std::string& uri, int value) {
  const std::lock_guard lock(mutex);
  values[uri] = value;
  PushChange(uri);
}

void PlantSensor::SetUnheard(const std::string& uri, int value) {
  const std::lock_guard lock(mutex);
  values[uri] = value;
}

void PlantSensor::Drop() {
  const std::lock_guard lock(mutex);
  if (newest != nullptr) {
    newest->Drop();
  }
}

int PlantSensor::ValueOf(const std::string& uri) const {
  const std::lock_guard lock(mutex);
  return values.at(uri);
}

std::set<std::string> PlantSensor::Served() const {
  const std::lock_guard lock(mutex);
  return served;
}

void PlantSensor::Serve(FakePeer& peer) {
  if (!peer.ReadUpgrade() || !peer.AcceptUpgrade()) {
    return;
  }
  {
    const std::lock_guard lock(mutex);
    if (peer.number > newestNumber) {  // one that its client has given up may come late
      newest = &peer;
      newestNumber = peer.number;
      served.clear();
    }
  }
  sensor.ServeSession(peer);
  const std::lock_guard lock(mutex);
  if (newest == &peer) {
    newest = nullptr;
    served.clear();
  }
}

void PlantSensor::Answer(FakePeer& peer, const FakeRequest& request) {
  const std::lock_guard lock(mutex);
  peer.Send(FakeSensor::Answer(request, Members(peer, request)));
  if (&peer != newest) {
    return;
  }
  if (request.method == "sub") {
    Push("notification", ResourceOf(request.uri));
  } else if (request.method == "update") {
    PushChange(request.uri);
  }
}

std::string PlantSensor::Members(FakePeer& peer, const FakeRequest& request) {
  // What an older session still asks for is none of the newest one's.
  std::set<std::string> other;
  std::set<std::string>& own = &peer == newest ? served : other;
  const std::string resource = ResourceOf(request.uri);
  if (!values.contains(resource)) {
    return Refused(-404);
  }
  if (request.method == "read") {
    return granted + Content(resource);
  }
  if (request.method == "startStream") {
    if (request.uri != stream) {
      return Refused(-405);
    }
    own.insert(request.uri);
    return granted + Content(resource);
  }
  if (request.method == "sub") {
    own.insert(request.uri);
    return granted;
  }
  if (request.method == "stopStream") {
    return own.erase(request.uri) != 0 ? granted : "";  // a bare acknowledgement
  }
  if (request.method == "unsub") {
    return own.erase(request.uri) != 0 ? granted : Refused(-404);
  }
  if (request.method == "update") {
    values[resource] = request.document.At("/payload/v").Get<int>();
    return granted;
  }
  return Refused(-405);
}

void PlantSensor::PushChange(const std::string& uri) {
  if (served.contains(uri)) {
    Push("stream", uri);
  }
  if (served.contains(uri + "/*")) {
    Push("notification", uri);
  }
}

void PlantSensor::Push(const std::string& event, const std::string& uri) {
  if (newest != nullptr) {
    newest->Send(R"({"event":")" + event + R"(","uri":")" + uri + "\"" + Content(uri) + "}");
  }
}

std::string PlantSensor::Content(const std::string& uri) const {
  return R"(,"payload":{"v":)" + std::to_string(values.at(uri)) + "}";
}

}  // namespace ZoTest
