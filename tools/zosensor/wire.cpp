#include "tools/zosensor/wire.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "tools/zosensor/jsonvalues.h"
#include "tools/zosensor/standin.h"
#include "zovyrnsdk/json/zojsonnesting.h"

namespace ZoSensor {
namespace {

constexpr std::array<std::string_view, 9> MethodNames = {"read", "create", "update",      "delete",    "call",
                                                         "sub",  "unsub",  "startStream", "stopStream"};

const ZoJsonPointer IdMember = ZoJsonPointer::Member("id");
const ZoJsonPointer UriMember = ZoJsonPointer::Member("uri");
const ZoJsonPointer MethodMember = ZoJsonPointer::Member("method");
const ZoJsonPointer PayloadMember = ZoJsonPointer::Member("payload");

ZoJson Member(const ZoJson& object, const ZoJsonPointer& name) {
  const ZoJson* const member = object.Find(name);
  return member != nullptr ? *member : ZoJson();
}

// A message that is JSON, though it holds what a ZoJson cannot; nothing for what is no JSON at all.
std::optional<ZoJson> ParseWithStandIns(std::string_view message) {
  try {
    return ZoJson::ParseString(WithStandIns(message));
  } catch (const ZoJsonError&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<Method> MethodByName(std::string_view name) {
  const auto found = std::find(MethodNames.begin(), MethodNames.end(), name);
  if (found == MethodNames.end()) {
    return std::nullopt;
  }
  return static_cast<Method>(found - MethodNames.begin() + 1);
}

std::string_view MethodName(Method method) {
  return MethodNames[static_cast<std::size_t>(method) - 1];
}

std::optional<Request> ParseRequest(std::string_view message, const Limits& limits) {
  if (JsonNesting(message) > limits.maxDepth) {
    return std::nullopt;
  }
  ZoJson document;
  Request request;
  std::string outline;
  const bool tooLarge = HoldsMoreValues(message, limits.maxValues);
  if (tooLarge) {
    outline = JsonOutline(message);
    message = outline;
    if (JsonValues(message) > limits.maxValues) {
      // The members themselves are too many: which of them count is left open.
      message = outline[outline.find_first_not_of(" \t\r\n")] == '{' ? "{}" : "[]";
    }
  }
  try {
    document = ZoJson::ParseString(message);
  } catch (const ZoJsonError& error) {
    const auto standIn = ParseWithStandIns(message);
    if (!standIn) {
      return std::nullopt;
    }
    document = *standIn;
    request.fault = error.what();
  }
  if (!document.IsObject()) {
    return std::nullopt;
  }
  const ZoJson id = Member(document, IdMember);
  if (request.fault.empty() || id.IsUnsigned()) {  // a stand-in is no unsigned integer, and not to be echoed
    request.idText = id.ToString();
  }
  const ZoJson uri = Member(document, UriMember);
  if (uri.IsString()) {
    request.uri = uri.Get<std::string>();
  }
  const ZoJson method = Member(document, MethodMember);
  if (method.IsString()) {
    request.method = MethodByName(method.Get<std::string>());
  }
  if (const ZoJson* const payload = document.Find(PayloadMember)) {
    request.payload = *payload;
  }
  if (tooLarge) {
    request.fault = fmt::format("a request holds at most {} values", limits.maxValues);
    request.faultStatus = Status::TooLarge;
  }
  if (!request.fault.empty()) {
    return request;
  }
  if (!id.IsUnsigned()) {
    request.fault = "\"id\" must be an unsigned integer";
  } else if (!request.method) {
    request.fault = method.IsString() ? fmt::format("there is no method {}", method.ToString())
                                      : "\"method\" must be a text";
  } else if (!uri.IsString()) {
    request.fault = "\"uri\" must be a text";
  }
  return request;
}

std::string Quote(std::string_view text) {
  return ZoJson::Of(text).ToString();
}

std::string ResponseText(std::string_view idText, std::string_view uri, const Answer& answer) {
  // By hand: most of what the emulator does under load is this.
  constexpr std::size_t names = 64;
  std::string text;
  text.reserve(names + idText.size() + uri.size() + (answer.payload != nullptr ? answer.payload->size() : 0));
  text += '{';
  if (!idText.empty()) {
    text.append(R"("id":)").append(idText);
  }
  if (!answer.bare) {
    text.append(idText.empty() ? "" : ",").append(R"("status":)").append(std::to_string(answer.status));
    text.append(R"(,"uri":)").append(Quote(uri));
    if (!answer.Succeeded()) {
      text.append(R"(,"payload":null,"error":)").append(Quote(answer.error));
    } else if (answer.payload != nullptr) {
      text.append(R"(,"payload":)").append(*answer.payload);
    }
  }
  return text += '}';
}

std::string PushText(std::string_view event, std::string_view uri, std::string_view payload) {
  constexpr std::size_t names = 64;
  std::string text;
  text.reserve(names + uri.size() + payload.size());
  text.append(R"({"event":")").append(event).append(R"(","uri":)").append(Quote(uri));
  text.append(R"(,"payload":)").append(payload);
  return text += '}';
}

}  // namespace ZoSensor
