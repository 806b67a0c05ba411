#include "zoiohandler/vyrnclient/method.h"

#include <exception>
#include <utility>

#include "zoiohandler/vyrnclient/logger.h"

namespace ZoIO {

namespace {

std::string Uri(const ZoJson& args) {
  return args.At("/uri").Get<std::string>();
}

// The payload travels as JSON text inside the arguments.
ZoJson Payload(const ZoJson& args) {
  return ZoJson::ParseString(args.At("/args").Get<std::string>());
}

// Runs a request; a fault's text becomes the output.
template <typename Request>
int Answer(ZoJson& out, const Request& request) {
  try {
    out = request();
  } catch (const std::exception& e) {
    out = ZoJson::Of(e.what());
  }
  return 0;
}

}  // namespace

Method::Method(std::shared_ptr<const ioHandlerParam> param, std::shared_ptr<ISensorManager> sensor,
               std::shared_ptr<CallbackGate> gate)
    : sensor(std::move(sensor)), param(std::move(param)), gate(std::move(gate)) {
  Add("RunSensor", &Method::RunSensor);
  Add("StopSensor", &Method::StopSensor);
  Add("Call", &Method::SensorCall);
  Add("Create", &Method::Create);
  Add("Read", &Method::Read);
  Add("Update", &Method::Update);
  Add("Delete", &Method::Delete);
}

void Method::Add(const char* name, int (Method::*handler)(const ZoJson&, ZoJson&)) {
  handlers.emplace(name, std::bind_front(handler, this));
}

bool Method::Call(const void* callToken, const std::string& method, const std::string& args) noexcept {
  try {
    const auto handler = handlers.find(method);
    const ZoJson arguments = ZoJson::ParseString(args);
    ZoJson out;
    if (handler == handlers.end() || !arguments.IsObject()) {
      return false;
    }
    const int errcode = handler->second(arguments, out);
    Respond(callToken, PrepareResponse(arguments, out, errcode));
    return errcode == 0;
  } catch (...) {
    // No response reaches the host: the result of its call is how it learns of the failure, whatever it was.
    return false;
  }
}

std::string Method::PrepareResponse(const ZoJson& args, const ZoJson& out, int errcode) const {
  ZoJson response;
  const ZoJson id = args.HasKey("/id") ? args.At("/id") : ZoJson();
  response.Set("id", id.IsPrimitive() ? id : ZoJson());
  response.Set("errcode", errcode);
  response.Set("data", out.ToString());
  return response.ToString();
}

void Method::Respond(const void* callToken, const std::string& response) const {
  if (param->methodResult == nullptr) {
    return;
  }
  const CallbackGate::Entry entry(gate.get());
  if (entry) {
    param->methodResult(callToken, response.c_str(), param->context);
  }
}

int Method::RunSensor(const ZoJson& /*args*/, ZoJson& out) {
  if (sensor->IsRunning()) {
    out.Set("result", "Already running.");
  } else {
    sensor->Start();
    out.Set("result", "OK");
  }
  return 0;
}

int Method::StopSensor(const ZoJson& /*args*/, ZoJson& out) {
  if (sensor->IsRunning()) {
    sensor->Stop();
    out.Set("result", "OK");
  } else {
    out.Set("result", "Not running");
  }
  return 0;
}

int Method::SensorCall(const ZoJson& args, ZoJson& out) {
  try {
    ZoJson payload = Payload(args);
    out = sensor->Call(Uri(args), std::move(payload), true);
  } catch (const std::exception& e) {
    out = ZoJson::Of(e.what());
    WriteLog(*sensor->GetLogger(), e.what(), LogLevel_Error, "ZoIO::Method::SensorCall");
  }
  return 0;
}

int Method::Create(const ZoJson& args, ZoJson& out) {
  return Answer(out, [&] {
    ZoJson payload = Payload(args);
    return sensor->Create(Uri(args), std::move(payload), true);
  });
}

int Method::Read(const ZoJson& args, ZoJson& out) {
  return Answer(out, [&] { return sensor->Read(Uri(args), true); });
}

int Method::Update(const ZoJson& args, ZoJson& out) {
  return Answer(out, [&] {
    ZoJson payload = Payload(args);
    return sensor->Update(Uri(args), std::move(payload), true);
  });
}

int Method::Delete(const ZoJson& args, ZoJson& out) {
  return Answer(out, [&] { return sensor->Delete(Uri(args), true); });
}

}  // namespace ZoIO
