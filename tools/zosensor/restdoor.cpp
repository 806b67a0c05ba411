#include "tools/zosensor/restdoor.h"

#include <cstdlib>
#include <exception>
#include <utility>

#include <fmt/format.h>

#include "tools/zosensor/jsonvalues.h"
#include "tools/zosensor/wire.h"
#include "zovyrnsdk/json/zojsonnesting.h"

namespace ZoSensor {
namespace {

constexpr std::string_view Prefix = "/vyrn/v1/resources";

int HexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::optional<std::string> PercentDecode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    if (text.size() - i < 3 || HexDigit(text[i + 1]) < 0 || HexDigit(text[i + 2]) < 0) {
      return std::nullopt;
    }
    decoded += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
    i += 2;
  }
  return decoded;
}

bool IsUtf8(std::string_view text) {
  try {
    ZoJson::ParseString(Quote(text));
    return true;
  } catch (const ZoJsonError&) {
    return false;
  }
}

// The path of a target in origin form or absolute form, without its query.
std::string_view PathOf(std::string_view target) {
  if (const auto scheme = target.find("://"); scheme != std::string_view::npos && target.front() != '/') {
    const auto slash = target.find('/', scheme + 3);
    target = slash == std::string_view::npos ? std::string_view("/") : target.substr(slash);
  }
  return target.substr(0, target.find('?'));
}

bool Known(std::string_view method) {
  return method == "GET" || method == "HEAD" || method == "PUT" || method == "PATCH" || method == "DELETE" ||
         method == "POST";
}

}  // namespace

RestDoor::RestDoor(Sensor& doorSensor, FaultController& faultController, const Limits& doorLimits,
                   Log& doorLog)
    : sensor(doorSensor),
      faults(faultController),
      limits(doorLimits),
      log(doorLog),
      dice(faultController.MakeDice()) {}

std::optional<std::string> RestDoor::ResourcePath(std::string_view target) {
  auto path = TargetPath(target);
  if (!path) {
    return std::string();
  }
  if (!path->starts_with(Prefix)) {
    return std::nullopt;
  }
  path->erase(0, Prefix.size());
  if (path->empty()) {
    return "/";
  }
  return path->front() == '/' ? path : std::nullopt;
}

std::optional<std::string> RestDoor::TargetPath(std::string_view target) {
  auto decoded = PercentDecode(PathOf(target));
  return decoded && IsUtf8(*decoded) ? decoded : std::nullopt;
}

RestAnswer RestDoor::Refuse(unsigned status, std::string_view uri, std::string reason) {
  RestAnswer answer;
  answer.status = status;
  answer.body = ResponseText("", uri, Answer::Failure(-static_cast<int>(status), std::move(reason)));
  return answer;
}

RestAnswer RestDoor::Handle(const RestRequest& request, const std::string& peer, Time now) {
  const auto path = ResourcePath(request.target);
  if (!path) {
    log.Debug("{} {} {} -> 404", peer, request.method, request.target);
    return Refuse(404, "", fmt::format("resources are found under {}", Prefix));
  }
  if (path->empty()) {
    log.Debug("{} {} {} -> 400", peer, request.method, request.target);
    return Refuse(400, "", "the target is no percent-encoded UTF-8");
  }
  if (!Known(request.method)) {
    log.Debug("{} {} {} -> 405", peer, request.method, *path);
    // Not by its name: that need not be UTF-8, and the answer must.
    RestAnswer refusal = Refuse(405, *path, fmt::format("the methods here are {}", Methods));
    refusal.allow = Methods;
    return refusal;
  }
  RestAnswer result;
  if (faults.Concerns(*path)) {
    result.disturbance = faults.Count(requests);
    result.plan = dice.Roll(faults.Settings());
    if (result.disturbance == Disturbance::Cut) {
      log.Debug("{} {} {} -> cut on purpose", peer, request.method, *path);
      return result;
    }
  }
  Answer answer = result.plan.error ? Answer::Failure(static_cast<int>(faults.Settings().errorStatus),
                                                      "an error on purpose")
                                    : DispatchSafely(request, *path, now);
  result.status = answer.Succeeded() ? 200 : static_cast<unsigned>(std::abs(answer.status));
  if (result.status == 405) {
    result.allow = Methods;
  }
  result.body = ResponseText("", *path, answer);
  result.plan.latency += answer.delay;
  sensor.CompleteAt(now + result.plan.latency, answer);
  log.Debug("{} {} {} -> {}{}{}", peer, request.method, *path, result.status,
            answer.error.empty() ? "" : ": " + answer.error, Fate(result.plan));
  return result;
}

Answer RestDoor::DispatchSafely(const RestRequest& request, const std::string& path, Time now) {
  try {
    return Dispatch(request, path, now);
  } catch (const std::exception& error) {  // one client's odd request must not end the others' sessions
    log.Error("{}: {}", path, error.what());
    return Answer::Failure(Status::Internal, error.what());
  }
}

Answer RestDoor::Dispatch(const RestRequest& request, const std::string& path, Time now) {
  if (request.method == "GET" || request.method == "HEAD") {
    return sensor.Read(path, now);
  }
  if (request.method == "DELETE") {
    return sensor.Delete(path, now);
  }
  ZoJson payload;
  // One level less than in a session: the answer wraps the payload in an object.
  if (JsonNesting(request.body) >= limits.maxDepth) {
    return Answer::Failure(Status::TooLarge,
                           fmt::format("a body nests less than {} levels", limits.maxDepth));
  }
  if (HoldsMoreValues(request.body, limits.maxValues)) {
    return Answer::Failure(Status::TooLarge,
                           fmt::format("a request holds at most {} values", limits.maxValues));
  }
  try {
    if (!request.body.empty()) {
      payload = ZoJson::ParseString(request.body);
    } else if (request.method != "POST") {
      return Answer::Failure(Status::Malformed, fmt::format("{} needs a body", request.method));
    }
  } catch (const ZoJsonError& error) {
    return Answer::Failure(Status::Malformed, fmt::format("the body is no JSON: {}", error.what()));
  }
  if (request.method == "PUT") {
    return sensor.Create(path, std::move(payload), now);
  }
  if (request.method == "PATCH") {
    return sensor.Update(path, payload, now);
  }
  return sensor.Call(path, payload, now);
}

}  // namespace ZoSensor
