// The named methods behind CallMethod.
//
// Threads: the host's thread that calls, under the instance lock. Owner: the instance. Immutable after
// construction; no lock.
//
// Every handler returns 0: a failure shows in the response's "data" alone (an empty document, a sensor's
// error document, or the text of an exception). Hosts rely on "errcode" being 0 in every response.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "xhmi/iohandler.h"
#include "zoiohandler/vyrnclient/callbackgate.h"
#include "zoiohandler/vyrnclient/isensormanager.h"

namespace ZoIO {

class Method {
 public:
  // gate may be null.
  Method(std::shared_ptr<const ioHandlerParam> param, std::shared_ptr<ISensorManager> sensor,
         std::shared_ptr<CallbackGate> gate = nullptr);
  Method(const Method&) = delete;
  Method& operator=(const Method&) = delete;

  // Runs a method with arguments given as JSON text and hands the response to the host. False, without a
  // response, for an unknown method or arguments that are no JSON object. Never raises.
  bool Call(const void* callToken, const std::string& method, const std::string& args) noexcept;

 private:
  using Handler = std::function<int(const ZoJson&, ZoJson&)>;

  int RunSensor(const ZoJson& args, ZoJson& out);
  int StopSensor(const ZoJson& args, ZoJson& out);
  int SensorCall(const ZoJson& args, ZoJson& out);
  int Create(const ZoJson& args, ZoJson& out);
  int Read(const ZoJson& args, ZoJson& out);
  int Update(const ZoJson& args, ZoJson& out);
  int Delete(const ZoJson& args, ZoJson& out);

  void Add(const char* name, int (Method::*handler)(const ZoJson&, ZoJson&));
  std::string PrepareResponse(const ZoJson& args, const ZoJson& out, int errcode) const;
  void Respond(const void* callToken, const std::string& response) const;

  std::shared_ptr<ISensorManager> sensor;
  std::shared_ptr<const ioHandlerParam> param;
  std::shared_ptr<CallbackGate> gate;
  std::unordered_map<std::string, Handler> handlers;
};

}  // namespace ZoIO
